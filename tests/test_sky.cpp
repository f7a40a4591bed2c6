// The sky: where its picture stands, what its tables draw, the light that arrives from it.

#include "accel/ray.h"
#include "base/constants.h"
#include "lights/lights.h"
#include "lights/sky_tables.h"
#include "scene_files.h"
#include "session/area_sampler.h"
#include "session/sampling.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>
#include <random>
#include <utility>
#include <vector>

namespace hv {
namespace {

constexpr int    kCellCount    = kSkyFaces * kSkyCells * kSkyCells;
constexpr double kMeanCell     = 4.0 * M_PI / kCellCount;      // steradians
constexpr double kSmallestCell = 0.907, kLargestCell = 1.209;  // of the mean: middle of an edge, corner of the cube

using Painter = std::function<Color(int, int)>;

void Paint(Image& image, int width, int height, const Painter& painter)
{
    ASSERT_TRUE(AllocateImage(image, width, height, 3, 32, false));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const Color color = painter(x, y);
            WriteImagePixel(image, &color.r, static_cast<std::uint32_t>(y * width + x));
        }
    image.path   = "painted";
    image.loaded = true;
}

/// Blue above, brown below, and a sun of two texels a hundred thousand times as bright.
Color PaintSun(int x, int y)
{
    if (y == 9 && (x == 41 || x == 42)) return {9e4f, 8e4f, 6e4f};
    const float height = 1.0f - static_cast<float>(y) / 16.0f;
    if (height < 0.0f) return {0.2f, 0.1f, 0.0f};
    return {0.5f, 0.4f + 0.2f * height, 0.4f + height + 0.01f * static_cast<float>(x)};
}

class Sky : public SceneTest {
protected:
    ~Sky() override { FinalizeSkyLight(); }

    static std::string Prepare()
    {
        testing::internal::CaptureStdout();
        PrepareSkyLight();
        return testing::internal::GetCapturedStdout();
    }

    static void PrepareWith(int width, int height, const Painter& painter)
    {
        Paint(SkyLight.image, width, height, painter);
        Prepare();
        ASSERT_TRUE(HasSkyTables());
    }
};

/// What the tables have to hold, by the plain samplers.
struct PlainTables {
    PlainTables()
    {
        for (int face = 0; face < kSkyFaces; ++face) {
            std::vector<float> totals;
            for (int row = 0; row < kSkyCells; ++row) {
                std::vector<float> weights;
                for (int column = 0; column < kSkyCells; ++column)
                    weights.push_back(MaxChannel(SkyColor(CubeDirection(face, row, column))) + 1e-8f);
                BuildAreaSampler(rows[face][row], weights);
                totals.push_back(static_cast<float>(rows[face][row].total));
            }
            BuildAreaSampler(row_choice[face], totals);
        }
    }

    /// Per steradian: probability of the face, the row and the cell over the mean solid angle of a cell.
    double Density(const SkyCellIndex& cell) const
    {
        const auto row = static_cast<std::size_t>(cell.row), column = static_cast<std::size_t>(cell.column);
        return double{row_choice[cell.face].weights[row]} * rows[cell.face][row].weights[column] / 6.0 / kMeanCell;
    }

    AreaSampler row_choice[kSkyFaces], rows[kSkyFaces][kSkyCells];
};

std::size_t KeyOf(const SkyCellIndex& cell)
{
    return static_cast<std::size_t>((cell.face * kSkyCells + cell.row) * kSkyCells + cell.column);
}

template <class Visitor>
void ForEachCell(Visitor visit)
{
    for (int face = 0; face < kSkyFaces; ++face)
        for (int row = 0; row < kSkyCells; ++row)
            for (int column = 0; column < kSkyCells; ++column) visit(SkyCellIndex{face, row, column});
}

/// Two numbers in 0..1 that cover the square evenly.
struct Pair {
    float first, second;
};
Pair Hammersley(int i, int count)
{
    return {(static_cast<float>(i) + 0.5f) / static_cast<float>(count),
            RadicalInverse(0, static_cast<std::uint32_t>(i))};
}

// Going right from north, an observer meets east, south and west. The picture runs the other way round, from east on its
// left edge over north, west and south; its first row is the zenith.
TEST_F(Sky, ThePictureStandsInTheFrameOfNorthAndZenith)
{
    const struct {
        Vector north, zenith;  ///< as given
        Vector east, ahead, up;
    } frames[]                      = {{{0, 1, 0}, {0, 0, 1}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}},
                                       {{0, 0, -1}, {0, 1, 0}, {1, 0, 0}, {0, 0, -1}, {0, 1, 0}},
                                       {{5, 2, 0}, {0, 3, 0}, {0, 0, 1}, {1, 0, 0}, {0, 1, 0}},
                                       {{0, 0, 7}, {3, 4, 0}, {-0.8f, 0.6f, 0}, {0, 0, 1}, {0.6f, 0.8f, 0}}};
    constexpr int kQuadrantOf[2][2] = {{2, 3}, {1, 0}};  // [is north][is east], from the left edge of the picture
    const auto    octant            = [](int quadrant, bool is_up) {
        return Color{static_cast<float>(1 + quadrant), is_up ? 8.0f : 0.5f, 1.0f};
    };
    SkyLight.color = {1.0f, 0.5f, 2.0f};
    for (const auto& frame : frames) {
        SkyLight.north  = frame.north;
        SkyLight.zenith = frame.zenith;
        PrepareWith(64, 32, [&](int x, int y) { return octant(x / 16, y < 16); });
        for (int corner = 0; corner < 8; ++corner) {
            const bool   is_east = corner & 1, is_north = corner & 2, is_up = corner & 4;
            const Vector d = Normalized(frame.east * (is_east ? 1.0f : -1.0f) +
                                        frame.ahead * (is_north ? 1.0f : -1.0f) + frame.up * (is_up ? 1.0f : -1.0f));
            EXPECT_EQ(SkyColor(d), octant(kQuadrantOf[is_north][is_east], is_up) * SkyLight.color) << corner;
        }
        float uv[2];
        SkyUV(Normalized(frame.ahead + frame.up), uv);
        EXPECT_NEAR(uv[0], 0.25f, 1e-6f);
        EXPECT_NEAR(uv[1], 0.25f, 1e-6f);
    }
}

TEST_F(Sky, RowsAndColumnsStartAtTheseEdges)
{
    const Vector edges[kSkyFaces][2] = {{{1, 0, 1}, {1, 1, 0}},   {{-1, 0, 1}, {0, 1, 1}}, {{-1, 0, -1}, {-1, 1, 0}},
                                        {{1, 0, -1}, {0, 1, -1}}, {{1, 1, 0}, {0, 1, 1}},  {{-1, -1, 0}, {0, -1, 1}}};
    for (int face = 0; face < kSkyFaces; ++face) {
        EXPECT_LT(Length(CubeDirection(face, 0, 128) - Normalized(edges[face][0])), 2e-5f) << face;
        EXPECT_LT(Length(CubeDirection(face, 128, 0) - Normalized(edges[face][1])), 2e-5f) << face;
    }
}

// Where two faces share grid points, a direction cannot tell which face it was drawn from: 511 of 393216 cells.
TEST_F(Sky, DirectionsOfCellsFindTheirOwnDensity)
{
    PrepareWith(64, 32, PaintSun);
    const PlainTables plain;
    int               twin_count = 0;
    double            sum        = 0.0;
    ForEachCell([&](const SkyCellIndex& cell) {
        const Vector       direction = CubeDirection(cell.face, cell.row, cell.column);
        const SkyCellIndex found     = NearestSkyCell(direction);
        ASSERT_EQ(CubeDirection(found.face, found.row, found.column), direction);
        ASSERT_NEAR(SkyDensity(direction) / plain.Density(found), 1.0, 1e-6);
        if (KeyOf(found) == KeyOf(cell)) {
            sum += SkyDensity(direction) * kMeanCell;
            return;
        }
        ++twin_count;
        sum += plain.Density(cell) * kMeanCell;
        ASSERT_TRUE(cell.face == 4 && (cell.row == 0 || cell.column == 0));
    });
    EXPECT_EQ(twin_count, 511);
    EXPECT_NEAR(sum, 1.0, 1e-5);
}

// The grid point that is found is no farther than half the diagonal of a cell, across the edges of faces too, but for the
// two edges without grid points: there the next line is up to a step and a half away.
TEST_F(Sky, AnyDirectionFindsTheNearestGridPoint)
{
    std::mt19937                    generator(3);
    std::normal_distribution<float> normal;
    const float                     diagonal = 0.0117f;  // radians, of the cell at a corner of the cube
    for (int i = 0; i < 200000; ++i) {
        Vector d{normal(generator), normal(generator), normal(generator)};
        // Half of them within a step of an edge.
        if (i % 2) d[i / 2 % 3] = std::copysign(d[(i / 2 + 1) % 3] * (1.0f + 0.005f * normal(generator)), d.z);
        d                       = Normalized(d);
        const SkyCellIndex cell = NearestSkyCell(d);
        ASSERT_TRUE(cell.row >= 0 && cell.row < kSkyCells && cell.column >= 0 && cell.column < kSkyCells);
        const Vector grid = CubeDirection(cell.face, cell.row, cell.column);
        const bool   gap  = d.y < -0.5f && std::max(d.x, -d.z) > 0.5f;
        ASSERT_LT(Length(d - grid), diagonal * (gap ? 1.0f : 0.52f)) << d.x << ' ' << d.y << ' ' << d.z;
    }
    const float kNumberless = std::numeric_limits<float>::quiet_NaN();
    for (const Vector odd : {Vector{0, 0, 0}, Vector{kNumberless, 1, 0}, Vector{INFINITY, -INFINITY, 0}}) {
        const SkyCellIndex cell = NearestSkyCell(odd);
        EXPECT_LT(KeyOf(cell), std::size_t{kCellCount});
    }
}

/// Numbers at the limits of the tables, then any.
std::vector<Pair> Numbers(const PlainTables& plain, int count)
{
    std::vector<Pair> numbers = {{0, 0}, {1, 1}, {1, 0}, {0, 1}, {1.0f / 6, 0.5f}, {0.99999994f, 0.99999994f}};
    for (const float sum : plain.row_choice[0].cumulative) numbers.push_back({sum / 6, sum});
    std::mt19937                          generator(11);
    std::uniform_real_distribution<float> uniform;
    for (int i = 0; i < count; ++i) {
        const float first = uniform(generator);
        numbers.push_back({first, uniform(generator)});
    }
    return numbers;
}

/// Pearson's statistic over bins of at least 20 expected draws, and their number.
std::pair<double, int> ChiSquare(const std::vector<double>& expected, const std::vector<int>& drawn)
{
    double statistic = 0.0, bin_expected = 0.0, bin_drawn = 0.0;
    int    bins = 0;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        bin_expected += expected[i];
        bin_drawn += drawn[i];
        if (bin_expected < 20.0) continue;
        statistic += (bin_drawn - bin_expected) * (bin_drawn - bin_expected) / bin_expected;
        bin_expected = bin_drawn = 0.0;
        ++bins;
    }
    return {statistic, bins};
}

// Each draw is the one that plain samplers give, and all together follow the density that they state: the statistic has
// mean k - 1 and variance 2 (k - 1).
TEST_F(Sky, DrawsInProportionToTheStatedDensity)
{
    PrepareWith(64, 32, PaintSun);
    const PlainTables       plain;
    const std::vector<Pair> numbers = Numbers(plain, 1000000);
    std::vector<double>     expected(kCellCount);
    std::vector<int>        drawn(kCellCount);
    ForEachCell([&](const SkyCellIndex& cell) {
        const SkyCellIndex found = NearestSkyCell(CubeDirection(cell.face, cell.row, cell.column));
        expected[KeyOf(found)] += plain.Density(cell) * kMeanCell * static_cast<double>(numbers.size());
    });
    for (const auto& [first, second] : numbers) {
        const int          face   = std::min(static_cast<int>(6.0f * first), 5);
        const auto         row    = PickIndex(plain.row_choice[face], 6.0f * first - static_cast<float>(face));
        const auto         column = PickIndex(plain.rows[face][row], second);
        const SkyCellIndex cell{face, static_cast<int>(row), static_cast<int>(column)};
        const SkySample    sample = SampleSky(first, second);
        ASSERT_EQ(sample.direction, CubeDirection(face, cell.row, cell.column)) << first << ' ' << second;
        ASSERT_NEAR(sample.density / plain.Density(cell), 1.0, 1e-6);
        ASSERT_EQ(sample.radiance, SkyColor(sample.direction));
        ++drawn[KeyOf(NearestSkyCell(sample.direction))];
    }
    const auto [statistic, bins] = ChiSquare(expected, drawn);
    EXPECT_GT(bins, 10000);
    EXPECT_NEAR(statistic, bins - 1, 5.0 * std::sqrt(2.0 * bins));
}

/// Solid angle of the cell around a direction over the mean: the derivative of the warp along both axes, times the cosine
/// over the squared distance on the cube.
double CellSize(Vector direction)
{
    double places[3] = {std::fabs(direction.x), std::fabs(direction.y), std::fabs(direction.z)};
    std::sort(places, places + 3);
    double size = 1.0, square = 1.0;
    for (int i = 0; i < 2; ++i) {
        const double place = places[i] / places[2], s = place * std::sqrt(0.5 / (1.0 + place * place));
        size *= 0.5 / std::pow(0.5 - s * s, 1.5) * std::sqrt(1.0 - s * s) * M_PI / 6.0 / 128.0;
        square += place * place;
    }
    return size / std::pow(square, 1.5) / kMeanCell;
}

/// Irradiance in the direction `normal` by a sum over the picture as a host would write it down: bilinear between texels
/// that stand on whole numbers, 2 x 2 points a texel.
Color IrradianceOfPicture(const Image& image, Vector normal)
{
    constexpr int kSteps = 2;
    const Vector  west   = Cross(SkyLight.zenith, SkyLight.north);
    const auto    texel  = [&](int x, int y) {
        Color color;
        ReadImagePixel(image, &color.r, static_cast<std::uint32_t>(y % image.height * image.width + x % image.width));
        return color;
    };
    double sum[3] = {};
    for (int y = 0; y < image.height; ++y) {
        for (int x = 0; x < image.width; ++x) {
            const Color corners[2][2] = {{texel(x, y), texel(x + 1, y)}, {texel(x, y + 1), texel(x + 1, y + 1)}};
            for (int point = 0; point < kSteps * kSteps; ++point) {
                const float  s       = (static_cast<float>(point % kSteps) + 0.5f) / kSteps;
                const float  t       = (static_cast<float>(point / kSteps) + 0.5f) / kSteps;
                const double azimuth = M_PI - 2.0 * M_PI * (x + double{s}) / image.width;
                const double polar   = M_PI * (y + double{t}) / image.height;
                const Vector d       = west * static_cast<float>(std::sin(polar) * std::cos(azimuth)) +
                                 SkyLight.north * static_cast<float>(std::sin(polar) * std::sin(azimuth)) +
                                 SkyLight.zenith * static_cast<float>(std::cos(polar));
                const double weight = std::max(0.0f, Dot(d, normal)) * std::sin(polar);
                const Color  color  = (corners[0][0] * (1 - s) + corners[0][1] * s) * (1 - t) +
                                    (corners[1][0] * (1 - s) + corners[1][1] * s) * t;
                for (int c = 0; c < 3; ++c) sum[c] += weight * color[c];
            }
        }
    }
    const double point = 2.0 * M_PI * M_PI / (double{kSteps * kSteps} * image.width * image.height);
    const Color& tint  = SkyLight.color;
    return {static_cast<float>(sum[0] * point) * tint.r, static_cast<float>(sum[1] * point) * tint.g,
            static_cast<float>(sum[2] * point) * tint.b};
}

/// Compares drawn irradiance with that of the picture for planes of several orientations. Each drawn direction stands for
/// an equal part of the sphere, which is not quite the part that it has: corrected for that, the two agree within 5 standard
/// errors and `picture_error`, the relative error of reading the picture at the cells only. Uncorrected, they agree within
/// the spread of the cells.
void ExpectIrradiance(double picture_error)
{
    constexpr int kDraws = 1 << 18;
    for (const Vector axis :
         {Vector{0, 0, 1}, Vector{1, 0, 0}, Vector{0, -1, 0}, Vector{-1, 2, 0.5f}, Vector{0.3f, -0.2f, -1}}) {
        const Vector normal = Normalized(axis);
        double       sum = 0.0, corrected = 0.0, squares = 0.0;
        for (int i = 0; i < kDraws; ++i) {
            const auto [first, second] = Hammersley(i, kDraws);
            const SkySample sample     = SampleSky(first, second);
            const float     cosine     = Dot(sample.direction, normal);
            if (!(cosine > 0.0f)) continue;
            const double value = Mean(sample.radiance) * cosine / sample.density;
            sum += value;
            corrected += value * CellSize(sample.direction);
            squares += value * value;
        }
        const double exact = Mean(IrradianceOfPicture(SkyLight.image, normal));
        const double error = 5.0 * std::sqrt(squares) / kDraws + picture_error * exact;
        EXPECT_NEAR(corrected / kDraws, exact, error);
        EXPECT_GT(sum / kDraws, exact / kLargestCell - error);
        EXPECT_LT(sum / kDraws, exact / kSmallestCell + error);
    }
}

TEST_F(Sky, DrawnIrradianceIsThatOfThePicture)
{
    FillSamplingTables();
    double least = 10.0, most = 0.0;
    ForEachCell([&](const SkyCellIndex& cell) {
        const double size = CellSize(CubeDirection(cell.face, cell.row, cell.column));
        least             = std::min(least, size);
        most              = std::max(most, size);
    });
    EXPECT_NEAR(least, kSmallestCell, 0.001);
    EXPECT_NEAR(most, kLargestCell, 0.001);

    SkyLight.color = {1.0f, 0.5f, 2.0f};
    SkyLight.north = {1, 2, 3};
    PrepareWith(64, 32, PaintSun);
    ExpectIrradiance(0.005);
}

TEST_F(Sky, DrawnIrradianceIsThatOfPhotographs)
{
    const char* data = std::getenv("HV_TEST_DATA");
    if (!data) GTEST_SKIP() << "HV_TEST_DATA names no folder of pictures";
    FillSamplingTables();
    ImageSearchPaths = {""};
    for (const char* name : {"lebombo_1k.hdr", "venice_sunset_1k.hdr"}) {
        SkyLight.image      = {};
        SkyLight.image.path = std::string(data) + "/env/" + name;
        Prepare();
        ASSERT_TRUE(HasSkyTables()) << name;
        ASSERT_EQ(SkyLight.image.width, 1024);
        ExpectIrradiance(0.02);
    }
}

TEST_F(Sky, WithoutUsableLightNothingIsDrawn)
{
    ImageSearchPaths          = {""};
    SkyLight.image.path       = (folder / "none.hdr").string();
    const std::string report  = Prepare();
    const std::string message = "error :( \timage - " + SkyLight.image.path + "\tcannot be found\n";
    const auto        first   = report.find(message);
    ASSERT_NE(first, std::string::npos);
    EXPECT_NE(report.find(message, first + 1), std::string::npos) << "told at each attempt";
    EXPECT_EQ(SkyLight.sample, 0);
    EXPECT_EQ(SkyLight.photon, 1000000);
    EXPECT_EQ(SkyColor({0, 0, 1}), SkyLight.color);
    EXPECT_FALSE(HasSkyTables());

    SkyLight.sample = 64;
    PrepareWith(4, 2, [](int, int) { return kWhite; });
    EXPECT_EQ(SkyLight.sample, 64);
    SkyLight.color = kWhite * kPresent;
    Prepare();
    EXPECT_FALSE(HasSkyTables());
    EXPECT_EQ(SkyLight.sample + SkyLight.photon, 0);

    SkyLightDefaults();
    PrepareWith(4, 2, [](int, int) { return kWhite; });
    FinalizeSkyLight();
    EXPECT_FALSE(HasSkyTables());
    EXPECT_EQ(SkyDensity({0, 0, 1}), 0.0f);
}

// Half of the picture is damaged, and one face of the cube sees nothing else.
TEST_F(Sky, DamagedTexelsAreNeverDrawn)
{
    const float kOdd[] = {std::numeric_limits<float>::quiet_NaN(), INFINITY, -1e9f, 3e38f};
    SkyLight.color     = {2, 2, 2};
    PrepareWith(64, 32, [&](int x, int y) {
        return y < 16 ? kWhite * kOdd[x % 3] : kWhite * (x == 9 ? kOdd[3] : x == 20 ? kOdd[2] : 1.0f);
    });
    int drawn = 0;
    for (int i = 0; i < 100000; ++i) {
        const auto [first, second] = Hammersley(i, 100000);
        const SkySample sample     = SampleSky(first, second);
        ASSERT_TRUE(sample.density >= 0.0f && std::isfinite(sample.density));
        if (sample.density == 0.0f) continue;
        ASSERT_TRUE(std::isfinite(sample.radiance.g) && sample.radiance.g > 0.0f);
        ++drawn;
    }
    EXPECT_NEAR(drawn, 100000 * 5 / 6, 2);  // what is sound is drawn from all other faces
}

TEST_F(Sky, TheBackdropIsSeenByCameraRaysOnly)
{
    PrepareWith(4, 2, [](int, int) { return kWhite; });
    Paint(SkyLight.backdrop, 4, 2, [](int x, int y) { return Color{static_cast<float>(x), static_cast<float>(y), 9}; });
    SkyLight.color = {0.5f, 0.5f, 0.5f};
    Prepare();
    Cameras.resize(1);
    Cameras[0].width  = 4;
    Cameras[0].height = 2;
    RayRecord ray;
    ray.direction = {0, 0, 1};
    ray.thread    = 3;
    PixelSlot[3]  = 4 + 2;
    EXPECT_EQ(SkyRadiance(ray), (Color{2, 1, 9}));  // third pixel of the second row, whatever the colour of the sky
    ray.depth = 1;
    EXPECT_EQ(SkyRadiance(ray), SkyLight.color);
    EXPECT_EQ(SkyColor({0, 0, 1}), SkyLight.color);
}

}  // namespace
}  // namespace hv
