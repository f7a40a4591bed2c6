// Whole paths on scenes whose light is known in closed form.

#include "lights/lights.h"
#include "scene_fixture.h"
#include "shading/shading.h"
#include "transport/spawn.h"

#include <cmath>
#include <utility>

namespace hv {
namespace {

using enum Element;
using enum Material;

float Schlick(float ior, float cosine)
{
    const float r0 = std::pow((ior - 1.0f) / (ior + 1.0f), 2.0f);
    return r0 + (1.0f - r0) * std::pow(1.0f - cosine, 5.0f);
}

Shader& At(int shader) { return Shaders[static_cast<std::size_t>(shader)]; }

// Every ray scattered by a convex body leaves the scene, so under an even sky of 1 the body shows its albedo: no noise, no
// dependence on sample count. A lost cosine, a wrong 1/pi or a double count all show here.
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
        {"sky alone", {1, 2, 3}, [](TestScene&) { hvSetSkyLightColor(1, 2, 3); }},
        {"a conductor of ior 1 is black", kBlack, [](TestScene& scene) { screen(scene, Specular, kWhite); }},
        {"a window shows the sky",
         {3, 2, 1},
         [](TestScene& scene) {
             hvSetSkyLightColor(3, 2, 1);
             At(screen(scene, Emissive, kBlack)).layers[0].window = true;
         }},
        {"emission through its interface, 0.96 for n = 1.5",
         {1.92f, 2.88f, 3.84f},
         [](TestScene& scene) {
             hvSetSurfaceSideness(screen(scene, Emissive, {2, 3, 4}, Dielectric), 0, Sideness::Face);
         }},
        {"emission of the other side", kBlack,
         [](TestScene& scene) { hvSetSurfaceSideness(screen(scene, Emissive, kWhite), 0, Sideness::Back); }},
        {"a sheet passes and reflects, scaled once",
         {0.72f, 0.72f, 0.12f},
         [](TestScene& scene) {
             scene.SetSlot(screen(scene, Lambertian, {0.5f, 0.25f, 0.0f}, Dielectric), Transmissive,
                           {0.25f, 0.5f, 0.125f});
         }},
        {"the medium leaves its colour per metre",
         {0.25f, 1.0f, 0.0f},
         [](TestScene& scene) {
             SkyLight.volume_shader.transmittance = {0.5f, 1.0f, 0.0f};
             screen(scene, Emissive, kWhite);
         }},
        {"the sky lights the shader that it is linked to", kWhite * 0.5f,
         [](TestScene& scene) { hvSetSkyLightShaderLink(screen(scene, Lambertian, kWhite * 0.5f)); }},
        {"the sky lights no other", kBlack,
         [](TestScene& scene) {
             screen(scene, Lambertian, kWhite * 0.5f);
             hvSetSkyLightShaderLink(0);
         }},
        {"diffusion without a probe, which sees no particles, serves the vertex", kWhite * 0.5f,
         [](TestScene& scene) {
             const int wax = scene.AddShader(Lambertian, kWhite * 0.5f);
             scene.SetSlot(wax, Diffusion, {0.04f, 0.01f, 0.0025f});
             scene.AddBall(wax);
         }},
        {"a fibre shows its albedo",
         {0.5f, 0.25f, 1.0f},
         [](TestScene& scene) {
             const int   part         = hvAddPart(0);
             const float positions[6] = {0, 0, -1, 0, 0, 1}, radii[2] = {0.2f, 0.2f};
             const int   segment = 0;
             hvSetShaderID(0, part, scene.AddShader(Lambertian, {0.5f, 0.25f, 1.0f}));
             hvAddPositions(0, part, 2, positions);
             hvAddRadii(0, part, 2, radii);
             hvAddCylinders(0, part, 1, &segment);
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

// A block of n = 1.5 seen head-on reflects 0.04 at each face. Its orders by depth: the front face; straight through; and
// once around inside.
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

TEST(Transport, ThinSheetLetsThePictureBehindThrough)
{
    TestScene scene;
    scene.AddScreen(scene.AddShader(Specular, {1.0f, 0.5f, 0.25f}, ThinDielectric, 1.5f), -1.0f);
    scene.AddScreen(scene.AddShader(Emissive, {2, 4, 8}));
    hvSetSkyLightColor(0.5f, 0.5f, 0.5f);
    // 2 F / (1 + F) of F = 0.04 is reflected.
    const float reflected = 0.08f / 1.04f, passed = 1 - reflected;
    const Color light{0.5f * reflected + 2 * passed, 0.5f * reflected + 4 * passed, 0.5f * reflected + 8 * passed};
    ExpectColor(scene.RenderPixel(), light * Color{1.0f, 0.5f, 0.25f}, 1e-5f);
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

// Between two mirrors a path goes on as deep as it may: it has met 255 of them when it ends. Each lets through 1 - F of its
// own light and reflects F, so that N of them add up to 1 - F^N.
TEST(Transport, EndlessReflectionsEndAtDepth255)
{
    TestScene scene(1);
    hvSetRendererRayDepth(1 << 30);
    const int mirror = scene.AddShader(Specular, kWhite, Conductor, 200.0f);
    scene.SetSlot(mirror, Emissive, kWhite);
    scene.AddScreen(mirror);
    scene.AddScreen(mirror, -3.0f);
    const float expected = 1.0f - std::pow(Schlick(200.0f, 1.0f), 255.0f);
    ExpectColor(scene.RenderPixel(), kWhite * expected, 2e-4f);
}

// The segment inside the block is dimmed by the block's own medium; the way to the sky never is.
TEST(Transport, BodiesAreFilledWithTheirMedium)
{
    TestScene scene;
    hvSetRendererRayDepth(3);
    const int glass                       = scene.AddShader(Specular, kWhite, Dielectric, 1.5f);
    At(glass).volume_shader.transmittance = {0.5f, 1.0f, 0.1f};
    scene.AddBox(glass, {-1, -1, -1}, {1, 1, 1});
    const float straight = 0.96f * 0.96f;
    ExpectColor(scene.RenderPixel(), {0.04f + straight * 0.25f, 0.04f + straight, 0.04f + straight * 0.01f}, 1e-5f);
}

// Under an even sky it does not matter where light enters a convex body: only the weight of a channel does, the ratio of its
// deviation to the widest.
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

TEST(Transport, ChildrenRememberTheLastOtherElement)
{
    using E = ElementCode;
    const SurfacePoint point;
    RayRecord          ray;  // specular, as primary rays are
    const struct {
        ElementCode element, before;
        int         diffuse, glossy, specular;
        unsigned    dimension;
    } steps[] = {{E::SpecularRefraction, E::SpecularReflection, 0, 0, 1, 0},
                 {E::SpecularRefraction, E::SpecularReflection, 0, 0, 2, 0},
                 {E::GlossyReflection, E::SpecularRefraction, 0, 1, 2, 2},
                 {E::Lambertian, E::GlossyReflection, 1, 1, 2, 4},
                 {E::Lambertian, E::GlossyReflection, 2, 1, 2, 6},
                 {E::SpecularReflection, E::Lambertian, 2, 1, 3, 6},
                 {E::Transmissive, E::SpecularReflection, 3, 1, 3, 8}};
    for (const auto& step : steps) {
        RayRecord child = SpawnChild(ray, point, step.element, {0, 0, 1}, kWhite);
        EXPECT_EQ(child.element_before, step.before);
        EXPECT_EQ(child.diffuse_bounces, step.diffuse);
        EXPECT_EQ(child.glossy_bounces, step.glossy);
        EXPECT_EQ(child.specular_bounces, step.specular);
        EXPECT_EQ(child.dimension, step.dimension);
        ray = child;
    }
}

// When every path ends at the sky, what the sky's AOV collects path by path is the picture itself.
TEST(Transport, SkyAOVCollectsThePicture)
{
    TestScene scene(8);
    hvAddSkyLightAOV();
    const int body = scene.AddShader(Lambertian, {0.5f, 0.25f, 0.125f});
    scene.SetSlot(body, Transmissive, {0.25f, 0.25f, 0.5f});
    scene.AddScreen(body);
    const Color seen      = scene.RenderPixel();
    float       pixels[3] = {};
    ReadImagePixel(SkyLightAOVs.back().image, pixels, 0);
    ExpectColor({pixels[0], pixels[1], pixels[2]}, seen, 1e-5f);
    SkyLightAOVs.clear();
}

// The elements of a first vertex and its emission add up to the picture.
TEST(Transport, ElementAOVsAddUpToThePicture)
{
    TestScene     scene(8);
    const Channel channels[] = {Channel::Lambertian, Channel::Transmissive, Channel::Glossy, Channel::Specular,
                                Channel::Emissive};
    for (const Channel channel : channels) hvSetCameraAOVChannel(0, hvAddCameraAOV(0), channel);
    const int body = scene.AddShader(Lambertian, {0.3f, 0.2f, 0.1f}, Conductor, 3.0f);
    scene.SetSlot(body, Transmissive, {0.1f, 0.2f, 0.3f});
    scene.SetSlot(body, Glossy, {0.4f, 0.2f, 0.2f});
    scene.SetSlot(body, Specular, {0.2f, 0.2f, 0.4f});
    scene.SetSlot(body, Roughness, kWhite * 0.2f);
    scene.SetSlot(body, Emissive, {0.0f, 0.1f, 0.2f});
    scene.AddScreen(body);
    const Color seen = scene.RenderPixel();
    Color       sum;
    for (int aov = 1; aov <= 5; ++aov) {
        hvxImage image{};
        ASSERT_TRUE(hvxGetCameraAOV(0, aov, &image));
        const Color share{image.pixels[0], image.pixels[1], image.pixels[2]};
        EXPECT_GT(MaxChannel(share), 0.05f);
        sum += share;
    }
    ExpectColor(sum, seen, 1e-5f);
}

}  // namespace
}  // namespace hv
