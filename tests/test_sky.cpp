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

namespace hv {
namespace {

constexpr int    kCellCount = kSkyFaces * kSkyCells * kSkyCells;
constexpr double kMeanCell  = 4.0 * M_PI / kCellCount;  // steradians

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

// Going right from north, an observer meets east, south and west. The picture runs the other way round, from east on
// its left edge over north, west and south; its first row is the zenith.
TEST_F(Sky, ThePictureStandsInTheFrameOfNorthAndZenith)
{
    const struct {
        Vector north, zenith;  ///< as given
        Vector east, ahead, up;
    } frames[]                      = {{{0, 1, 0}, {0, 0, 1}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}},
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
            const Vector d = frame.east * (is_east ? 1.0f : -1.0f) + frame.ahead * (is_north ? 1.0f : -1.0f) +
                             frame.up * (is_up ? 1.0f : -1.0f);
            EXPECT_EQ(SkyColor(Normalized(d)), octant(kQuadrantOf[is_north][is_east], is_up) * SkyLight.color)
                << corner;
        }
    }
}

// The grid point that is found is no farther than half the diagonal of a cell, across the edges of faces too, but for
// the two edges without grid points: there the next line is up to a step and a half away.
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

/// Draws have the density and the radiance of their direction, and each over its density they add up to the irradiance
/// of all cells, of which each stands for the same solid angle. A face is drawn as often as any other, and its cells in
/// proportion to their brightest channel. Where two faces share grid points, a direction cannot
/// tell which face it was drawn from: 511 of 393216 cells.
void ExpectDrawsToFollowTheirDensity()
{
    constexpr int kDraws = 1 << 18;
    double        light = 0.0, all_light = 0.0, all_density = 0.0, squares = 0.0;
    int           twin_count = 0;
    const auto    irradiance = [](Vector d, Color c) { return MaxChannel(c) * (1 + Dot(d, {0.36f, -0.48f, 0.8f})); };
    double        totals[kSkyFaces] = {};
    ForEachCell([&](const SkyCellIndex& cell) {
        totals[cell.face] += MaxChannel(SkyColor(CubeDirection(cell.face, cell.row, cell.column)));
    });
    ForEachCell([&](const SkyCellIndex& cell) {
        const Vector       direction = CubeDirection(cell.face, cell.row, cell.column);
        const SkyCellIndex found     = NearestSkyCell(direction);
        const double       share     = MaxChannel(SkyColor(direction)) / totals[found.face];
        ASSERT_EQ(CubeDirection(found.face, found.row, found.column), direction);
        ASSERT_NEAR(SkyDensity(direction) / (share / 6 / kMeanCell), 1.0, 1e-4);
        all_light += irradiance(direction, SkyColor(direction)) * kMeanCell;
        all_density += SkyDensity(direction) * kMeanCell;
    });
    EXPECT_NEAR(all_density, 1.0, 0.002);
    for (int i = 0; i < kDraws; ++i) {
        const auto [first, second] = Hammersley(i, kDraws);
        const SkySample sample     = SampleSky(first, second);
        twin_count += sample.density != SkyDensity(sample.direction);
        ASSERT_EQ(sample.radiance, SkyColor(sample.direction));
        const double value = irradiance(sample.direction, sample.radiance) / sample.density;
        light += value / kDraws;
        squares += value * value / kDraws;
    }
    EXPECT_LT(twin_count, kDraws / 200);
    EXPECT_NEAR(light, all_light, 5.0 * std::sqrt((squares - light * light) / kDraws) + 1e-3 * all_light);
}

TEST_F(Sky, DrawsFollowTheirDensity)
{
    FillSamplingTables();
    SkyLight.color = {1.0f, 0.5f, 2.0f};
    SkyLight.north = {1, 2, 3};
    PrepareWith(64, 32, PaintSun);
    ExpectDrawsToFollowTheirDensity();

    const char* data = std::getenv("HV_TEST_DATA");
    if (!data) GTEST_SKIP() << "HV_TEST_DATA names no folder of photographs";
    ImageSearchPaths = {""};
    for (const char* name : {"lebombo_1k.hdr", "venice_sunset_1k.hdr"}) {
        SkyLight.image      = {};
        SkyLight.image.path = std::string(data) + "/env/" + name;
        Prepare();
        ASSERT_EQ(SkyLight.image.width, 1024) << name;
        ExpectDrawsToFollowTheirDensity();
    }
}

TEST_F(Sky, WithoutUsableLightNothingIsDrawn)
{
    ImageSearchPaths         = {""};
    SkyLight.image.path      = (folder / "none.hdr").string();
    const std::string report = Prepare();
    EXPECT_NE(report.find("error :( \timage - " + SkyLight.image.path + "\tcannot be found\n"), report.npos);
    EXPECT_EQ(SkyLight.sample, 0);
    EXPECT_EQ(SkyColor({0, 0, 1}), SkyLight.color);
    EXPECT_FALSE(HasSkyTables());

    SkyLight.sample = 64;
    PrepareWith(4, 2, [](int, int) { return kWhite; });
    EXPECT_EQ(SkyLight.sample, 64);
    SkyLight.color = kWhite * kPresent;
    Prepare();
    EXPECT_FALSE(HasSkyTables());
    EXPECT_EQ(SkyLight.sample + SkyLight.photon, 0);
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
