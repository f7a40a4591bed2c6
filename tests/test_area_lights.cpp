// Light of emissive surfaces, sampled and met, against form factors.

#include "light_scenes.h"

#include <vector>

namespace hv {
namespace {

using enum Element;
using enum Material;

/// Budgets of the two ways to an emitter: points sampled on it, and rays that meet it by chance.
struct Budget {
    int points, rays;
};

/// Of the expected value. Over seeds, means scatter by 0.1 to 0.3 % at these budgets.
constexpr float kNoise = 0.01f;

void Spend(const Budget& budget)
{
    hvSetGeometryLightSample(budget.points);
    hvSetRendererSample(budget.rays);
}

/// A parallelogram with its half edges; its front shines unless `sideness` says otherwise.
struct Patch {
    Vector   centre, u, v;
    Color    radiance;
    bool     virtual_light = true;
    Sideness sideness      = Sideness::Face;

    /// Adds it, and returns the light that a white plane through the origin, which looks along -y, shows of it.
    Color AddTo(DarkScene& scene) const
    {
        const auto corners = scene.AddPatch(scene.AddEmitter(radiance, virtual_light, sideness), centre, u, v);
        const bool front   = Dot(Cross(u, v), -centre) > 0;
        if (sideness != Sideness::Both && front != (sideness == Sideness::Face)) return kBlack;
        return radiance * static_cast<float>(FormFactor({}, {0, -1, 0}, corners));
    }
};

// The form factor, whichever way the light is found: the two sides of the estimator weigh each other so that their sum
// counts once, with any radiances, sides and budgets, and with emitters that are never sampled beside those that are.
TEST(GeometryLight, PatchesLightByTheirFormFactor)
{
    const Color  red{4, 1, 0.5f}, blue{0.25f, 0.5f, 1};
    const Vector left{-1, -2.5f, 1}, right{1, -2.5f, 0}, x{0.5f, 0, 0}, z{0, 0, 1};  // z x x looks at the plane
    const struct {
        const char*        name;
        int                least_rays;
        std::vector<Patch> patches;
    } scenes[] = {
        {"facing the plane", 1, {{{0, -3, 0}, z, 2 * x, red}}},
        {"tilted", 1, {{{1.5f, -1.5f, 0.5f}, 0.5f * z, {0.8f, 0.6f, 0}, red}}},
        {"two radiances", 1, {{right, z, x, red}, {left, 0.5f * z, x, blue}}},
        {"one is never sampled", 16384, {{right, z, x, red, false}, {left, z, x, blue}}},
        {"turned away", 1, {{right, x, z, red}}},
        {"seen from its back", 1, {{right, x, z, red, true, Sideness::Back}}},
        {"two-sided", 1, {{right, x, z, red, true, Sideness::Both}, {left, z, x, blue}}},
    };
    for (const auto& test : scenes)
        for (const Budget& budget : {Budget{0, 65536}, Budget{16384, 16384}, Budget{65536, 64}, Budget{1024, 65536}}) {
            if (budget.rays < test.least_rays) continue;  // chance alone finds too little
            SCOPED_TRACE(testing::Message() << test.name << ", points " << budget.points);
            DarkScene scene;
            Spend(budget);
            scene.AddScreen(scene.AddShader(Lambertian, kWhite));
            Color expected;
            for (const Patch& patch : test.patches) expected += patch.AddTo(scene);
            ExpectColor(scene.RenderPixel(), expected, kNoise * MaxChannel(expected));
        }
}

// A glossy plane seen head-on weighs with the lobe's approximate density, which its rays do not quite have: what is
// seen is the sum of both sides over the patch. A sheet shows the emitter behind it as a matte plane shows one before
// it.
TEST(GeometryLight, GlossAndSheetsShowEmitters)
{
    const Vector centre{0.5f, -2, 0.3f};
    for (const Element element : {Glossy, Transmissive})
        for (const Budget& budget : {Budget{0, 65536}, Budget{16384, 65536}, Budget{65536, 1024}}) {
            DarkScene scene;
            Spend(budget);
            const int surface = scene.AddShader(element, kWhite, Conductor, element == Glossy ? 4.0f : 1.0f);
            scene.SetSlot(surface, Roughness, kWhite * 0.3f);
            scene.AddScreen(surface);
            scene.LookFrom({0, element == Glossy ? -2.0f : 2.0f, 0}, {}, 1e-4f);
            scene.AddPatch(scene.AddEmitter(kWhite, true), centre + Vector{0, -0.5f, 0}, {0, 0, 0.5f}, {0.5f, 0, 0});
            const Vector  normal{0, -1, 0};
            const Moments expected = MomentsOf([&](float a, float b) {
                const Vector to = centre + Vector{b - 0.5f, -0.5f, a - 0.5f}, d = Normalized(to);
                const float  d2 = Dot(to, to), cosine = -d.y, solid_angle = cosine / d2, q = d2 / cosine;
                const float  points = static_cast<float>(budget.points), rays = static_cast<float>(budget.rays);
                if (element == Transmissive) return cosine * kInvPi * solid_angle;
                const Vector half = Normalized(d + normal);
                const float  g = Ward(normal, d, normal, 0.3f), drawn = 4 * g * Dot(half, normal) * Dot(half, d);
                const float  both = (cosine * 4 * g * points * q + drawn * rays * g) / (points * q + rays * g);
                return both * solid_angle * Schlick(4.0f, 1.0f);
            });
            ExpectColor(scene.RenderPixel(), kWhite * expected.Value(), kNoise * expected.Value());
        }
}

// Two turned instances, one in the other, hold the two triangles of a square.
TEST(GeometryLight, InstancesShineWhereTheyStand)
{
    const float c = std::cos(0.5f), s = std::sin(0.5f);
    const float inner[4][4]     = {{c, -s, 0, 0.3f}, {s, c, 0, 0}, {0, 0, 1, 0.2f}, {0, 0, 0, 1}};
    const float outer[4][4]     = {{1, 0, 0, 0.4f}, {0, c, -s, -2.5f}, {0, s, c, 0.1f}, {0, 0, 0, 1}};
    const float positions[4][3] = {{-1, 0, -1}, {-1, 0, 1}, {1, 0, 1}, {1, 0, -1}};
    const int   triangles[6]    = {0, 1, 2, 0, 2, 3};
    const auto  placed          = [](const float(&m)[4][4], Vector p) {
        const auto row = [&](int i) { return m[i][0] * p.x + m[i][1] * p.y + m[i][2] * p.z + m[i][3]; };
        return Vector{row(0), row(1), row(2)};
    };
    std::vector<Vector> corners;
    for (const auto& p : positions) corners.push_back(placed(outer, placed(inner, {p[0], p[1], p[2]})));
    const float expected = 2 * static_cast<float>(FormFactor({}, {0, -1, 0}, corners));
    for (const Budget& budget : {Budget{0, 65536}, Budget{8192, 8192}, Budget{65536, 64}}) {
        DarkScene scene;
        Spend(budget);
        scene.AddScreen(scene.AddShader(Lambertian, kWhite));
        const int shape = hvAddObject(), middle = hvAddObject(), part = hvAddPart(shape);
        hvAddPart(middle);  // instances shine from objects that have a part
        hvSetShaderID(shape, part, scene.AddEmitter(kWhite * 2, true));
        hvAddPositions(shape, part, 4, positions[0]);
        hvAddTriangles(shape, part, 2, triangles);
        hvSetInstance(middle, hvAddInstance(middle), shape, inner, -1);
        hvSetInstance(0, hvAddInstance(0), middle, outer, -1);
        ExpectColor(scene.RenderPixel(), kWhite * expected, kNoise * expected);
    }
}

// Inside a closed box whose walls of albedo a all shine 1, n bounces show 1 + a + ... + a^n: first vertices draw many
// points and later ones one, each with weights of its own.
TEST(GeometryLight, ASampledFurnaceAddsOnePowerOfItsAlbedoABounce)
{
    for (const Budget& budget : {Budget{16384, 1024}, Budget{1024, 16384}})
        for (const int bounces : {1, 2, 3}) {
            DarkScene   scene;
            const Color albedo{0.5f, 0.75f, 1.0f};
            Spend(budget);
            hvSetRendererBounce(bounces);
            const int wall = scene.AddEmitter(kWhite, true);
            scene.SetSlot(wall, Lambertian, albedo);
            scene.AddBox(wall, {3, 3, 3}, {-3, -3, -3});  // swapped corners: the faces look inwards
            Color expected = kWhite, power = kWhite;
            for (int n = 0; n < bounces; ++n) expected += power *= albedo;
            ExpectColor(scene.RenderPixel(), expected, kNoise * MaxChannel(expected));
        }
}

// A thin pane is no vertex: the path keeps the density of the surface before it, but measures the way from the pane.
// The two sides then add up to more or less than one, by the ratio of the two squared distances.
TEST(GeometryLight, ThroughAPaneTheMetLightIsWeighedFromThePane)
{
    for (const Budget& budget : {Budget{0, 65536}, Budget{8192, 8192}, Budget{65536, 64}, Budget{4096, 65536}}) {
        DarkScene scene;
        Spend(budget);
        scene.LookFrom({0, -0.5f, 0}, {0, 0, 0}, 1e-4f);
        scene.AddScreen(scene.AddShader(Lambertian, kWhite));
        scene.AddScreen(scene.AddShader(Specular, {1, 0.5f, 0.25f}, ThinDielectric), -1);
        scene.AddPatch(scene.AddEmitter(kWhite, true), {0, -2, 0}, {0, 0, 1}, {1, 0, 0});
        const Moments expected = MomentsOf([&](float a, float b) {
            const Vector to{2 * a - 1, -2, 2 * b - 1};
            const float  d2 = Dot(to, to), cosine = 2 / std::sqrt(d2), f = cosine * kInvPi;
            const float  q = d2 / (cosine * 4), from_pane = q / 4;  // the pane stands half way
            const float  points = static_cast<float>(budget.points), rays = static_cast<float>(budget.rays);
            const float  weight = points * q / (points * q + rays * f) + rays * f / (points * from_pane + rays * f);
            return f * 4 * cosine / d2 * weight;
        });
        ExpectColor(scene.RenderPixel(), Color{1, 0.5f, 0.25f} * expected.Value(), kNoise * expected.Value());
    }
}

// A virtual light that no point on it reaches, met by way of a mirror after a matte surface, is left to photons. Where
// none are cast it counts in full: the form factor of its mirror image.
TEST(GeometryLight, MirroredLightCountsWhereNoPhotonsAreCast)
{
    for (const int points : {0, 256}) {
        DarkScene scene;
        Spend({points, 65536});
        hvSetGeometryLightPhoton(points > 0 ? -1 : 0);
        scene.LookFrom({0, -0.5f, 0}, {0, 0, 0}, 1e-4f);
        scene.AddScreen(scene.AddShader(Lambertian, kWhite));
        scene.AddPatch(scene.AddShader(Specular, kWhite, Conductor, 1e6f), {0, -3, 0}, {0, 0, 20}, {20, 0, 0});
        scene.AddPatch(scene.AddEmitter(kWhite * 2, true), {3, -1, 0}, {1, 0, 0}, {0, 0, 1});  // faces the mirror
        const double image    = FormFactor({}, {0, -1, 0}, {{2, -5, -1}, {4, -5, -1}, {4, -5, 1}, {2, -5, 1}});
        const float  expected = 2 * static_cast<float>(image);
        ExpectColor(scene.RenderPixel(), kWhite * expected, kNoise * expected);
    }
}

// A ball of one particle, a face that is a virtual light by the shader of its instance alone, one in a group without
// parts: no point stands for them, beside a listed emitter that is too far to matter. Rays then bring all of their
// light.
TEST(GeometryLight, WhatNoPointStandsForCountsInFull)
{
    enum class Kind { Ball, Override, Group };
    for (const Kind kind : {Kind::Ball, Kind::Override, Kind::Group}) {
        Color seen[2];
        for (const int points : {0, 64}) {
            DarkScene scene;
            Spend({points, 4096});
            scene.AddScreen(scene.AddShader(Lambertian, kWhite));
            const int lamp = scene.AddEmitter(kWhite, true), dark = scene.AddShader(Lambertian, kBlack);
            scene.AddPatch(lamp, {0, -50, 0}, {0, 0, 0.01f}, {0.01f, 0, 0});
            const int placed = hvAddObject(), part = hvAddPart(placed);
            // Its second face and its ball have numbers that rays which leave the floor see.
            const float corners[] = {-1, -3, -1, -1, -3, 1, 1, -3, 1, 1, -3, -1};
            const int   faces[] = {0, 0, 0, 0, 0, 1, 2, 3}, centre = 0;
            const float radius = 1;
            hvSetShaderID(placed, part, kind == Kind::Override ? dark : lamp);
            hvAddPositions(placed, part, 4, corners);
            if (kind != Kind::Ball) hvAddTetragons(placed, part, 2, faces);
            hvAddRadii(placed, part, 1, &radius);
            if (kind == Kind::Ball) hvAddParticles(placed, part, 1, &centre);
            int target = placed;
            if (kind == Kind::Group) {
                target = hvAddObject();
                hvSetInstance(target, hvAddInstance(target), placed, nullptr, -1);
            }
            hvSetInstance(0, hvAddInstance(0), target, nullptr, kind == Kind::Override ? lamp : -1);
            seen[points > 0] = scene.RenderPixel();
        }
        EXPECT_GT(seen[0].g, 0.02f);
        ExpectColor(seen[1], seen[0], 2 * kNoise * seen[0].g);
    }
}

}  // namespace
}  // namespace hv
