// Light of a sky picture on surfaces, as the two sides of its estimator weigh it: sums over the cells that directions
// are drawn from, and over the sphere that scattered rays go out to. What the cells hold is the matter of test_sky.

#include "light_scenes.h"
#include "lights/light.h"
#include "lights/lights.h"
#include "lights/sky_tables.h"
#include "scene_files.h"

#include <functional>

namespace hv {
namespace {

using enum Element;
using enum Material;

constexpr int    kCells = 6 * 256 * 256;
constexpr double kCell  = 4.0 * 3.14159265358979 / kCells;  ///< steradians that a cell stands for

/// 6 x 4 pixels that differ by up to 1 : 20 and in colour. Narrower than 8, so that they are never run-length encoded.
std::string PictureFile()
{
    std::string text = "#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n-Y 4 +X 6\n";
    for (int n = 0; n < 24; ++n) {
        int texel[4] = {(37 * n + 20) % 256, 53 * n % 256, (71 * n + 60) % 256, 127 + 5 * n % 4};
        texel[n % 3] |= 128;
        for (const int byte : texel) text += static_cast<char>(byte);
    }
    return text;
}

/// How a surface passes on light: the factor of an incoming direction, the lobe's density, and the true one of its
/// rays.
struct Lobe {
    std::function<float(Vector)> factor, density, drawn;
};

Lobe MatteLobe(Vector normal)
{
    const auto cosine = [=](Vector d) { return std::max(0.0f, Dot(d, normal)) * kInvPi; };
    return {cosine, cosine, cosine};
}

/// Seen head-on. Half vectors are drawn with exp(-tan^2 / r^2) / (pi r^2 cos^3), of which the lobe is an approximation.
Lobe GlossyLobe(Vector normal, float roughness)
{
    const auto ward  = [=](Vector d) { return Dot(d, normal) > 0 ? Ward(normal, d, normal, roughness) : 0.0f; };
    const auto drawn = [=](Vector d) {
        const Vector half = Normalized(d + normal);
        return 4 * Dot(half, normal) * Dot(half, d) * ward(d);
    };
    return {[=](Vector d) { return 4 * Dot(d, normal) * ward(d); }, ward, drawn};
}

using Weigh = std::function<double(double p, double f)>;  // of the density of drawing and that of the lobe

/// Light of the sky over a lobe, after preparation: drawn directions, each cell with the probability density x kCell,
/// and scattered rays that leave the scene, as many places spread evenly along a spiral.
Color Shown(const Lobe& lobe, const Weigh& drawn_weight, const Weigh& missed_weight)
{
    double     sum[3] = {};
    const auto add    = [&](Vector d, double factor) {
        for (int c = 0; c < 3; ++c) sum[c] += SkyColor(d)[c] * factor * kCell;
    };
    for (int i = 0; i < kCells; ++i) {
        const Vector cell = CubeDirection(i / 65536, i / 256 % 256, i % 256);
        if (const float f = lobe.density(cell); f > 0) add(cell, lobe.factor(cell) * drawn_weight(SkyDensity(cell), f));
        const float  z = 1 - (2 * static_cast<float>(i) + 1) / kCells, ring = std::sqrt(1 - z * z);
        const double turn = 2.39996322972865 * i;  // the golden angle
        const Vector place{ring * static_cast<float>(std::cos(turn)), ring * static_cast<float>(std::sin(turn)), z};
        if (const float f = lobe.density(place); f > 0)
            add(place, lobe.drawn(place) * missed_weight(SkyDensity(place), f));
    }
    return {static_cast<float>(sum[0]), static_cast<float>(sum[1]), static_cast<float>(sum[2])};
}

/// Of the brightest channel. Over seeds, means of 16384 samples scatter by less than 0.1 %.
constexpr float kNoise = 3e-3f;

struct SkyPicture : SceneTest {
    /// Gives a scene the picture as its sky.
    void Hang(int samples) const
    {
        hvSetSkyLightImage(Write("sky.hdr", PictureFile()).c_str());
        hvSetSkyLightColor(1.0f, 0.5f, 2.0f);
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

// The written weights: A / (A + 0.5 M f) for drawn directions and f R / (S p + f R) for missed rays at the first
// vertex. They do not add up to one, and a drawn cell stands for 4 pi / 393216 whatever its size: what is seen is the
// sum of two sums. Without samples the misses count in full.
TEST_F(SkyPicture, LightsPlanesByTheWrittenWeights)
{
    const struct {
        Element element;
        Vector  normal;
        int     samples, rays;
    } cases[] = {{Lambertian, {1, 2, 0.5f}, 16384, 4096},  {Lambertian, {-1, 0.3f, 0.8f}, 4096, 16384},
                 {Lambertian, {0.1f, 0.2f, -1}, 0, 65536}, {Transmissive, {-0.5f, -1, -0.5f}, 16384, 16384},
                 {Glossy, {1, -1, 0.4f}, 16384, 16384},    {Glossy, {-1, 0.2f, -0.6f}, 1024, 16384}};
    for (const auto& test : cases) {
        SCOPED_TRACE(&test - cases);
        const double s = test.samples, m = test.rays;
        const Vector normal = Normalized(test.normal);
        DarkScene    scene;
        Hang(test.samples);
        hvSetRendererSample(test.rays);
        const int surface = scene.AddShader(test.element, kWhite, Conductor, test.element == Glossy ? 3.0f : 1.0f);
        scene.SetSlot(surface, Roughness, kWhite * 0.25f);
        hvSetShaderSmoothAngle(surface, 0);  // a smoothed normal is rounded to bytes
        AddPlane(scene, surface, normal);
        const Color seen     = scene.RenderPixel();
        const Lobe  lobe     = test.element == Glossy ? GlossyLobe(normal, 0.25f)
                                                      : MatteLobe(test.element == Lambertian ? normal : -normal);
        const Color expected = Shown(
            lobe, [=](double p, double f) { return s * p / (s * p + 0.5 * m * f); },
            [=](double p, double f) { return f * m / (s * p + f * m); });
        const float reflected = test.element == Glossy ? Schlick(3.0f, 1.0f) : 1.0f;
        ExpectColor(seen, expected * reflected, kNoise * MaxChannel(expected) * reflected);
    }
}

// After a bounce the weights are others: p / (S p + 0.5 f), and f / (p + f) for the miss behind it. A sheet without
// end, lit from behind, shines alike everywhere: the matte plane before it shows the light of that second vertex.
TEST_F(SkyPicture, LightsLaterVerticesByOtherWeights)
{
    for (const double s : {1.0, 4.0}) {
        DarkScene scene;
        Hang(static_cast<int>(s));
        hvSetRendererSample(65536);
        hvSetRendererBounce(2);
        scene.AddScreen(scene.AddShader(Lambertian, kWhite), 0, 1e5f);
        scene.AddScreen(scene.AddShader(Transmissive, kWhite), -3, 1e5f);
        const Color seen     = scene.RenderPixel();
        const Color expected = Shown(
            MatteLobe({0, -1, 0}), [=](double p, double f) { return p / (s * p + 0.5 * f); },
            [](double p, double f) { return f / (p + f); });
        ExpectColor(seen, expected, kNoise * MaxChannel(expected));
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
            const Color seen = scene.RenderPixel();
            ExpectColor(seen, SkyColor(Normalized(axis)), 1e-4f);
        }
}

// A list of linked shaders hides the picture from all that is not linked. AOVs of the sky take drawn light by lobe, but
// every miss whatever its lobe: two of them count the misses twice.
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
}

}  // namespace
}  // namespace hv
