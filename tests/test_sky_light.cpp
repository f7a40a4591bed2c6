// Light of a sky picture on surfaces, as the two sides of its estimator weigh it: sums over the cells that directions are
// drawn from, and over the sphere that scattered rays go out to.

#include "light_scenes.h"
#include "lights/light.h"
#include "scene_files.h"

#include <array>
#include <functional>

namespace hv {
namespace {

using enum Element;
using enum Material;

constexpr int    kCells = 256;
constexpr double kCell  = 4.0 * 3.14159265358979 / (6 * kCells * kCells);  ///< steradians that a cell stands for
constexpr Color  kSkyTint{1.0f, 0.5f, 2.0f};

/// A picture of 6 x 4 pixels that differ by up to 1 : 20 and in colour. Narrower than 8, so that its file is never run-length
/// encoded.
struct Picture {
    static constexpr int kWidth = 6, kHeight = 4;

    static std::array<int, 4> Bytes(int x, int y)  // red, green, blue, exponent
    {
        std::array<int, 4> bytes{(37 * x + 91 * y + 20) % 256, (53 * x + 29 * y) % 256, (11 * x + 71 * y + 60) % 256,
                                 127 + (5 * x + 3 * y) % 4};
        bytes[(x + y) % 3] |= 128;
        return bytes;
    }

    static std::string File()
    {
        std::string text = "#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n-Y 4 +X 6\n";
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x)
                for (const int byte : Bytes(x, y)) text += static_cast<char>(byte);
        return text;
    }

    static Color Texel(int x, int y)
    {
        const auto  bytes = Bytes(x % kWidth, y % kHeight);
        const float scale = std::ldexp(1.0f, bytes[3] - 136);
        return Color{static_cast<float>(bytes[0]), static_cast<float>(bytes[1]), static_cast<float>(bytes[2])} * scale;
    }

    /// Seen in a direction with the zenith up and north along +y: the first row is the zenith, and texels stand on whole
    /// numbers.
    static Color Seen(Vector d)
    {
        const float u = 1 - (kPi + std::atan2(d.y, -d.x)) / kTwoPi, v = std::acos(std::clamp(d.z, -1.0f, 1.0f)) / kPi;
        const float x = kWidth * u, y = kHeight * v, s = x - std::floor(x), t = y - std::floor(y);
        const int   i = static_cast<int>(x), j = static_cast<int>(y);
        return ((Texel(i, j) * (1 - s) + Texel(i + 1, j) * s) * (1 - t) +
                (Texel(i, j + 1) * (1 - s) + Texel(i + 1, j + 1) * s) * t) *
               kSkyTint;
    }
};

/// A direction with what the tables say about it.
struct Place {
    Vector direction;
    Color  radiance;
    double density;      ///< per steradian
    double solid_angle;  ///< that the place stands for in a sum over the sphere
};

/// Coordinate of a cube face, -1 to 1, of a warped one.
float Warp(float c)
{
    const float s = std::sin(c * kPi / 6);
    return s / std::sqrt(0.5f - s * s);
}

Vector OnCube(int face, float a, float b)
{
    const Vector faces[] = {{1, b, a}, {-a, b, 1}, {-1, b, -a}, {a, b, -1}, {a, 1, b}, {-a, -1, b}};
    return faces[face];
}

/// The sky by its definition.
struct Sky {
    std::vector<Place> cells;   ///< that directions are drawn from, each for the same solid angle
    std::vector<Place> sphere;  ///< an even cover in other places

    Sky()
    {
        for (int face = 0; face < 6; ++face) {
            double total = 0.0;
            for (int row = 0; row < kCells; ++row)
                for (int column = 0; column < kCells; ++column) {
                    const Vector d     = Normalized(OnCube(face, Warp(Grid(row)), Warp(Grid(column))));
                    const Color  light = Picture::Seen(d);
                    cells.push_back({d, light, MaxChannel(light + kWhite * 1e-8f), kCell});
                    total += cells.back().density;
                }
            for (auto cell = cells.end() - kCells * kCells; cell != cells.end(); ++cell)
                cell->density *= 65536 / (4 * 3.14159265358979) / total;
        }
        for (int face = 0; face < 6; ++face)
            for (int i = 0; i < kCells; ++i)
                for (int j = 0; j < kCells; ++j) AddToSphere(face, i, j);
    }

    static float Grid(int index) { return 1 - static_cast<float>(index) / 128; }

    /// The place between four grid points; as the picture is smooth, any of the four has its density. A step of the warped
    /// coordinate is 0.5 (pi / 6) cos / (0.5 - sin^2)^1.5 of the plain one.
    void AddToSphere(int face, int i, int j)
    {
        const float a = Grid(i) - 1.0f / 256, b = Grid(j) - 1.0f / 256, x = Warp(a), y = Warp(b);
        const auto  step = [](float c) {
            const double s = std::sin(c * kPi / 6);
            return 0.5 * kPi / 6 * std::sqrt(1 - s * s) / std::pow(0.5 - s * s, 1.5) / 128;
        };
        const double square = 1 + x * x + y * y;
        const Vector d      = Normalized(OnCube(face, x, y));
        const Place& cell   = cells[static_cast<std::size_t>((face * kCells + i) * kCells + j)];
        sphere.push_back({d, Picture::Seen(d), cell.density, step(a) * step(b) / std::pow(square, 1.5)});
    }

    static const Sky& Get()
    {
        static const Sky sky;
        return sky;
    }
};

/// How a surface passes on light: the factor of an incoming direction, the lobe's density, and the true one of its rays.
struct Lobe {
    using Function = std::function<float(Vector)>;
    Function factor, density, drawn;
};

Lobe MatteLobe(Vector normal)
{
    const auto cosine = [=](Vector d) { return std::max(0.0f, Dot(d, normal)) * kInvPi; };
    return {cosine, cosine, cosine};
}

/// Seen head-on. Half vectors are drawn with exp(-tan^2 / r^2) / (pi r^2 cos^3), of which the lobe is an approximation.
Lobe GlossyLobe(Vector normal, float roughness)
{
    const auto ward = [=](Vector d) { return Dot(d, normal) > 0 ? Ward(normal, d, normal, roughness) : 0.0f; };
    return {[=](Vector d) { return 4 * Dot(d, normal) * ward(d); }, ward,
            [=](Vector d) {
                const Vector half = Normalized(d + normal);
                return 4 * Dot(half, normal) * Dot(half, d) * ward(d);
            }};
}

using Weigh = std::function<double(double p, double f)>;  // of the density of drawing and that of the lobe

/// Light of the sky over a lobe: drawn directions, each cell with the probability density x kCell, and scattered rays that
/// leave the scene.
Color Shown(const Lobe& lobe, const Weigh& drawn_weight, const Weigh& missed_weight)
{
    double     sum[3] = {};
    const auto add    = [&](const Place& place, double factor) {
        for (int c = 0; c < 3; ++c) sum[c] += place.radiance[c] * factor;
    };
    for (const Place& cell : Sky::Get().cells)
        if (const float f = lobe.density(cell.direction); f > 0)
            add(cell, lobe.factor(cell.direction) * drawn_weight(cell.density, f) * kCell);
    for (const Place& place : Sky::Get().sphere)
        if (const float f = lobe.density(place.direction); f > 0)
            add(place, lobe.drawn(place.direction) * missed_weight(place.density, f) * place.solid_angle);
    return {static_cast<float>(sum[0]), static_cast<float>(sum[1]), static_cast<float>(sum[2])};
}

/// Of the brightest channel. Over seeds, means of 16384 samples scatter by less than 0.1 %.
constexpr float kNoise = 3e-3f;

struct SkyPicture : SceneTest {
    /// Gives a scene the picture as its sky.
    void Hang(int samples) const
    {
        hvSetSkyLightImage(Write("sky.hdr", Picture::File()).c_str());
        hvSetSkyLightColor(kSkyTint.r, kSkyTint.g, kSkyTint.b);
        hvSetSkyLightSample(samples);
    }
    ~SkyPicture() override { SkyLightAOVs.clear(); }
};

/// A plane through the origin that is seen head-on against `normal`.
void AddPlane(DarkScene& scene, int shader, Vector normal)
{
    const Vector u = PerpendicularTo(normal);
    scene.AddPatch(shader, {}, u * 5, Cross(normal, u) * 5);
    scene.LookFrom(normal * 2, {}, 1e-4f);
}

// The written weights: A / (A + 0.5 M f) for drawn directions and f R / (S p + f R) for missed rays at the first vertex. They
// do not add up to one, and a drawn cell stands for 4 pi / 393216 whatever its size: what is seen is the sum of two sums.
// Without samples the misses count in full.
TEST_F(SkyPicture, LightsPlanesByTheWrittenWeights)
{
    const struct {
        Element element;
        Vector  normal;
        int     samples, rays;
    } cases[] = {{Lambertian, {0, -1, 0}, 16384, 16384},      {Lambertian, {1, 2, 0.5f}, 16384, 4096},
                 {Lambertian, {-1, 0.3f, 0.8f}, 4096, 16384}, {Lambertian, {0.1f, 0, 1}, 16384, 16384},
                 {Lambertian, {0.1f, 0.2f, -1}, 0, 65536},    {Transmissive, {-0.5f, -1, -0.5f}, 16384, 16384},
                 {Glossy, {1, -1, 0.4f}, 16384, 16384},       {Glossy, {-1, 0.2f, -0.6f}, 1024, 16384}};
    for (const auto& test : cases) {
        SCOPED_TRACE(&test - cases);
        const double s = test.samples, m = test.rays;
        const Vector normal = Normalized(test.normal);
        DarkScene    scene;
        Hang(test.samples);
        hvSetRendererSample(test.rays);
        const int surface = scene.AddShader(test.element, kWhite, Conductor, test.element == Glossy ? 3.0f : 1.0f);
        scene.SetSlot(surface, Roughness, kWhite * 0.25f);
        AddPlane(scene, surface, normal);
        const Lobe  lobe     = test.element == Glossy ? GlossyLobe(normal, 0.25f)
                                                      : MatteLobe(test.element == Lambertian ? normal : -normal);
        const Color expected = Shown(
            lobe, [=](double p, double f) { return s * p / (s * p + 0.5 * m * f); },
            [=](double p, double f) { return f * m / (s * p + f * m); });
        const float reflected = test.element == Glossy ? Schlick(3.0f, 1.0f) : 1.0f;
        ExpectColor(scene.RenderPixel(), expected * reflected, kNoise * MaxChannel(expected) * reflected);
    }
}

// After a bounce the weights are others: p / (S p + 0.5 f), and f / (p + f) for the miss behind it. A sheet without end, lit
// from behind, shines alike everywhere: the matte plane before it shows the light of that second vertex.
TEST_F(SkyPicture, LightsLaterVerticesByOtherWeights)
{
    for (const double s : {1.0, 4.0}) {
        DarkScene scene;
        Hang(static_cast<int>(s));
        hvSetRendererSample(65536);
        hvSetRendererBounce(2);
        scene.AddScreen(scene.AddShader(Lambertian, kWhite), 0, 1e5f);
        scene.AddScreen(scene.AddShader(Transmissive, kWhite), -3, 1e5f);
        const Color expected = Shown(
            MatteLobe({0, -1, 0}), [=](double p, double f) { return p / (s * p + 0.5 * f); },
            [](double p, double f) { return f / (p + f); });
        ExpectColor(scene.RenderPixel(), expected, kNoise * MaxChannel(expected));
    }
}

// A ray that misses sees the picture, and so does one that meets a window, wherever it looks.
TEST_F(SkyPicture, IsSeenPastTheSceneAndThroughWindows)
{
    for (const Vector axis : {Vector{1, 2, 3}, Vector{-1, 2, -3}, Vector{-2, -3, 0.2f}})
        for (const bool window : {false, true}) {
            DarkScene scene;
            Hang(4);
            scene.LookFrom({}, axis, 1e-4f);
            const int frame                                           = scene.AddShader(Emissive, kBlack);
            Shaders[static_cast<std::size_t>(frame)].layers[0].window = window;
            const Vector across                                       = PerpendicularTo(Normalized(axis));
            scene.AddPatch(frame, axis * (window ? 1.0f : -1.0f), across, Cross(axis, across));
            ExpectColor(scene.RenderPixel(), Picture::Seen(Normalized(axis)), 1e-4f);
        }
}

// A list of linked shaders hides the picture from the camera, which comes from no shader, and from all that is not linked.
// AOVs of the sky take drawn light by lobe, but every miss whatever its lobe: two of them count the misses twice.
TEST_F(SkyPicture, FeedsItsLinksAndItsAOVs)
{
    for (const int linked : {-1, 0, 1}) {
        DarkScene scene(8);
        Hang(64);
        const int sheet = scene.AddShader(Lambertian, {0.5f, 0.25f, 1.0f});
        scene.SetSlot(sheet, Transmissive, {0.25f, 0.5f, 0.125f});
        scene.AddScreen(sheet);
        ASSERT_EQ(sheet, 1);
        if (linked >= 0) hvSetSkyLightShaderLink(linked);
        for (const Channel channel : {Channel::Lambertian, Channel::Transmissive, Channel::Beauty})
            hvSetSkyLightAOVChannel(hvAddSkyLightAOV(), channel);
        const Color seen   = scene.RenderPixel();
        Color       aov[3] = {};
        for (int i = 0; i < 3; ++i) aov[i] = LightPixel(hvxLight::Sky, 0, i);
        ExpectColor(aov[0] + aov[1], seen + aov[2], 1e-5f * MaxChannel(seen));
        EXPECT_EQ(MaxChannel(seen) > 0.1f, linked != 0) << linked;
        EXPECT_EQ(std::min(aov[0].g - aov[2].g, aov[1].g - aov[2].g) > 0.02f, linked != 0) << linked;
        SkyLightAOVs.clear();
    }
    for (const int linked : {-1, 0, 1}) {
        DarkScene scene;
        Hang(64);
        scene.AddShader(Lambertian, kWhite);
        if (linked >= 0) hvSetSkyLightShaderLink(linked);
        hvAddSkyLightAOV();
        const Color expected = linked < 0 ? Picture::Seen({0, 1, 0}) : kBlack;
        ExpectColor(scene.RenderPixel(), expected, 1e-4f);
        ExpectColor(LightPixel(hvxLight::Sky, 0, 0), expected, 1e-4f);  // a primary ray feeds it too
        SkyLightAOVs.clear();
    }
}

}  // namespace
}  // namespace hv
