// Whole paths on scenes whose light is known in closed form.

#include "light_scenes.h"
#include "lights/lights.h"
#include "shading/shading.h"
#include "transport/spawn.h"

#include <cmath>
#include <tuple>
#include <utility>

namespace hv {
namespace {

using enum Element;
using enum Material;

// Every ray scattered by a convex body leaves the scene, so under an even sky of 1 the body shows its albedo: no noise,
// no dependence on sample count. A lost cosine, a wrong 1/pi or a double count all show here.
TEST(Transport, ConvexBodyUnderEvenSkyShowsItsAlbedo)
{
    for (const int frames : {1, 3, 16})
        for (const float albedo : {0.25f, 0.5f, 0.9f}) {
            TestScene scene(frames);
            scene.AddBall(scene.AddShader(Lambertian, {albedo, 0.5f * albedo, 1.0f}));
            ExpectColor(scene.RenderPixel(), {albedo, 0.5f * albedo, 1.0f}, 1e-5f);
        }
}

TEST(Transport, OneSurfaceHeadOn)
{
    static const auto screen = [](TestScene& scene, Element element, Color color, Material material = Conductor) {
        const int shader = scene.AddShader(element, color, material, material == Dielectric ? 1.5f : 1.0f);
        scene.AddScreen(shader);
        return shader;
    };
    const struct {
        const char* name;
        Color       expected;
        void (*build)(TestScene&);
    } cases[] = {
        {"a conductor of ior 1 is black", kBlack, [](TestScene& scene) { screen(scene, Specular, kWhite); }},
        {"emission through its interface, 0.96 for n = 1.5",
         {1.92f, 2.88f, 3.84f},
         [](TestScene& scene) {
             hvSetSurfaceSideness(screen(scene, Emissive, {2, 3, 4}, Dielectric), 0, Sideness::Face);
         }},
        {"a sheet passes and reflects, scaled once",
         {0.72f, 0.72f, 0.12f},
         [](TestScene& scene) {
             scene.SetSlot(screen(scene, Lambertian, {0.5f, 0.25f, 0.0f}, Dielectric), Transmissive,
                           {0.25f, 0.5f, 0.125f});
         }},
        {"diffusion without a probe, which sees no particles, serves the vertex", kWhite * 0.5f,
         [](TestScene& scene) {
             const int wax = scene.AddShader(Lambertian, kWhite * 0.5f);
             scene.SetSlot(wax, Diffusion, {0.04f, 0.01f, 0.0025f});
             scene.AddBall(wax);
         }},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        TestScene scene;
        test.build(scene);
        ExpectColor(scene.RenderPixel(), test.expected, 1e-5f);
    }
}

// Reflecting metals, smooth and rough, under an even sky of 1. The samples are many enough that no frame loses all its
// branches below the surface.
TEST(Transport, ConductorShowsSchlicksValue)
{
    for (const Element element : {Specular, Glossy})
        for (const float degrees : {0.0f, 45.0f, 60.0f, 75.0f}) {
            TestScene   scene(16);
            const float angle = degrees * kRadians;
            hvSetRendererSample(4096);
            scene.LookFrom({2 * std::sin(angle), -2 * std::cos(angle), 0}, {0, 0, 0}, 0.01f);
            const int metal = scene.AddShader(element, {1.0f, 0.5f, 0.0f}, Conductor, 2.5f);
            scene.SetSlot(metal, Roughness, {0.1f, 0.1f, 0.1f});
            scene.AddScreen(metal);
            const float expected = Schlick(2.5f, std::cos(angle));
            ExpectColor(scene.RenderPixel(), {expected, 0.5f * expected, 0.0f}, 2e-5f);
        }
}

// Glass takes nothing away: reflected and refracted light add up to the even sky that they come from. The tolerance is
// for paths that end at the cut-off.
TEST(Transport, GlassUnderEvenSkyIsInvisible)
{
    const std::pair<Element, Material> cases[] = {
        {Specular, Dielectric}, {Specular, ThinDielectric}, {Glossy, Dielectric}};
    for (const auto& [element, material] : cases) {
        TestScene scene(16);
        scene.LookFrom({1, -2, 0.5f}, {0, 0, 0}, 0.01f);
        const int glass = scene.AddShader(element, kWhite, material, 1.5f);
        scene.SetSlot(glass, Roughness, {0.05f, 0.05f, 0.05f});
        hvSetRendererRayDepth(64);
        // A rough body would scatter more often than the bounce limit allows, so it is one interface.
        if (element == Specular && material == Dielectric)
            scene.AddBox(glass, {-1, -1, -1}, {1, 1, 1});
        else
            scene.AddScreen(glass);
        ExpectColor(scene.RenderPixel(), kWhite, 4e-3f);
    }
}

// A block of n = 1.5 seen head-on reflects 0.04 at each face. Its orders by depth: the front face; straight through;
// and once around inside.
TEST(Transport, GlassBlockAddsOneOrderADepth)
{
    const float orders[] = {0.0f, 0.04f, 0.96f * 0.96f, 0.96f * 0.04f * 0.96f};
    float       expected = 0.0f;
    for (int depth = 1; depth <= 4; ++depth) {
        expected += orders[depth - 1];
        TestScene scene;
        hvSetRendererRayDepth(depth);
        scene.AddBox(scene.AddShader(Specular, kWhite, Dielectric, 1.5f), {-1, -1, -1}, {1, 1, 1});
        ExpectColor(scene.RenderPixel(), kWhite * expected, 1e-5f);
    }
}

// A closed box whose inner faces all emit 1 and have albedo a shows 1 + a + ... + a^n from inside after n bounces: any
// leak, lost branch or double count shows. Virtual lights count in full while nothing samples them.
TEST(Transport, AnEmittingBoxAddsOnePowerOfItsAlbedoABounce)
{
    const struct {
        int bounce, depth, bounces_expected;
    } cases[] = {{1, 8, 1}, {0, 8, 1}, {3, 8, 3}, {6, 3, 2}, {6, 1, 0}, {6, 0, 0}, {9, 255, 9}};
    for (const auto& test : cases)
        for (const bool virtual_light : {false, true}) {
            TestScene   scene(2);
            const Color albedo{0.5f, 0.75f, 1.0f};
            hvSetRendererBounce(test.bounce);
            hvSetRendererRayDepth(test.depth);
            hvSetGeometryLightSample(virtual_light ? 0 : 16);  // either alone leaves the emission to rays
            hvSetSkyLightColor(0, 0, 0);
            const int wall = scene.AddShader(Lambertian, albedo);
            scene.SetSlot(wall, Emissive, kWhite);
            hvSetSurfaceSideness(wall, 0, Sideness::Face);
            hvSetSurfaceVirtualLight(wall, 0, virtual_light);
            scene.AddBox(wall, {3, 3, 3}, {-3, -3, -3});  // swapped corners: the faces look inwards
            Color expected = kBlack, power = kWhite;
            for (int n = 0; n <= test.bounces_expected; ++n, power *= albedo) expected += power;
            ExpectColor(scene.RenderPixel(), expected, 1e-4f);
        }
}

// Under an even sky it does not matter where light enters a convex body: only the weight of a channel does, the ratio
// of its deviation to the widest.
TEST(Transport, DiffusionWeighsChannelsByTheirSpread)
{
    TestScene scene(4);
    const int wax = scene.AddShader(Lambertian, kWhite * 0.5f);
    scene.SetSlot(wax, Diffusion, {0.04f, 0.01f, 0.0025f});
    scene.AddBox(wax, {-1, -1, -1}, {1, 1, 1});
    ExpectColor(scene.RenderPixel(), {0.5f, 0.25f, 0.125f}, 1e-4f);
}

// The refraction state alone tells inside from outside: rounding must not keep a path inside a body that it has left.
TEST(Transport, LeavingABodyRestoresTheRefractionState)
{
    for (int i = 0; i <= 2000; ++i) {
        const float n = 1.001f + 0.001f * static_cast<float>(i);
        RayRecord   ray;
        ray.refraction = RefractionBehind(ray, 1.0f / n);
        EXPECT_LT(ray.refraction, 0.9995f);
        EXPECT_EQ(RefractionBehind(ray, n), 1.0f) << n;
    }
}

// What is left to photons depends on the element before a row of mirrors or lenses. Each scattering takes new numbers.
TEST(Transport, ChildrenRememberTheLastOtherElement)
{
    using E                                  = ElementCode;
    const std::tuple<E, E, unsigned> steps[] = {{E::Lambertian, E::SpecularReflection, 2},
                                                {E::SpecularRefraction, E::Lambertian, 2},
                                                {E::SpecularRefraction, E::Lambertian, 2},
                                                {E::GlossyReflection, E::SpecularRefraction, 4}};
    const SurfacePoint               point;
    RayRecord                        ray;
    for (const auto& [element, before, dimension] : steps) {
        ray = SpawnChild(ray, point, element, {0, 0, 1}, kWhite);
        EXPECT_EQ(ray.element_before, before);
        EXPECT_EQ(ray.dimension, dimension);
    }
}

// The elements of a first vertex and its emission add up to the picture; other channels show the vertex itself.
TEST(Transport, ElementAOVsAddUpToThePicture)
{
    TestScene     scene(8);
    const Channel elements[] = {Channel::Lambertian, Channel::Transmissive, Channel::Glossy, Channel::Specular,
                                Channel::Emissive};
    const std::pair<Channel, Color> others[] = {
        {Channel::LambertianColor, {0.3f, 0.2f, 0.1f}}, {Channel::TransmissiveColor, {0.1f, 0.2f, 0.3f}},
        {Channel::GlossyColor, {0.4f, 0.2f, 0.2f}},     {Channel::SpecularColor, {0.2f, 0.2f, 0.4f}},
        {Channel::Normal, {0.5f, 0.0f, 0.5f}},          {Channel::Depth, kWhite * 2.0f}};
    for (const Channel channel : elements) hvSetCameraAOVChannel(0, hvAddCameraAOV(0), channel);
    for (const auto& other : others) hvSetCameraAOVChannel(0, hvAddCameraAOV(0), other.first);
    const int body = scene.AddShader(Lambertian, {0.3f, 0.2f, 0.1f}, Conductor, 3.0f);
    scene.SetSlot(body, Transmissive, {0.1f, 0.2f, 0.3f});
    scene.SetSlot(body, Glossy, {0.4f, 0.2f, 0.2f});
    scene.SetSlot(body, Specular, {0.2f, 0.2f, 0.4f});
    scene.SetSlot(body, Roughness, kWhite * 0.2f);
    scene.SetSlot(body, Emissive, {0.0f, 0.1f, 0.2f});
    scene.AddScreen(body);
    const Color seen = scene.RenderPixel();
    Color       sum;
    for (int aov = 1; aov <= 11; ++aov) {
        hvxImage image{};
        ASSERT_TRUE(hvxGetCameraAOV(0, aov, &image));
        const Color share{image.pixels[0], image.pixels[1], image.pixels[2]};
        EXPECT_GT(MaxChannel(share), 0.05f);
        if (aov <= 5) sum += share;
        if (aov > 5) ExpectColor(share, others[aov - 6].second, 1e-5f);
    }
    ExpectColor(sum, seen, 1e-5f);
}

}  // namespace
}  // namespace hv
