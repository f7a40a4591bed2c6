// Whole paths on scenes whose light is known in closed form.

#include "lights/lights.h"
#include "scene_fixture.h"
#include "shading/shading.h"
#include "transport/spawn.h"

#include <cmath>

namespace hv {
namespace {

float Schlick(float ior, float cosine)
{
    const float r0 = std::pow((ior - 1.0f) / (ior + 1.0f), 2.0f);
    return r0 + (1.0f - r0) * std::pow(1.0f - cosine, 5.0f);
}

TEST(Transport, AnEmptySceneShowsTheSky)
{
    TestScene scene;
    hvSetSkyLightColor(1, 2, 3);
    ExpectColor(scene.RenderPixel(), {1, 2, 3}, 0.0f);
}

// Every ray scattered by a convex body leaves the scene, so under an even sky of 1 the body shows its albedo: no noise, no
// dependence on sample count. A lost cosine, a wrong 1/pi or a double count all show here.
TEST(Transport, ConvexBodyUnderEvenSkyShowsItsAlbedo)
{
    for (const int frames : {1, 3, 16})
        for (const float albedo : {0.25f, 0.5f, 0.9f}) {
            TestScene scene(frames);
            scene.AddBall(scene.AddShader(Element::Lambertian, {albedo, 0.5f * albedo, 1.0f}));
            ExpectColor(scene.RenderPixel(), {albedo, 0.5f * albedo, 1.0f}, 1e-5f);
        }
}

TEST(Transport, ClosedMeshUnderEvenSkyShowsItsAlbedoOrTheSky)
{
    TestScene   scene(8, 16, 16);
    const Color albedo{0.8f, 0.4f, 0.2f};
    scene.LookFrom({3, -4, 5}, {0, 0, 0}, 40);
    scene.AddBox(scene.AddShader(Element::Lambertian, albedo), {-1, -1, -1}, {1, 1, 1});
    int body_pixels = 0, sky_pixels = 0;
    for (const Color pixel : scene.Render()) {
        // At the outline a pixel holds both, in the same ratio in every channel.
        const float share = (1.0f - pixel.r) / (1.0f - albedo.r);
        ExpectColor(pixel, kWhite * (1.0f - share) + albedo * share, 1e-5f);
        body_pixels += share > 0.9999f;
        sky_pixels += share < 0.0001f;
    }
    EXPECT_GT(body_pixels, 40);
    EXPECT_GT(sky_pixels, 20);
}

// Light that passes an interface is scaled by what the interface lets through, 0.96 head-on for n = 1.5, and by nothing
// twice.
TEST(Transport, TranslucentSheetPassesAndReflects)
{
    for (const float ior : {1.0f, 1.5f}) {
        TestScene scene;
        const int sheet = scene.AddShader(Element::Lambertian, {0.5f, 0.25f, 0.0f}, Material::Dielectric, ior);
        scene.SetSlot(sheet, Element::Transmissive, {0.25f, 0.5f, 0.125f});
        scene.AddScreen(sheet);
        ExpectColor(scene.RenderPixel(), Color{0.75f, 0.75f, 0.125f} * (1.0f - Schlick(ior, 1.0f)), 1e-5f);
    }
}

// Reflecting metals, smooth and rough, under an even sky of 1. The samples are many enough that no frame loses all its
// branches below the surface.
TEST(Transport, ConductorShowsSchlicksValue)
{
    for (const Element element : {Element::Specular, Element::Glossy})
        for (const float degrees : {0.0f, 45.0f, 60.0f, 75.0f}) {
            TestScene   scene(16);
            const float angle = degrees * kRadians;
            hvSetRendererSample(4096);
            scene.LookFrom({2 * std::sin(angle), -2 * std::cos(angle), 0}, {0, 0, 0}, 0.01f);
            const int metal = scene.AddShader(element, {1.0f, 0.5f, 0.0f}, Material::Conductor, 2.5f);
            scene.SetSlot(metal, Element::Roughness, {0.1f, 0.1f, 0.1f});
            scene.AddScreen(metal);
            const float expected = Schlick(2.5f, std::cos(angle));
            ExpectColor(scene.RenderPixel(), {expected, 0.5f * expected, 0.0f}, 2e-5f);
        }
}

TEST(Transport, ConductorOfIorOneIsBlack)
{
    TestScene scene;
    scene.AddScreen(scene.AddShader(Element::Specular, kWhite));
    ExpectColor(scene.RenderPixel(), kBlack, 0.0f);
}

// Glass takes nothing away: reflected and refracted light add up to the even sky that they come from. The tolerance is
// for paths that end at the cut-off.
TEST(Transport, GlassUnderEvenSkyIsInvisible)
{
    const struct {
        Element  element;
        Material material;
    } cases[] = {{Element::Specular, Material::Dielectric},
                 {Element::Specular, Material::ThinDielectric},
                 {Element::Glossy, Material::Dielectric}};
    for (const auto& test : cases) {
        TestScene scene(16);
        scene.LookFrom({1, -2, 0.5f}, {0, 0, 0}, 0.01f);
        const int glass = scene.AddShader(test.element, kWhite, test.material, 1.5f);
        scene.SetSlot(glass, Element::Roughness, {0.05f, 0.05f, 0.05f});
        hvSetRendererRayDepth(64);
        // A rough body would scatter more often than the bounce limit allows, so it is one interface.
        if (test.element == Element::Specular && test.material == Material::Dielectric)
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
        scene.AddBox(scene.AddShader(Element::Specular, kWhite, Material::Dielectric, 1.5f), {-1, -1, -1}, {1, 1, 1});
        ExpectColor(scene.RenderPixel(), kWhite * expected, 1e-5f);
    }
}

TEST(Transport, ThinSheetLetsThePictureBehindThrough)
{
    TestScene scene;
    scene.AddScreen(scene.AddShader(Element::Specular, {1.0f, 0.5f, 0.25f}, Material::ThinDielectric, 1.5f), -1.0f);
    scene.AddScreen(scene.AddShader(Element::Emissive, {2, 4, 8}));
    hvSetSkyLightColor(0.5f, 0.5f, 0.5f);
    // 2 F / (1 + F) of F = 0.04 is reflected.
    const float reflected = 0.08f / 1.04f, passed = 1 - reflected;
    const Color light{0.5f * reflected + 2 * passed, 0.5f * reflected + 4 * passed, 0.5f * reflected + 8 * passed};
    ExpectColor(scene.RenderPixel(), light * Color{1.0f, 0.5f, 0.25f}, 1e-5f);
}

TEST(Transport, EmissionIsSeenOnItsSideThroughItsInterface)
{
    for (const Sideness side : {Sideness::Face, Sideness::Back}) {
        TestScene scene;
        const int lamp = scene.AddShader(Element::Emissive, {2, 3, 4}, Material::Dielectric, 1.5f);
        hvSetSurfaceSideness(lamp, 0, side);
        scene.AddScreen(lamp);
        ExpectColor(scene.RenderPixel(), side == Sideness::Face ? Color{1.92f, 2.88f, 3.84f} : kBlack, 1e-5f);
    }
}

// Inside a closed box of albedo a that emits 1 everywhere, a path of n bounces brings 1 + a + ... + a^n.
TEST(Transport, PathsEndAtTheBounceLimitAndAtTheDepthLimit)
{
    const struct {
        int bounce, depth, bounces_expected;
    } cases[] = {{1, 8, 1}, {0, 8, 1}, {3, 8, 3}, {6, 3, 2}, {6, 1, 0}, {6, 0, 0}, {9, 255, 9}};
    for (const auto& test : cases) {
        TestScene scene(2);
        hvSetRendererBounce(test.bounce);
        hvSetRendererRayDepth(test.depth);
        hvSetSkyLightColor(1000, 1000, 1000);  // a leak would show
        const int wall = scene.AddShader(Element::Lambertian, {0.5f, 0.75f, 1.0f});
        scene.SetSlot(wall, Element::Emissive, kWhite);
        scene.AddBox(wall, {-3, -3, -3}, {3, 3, 3});
        Color expected = kBlack, power = kWhite;
        for (int n = 0; n <= test.bounces_expected; ++n, power *= Color{0.5f, 0.75f, 1.0f}) expected += power;
        ExpectColor(scene.RenderPixel(), expected, 1e-4f);
    }
}

// Between two mirrors a path goes on as deep as it may: it has met 255 of them when it ends. Each lets through 1 - F of its
// own light and reflects F, so that N of them add up to 1 - F^N.
TEST(Transport, EndlessReflectionsEndAtDepth255)
{
    TestScene scene(1);
    hvSetRendererRayDepth(1 << 30);
    const int mirror = scene.AddShader(Element::Specular, kWhite, Material::Conductor, 200.0f);
    scene.SetSlot(mirror, Element::Emissive, kWhite);
    scene.AddScreen(mirror);
    scene.AddScreen(mirror, -3.0f);
    const float expected = 1.0f - std::pow(Schlick(200.0f, 1.0f), 255.0f);
    ExpectColor(scene.RenderPixel(), kWhite * expected, 2e-4f);
}

TEST(Transport, MediumLeavesItsColourPerMetre)
{
    TestScene scene;
    SkyLight.volume_shader.transmittance = {0.5f, 1.0f, 0.0f};
    scene.AddScreen(scene.AddShader(Element::Emissive, kWhite));
    ExpectColor(scene.RenderPixel(), {0.25f, 1.0f, 0.0f}, 1e-5f);
}

// The segment inside the block is dimmed by the block's own medium; the way to the sky never is.
TEST(Transport, BodiesAreFilledWithTheirMedium)
{
    TestScene scene;
    hvSetRendererRayDepth(3);
    const int glass = scene.AddShader(Element::Specular, kWhite, Material::Dielectric, 1.5f);
    Shaders[static_cast<std::size_t>(glass)].volume_shader.transmittance = {0.5f, 1.0f, 0.1f};
    scene.AddBox(glass, {-1, -1, -1}, {1, 1, 1});
    const float straight = 0.96f * 0.96f;
    ExpectColor(scene.RenderPixel(), {0.04f + straight * 0.25f, 0.04f + straight, 0.04f + straight * 0.01f}, 1e-5f);
}

TEST(Transport, WindowShowsTheSkyBehindIt)
{
    TestScene scene;
    hvSetSkyLightColor(3, 2, 1);
    const int window                                           = scene.AddShader(Element::Emissive, kBlack);
    Shaders[static_cast<std::size_t>(window)].layers[0].window = true;
    scene.AddScreen(window);
    ExpectColor(scene.RenderPixel(), {3, 2, 1}, 1e-6f);
}

// A virtual light counts in full while nothing samples it, whatever its sample count asks for.
TEST(Transport, EmittersLightASceneThroughTheRaysThatFindThem)
{
    for (const bool virtual_light : {false, true}) {
        TestScene scene(2);
        hvSetGeometryLightSample(16);
        hvSetSkyLightColor(0, 0, 0);
        const int wall = scene.AddShader(Element::Lambertian, kWhite * 0.5f);
        scene.SetSlot(wall, Element::Emissive, kWhite);
        hvSetSurfaceVirtualLight(wall, 0, virtual_light);
        scene.AddBox(wall, {-3, -3, -3}, {3, 3, 3});
        ExpectColor(scene.RenderPixel(), kWhite * 1.5f, 1e-5f);
    }
}

TEST(Transport, SkyLightsOnlyTheShadersThatItIsLinkedTo)
{
    for (const bool linked : {true, false}) {
        TestScene scene;
        const int matte = scene.AddShader(Element::Lambertian, kWhite * 0.5f);
        hvSetSkyLightShaderLink(linked ? matte : 0);
        scene.AddBall(matte);
        ExpectColor(scene.RenderPixel(), linked ? kWhite * 0.5f : kBlack, 1e-5f);
    }
}

// Under an even sky it does not matter where light enters a convex body: only the weight of a channel does, the ratio of its
// deviation to the widest.
TEST(Transport, DiffusionWeighsChannelsByTheirSpread)
{
    TestScene scene(4);
    const int wax = scene.AddShader(Element::Lambertian, kWhite * 0.5f);
    scene.SetSlot(wax, Element::Diffusion, {0.04f, 0.01f, 0.0025f});
    scene.AddBox(wax, {-1, -1, -1}, {1, 1, 1});
    ExpectColor(scene.RenderPixel(), {0.5f, 0.25f, 0.125f}, 1e-4f);
}

// Probes see no particles: the vertex itself serves.
TEST(Transport, DiffusionWithoutAProbeFallsBackToTheVertex)
{
    TestScene scene(1);
    const int wax = scene.AddShader(Element::Lambertian, kWhite * 0.5f);
    scene.SetSlot(wax, Element::Diffusion, {0.04f, 0.01f, 0.0025f});
    scene.AddBall(wax);
    ExpectColor(scene.RenderPixel(), kWhite * 0.5f, 1e-5f);
}

TEST(Transport, FibreShowsItsAlbedo)
{
    TestScene   scene(8);
    const int   part         = hvAddPart(0);
    const float positions[6] = {0, 0, -1, 0, 0, 1}, radii[2] = {0.2f, 0.2f};
    const int   segment = 0;
    hvSetShaderID(0, part, scene.AddShader(Element::Lambertian, {0.5f, 0.25f, 1.0f}));
    hvAddPositions(0, part, 2, positions);
    hvAddRadii(0, part, 2, radii);
    hvAddCylinders(0, part, 1, &segment);
    ExpectColor(scene.RenderPixel(), {0.5f, 0.25f, 1.0f}, 1e-5f);
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
    using enum ElementCode;
    const SurfacePoint point;
    RayRecord          ray;  // specular, as primary rays are
    ray.hit_primitive = 5;
    ray.hit_kind      = 4;
    ray.hit_shader    = 3;
    const struct {
        ElementCode element, before;
        int         diffuse, glossy, specular;
        unsigned    dimension;
    } steps[] = {
        {SpecularRefraction, SpecularReflection, 0, 0, 1, 0}, {SpecularRefraction, SpecularReflection, 0, 0, 2, 0},
        {GlossyReflection, SpecularRefraction, 0, 1, 2, 2},   {Lambertian, GlossyReflection, 1, 1, 2, 4},
        {Lambertian, GlossyReflection, 2, 1, 2, 6},           {SpecularReflection, Lambertian, 2, 1, 3, 6},
        {Transmissive, SpecularReflection, 3, 1, 3, 8}};
    for (const auto& step : steps) {
        RayRecord child = SpawnChild(ray, point, step.element, {0, 0, 1}, kWhite);
        EXPECT_EQ(child.element_before, step.before);
        EXPECT_EQ(child.diffuse_bounces, step.diffuse);
        EXPECT_EQ(child.glossy_bounces, step.glossy);
        EXPECT_EQ(child.specular_bounces, step.specular);
        EXPECT_EQ(child.dimension, step.dimension);
        EXPECT_EQ(child.depth, ray.depth + 1);
        EXPECT_EQ(child.from_primitive, 5u);
        EXPECT_EQ(child.from_kind, 4);
        EXPECT_EQ(child.from_shader, 3u);
        EXPECT_EQ(child.hit_kind, kNoKind);
        ray               = child;
        ray.hit_primitive = 5;
        ray.hit_kind      = 4;
        ray.hit_shader    = 3;
    }
}

// When every path ends at the sky, what the sky's AOV collects path by path is the picture itself.
TEST(Transport, SkyAOVCollectsThePicture)
{
    TestScene scene(8);
    hvAddSkyLightAOV();
    const int body = scene.AddShader(Element::Lambertian, {0.5f, 0.25f, 0.125f});
    scene.SetSlot(body, Element::Transmissive, {0.25f, 0.25f, 0.5f});
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
    const int body = scene.AddShader(Element::Lambertian, {0.3f, 0.2f, 0.1f}, Material::Conductor, 3.0f);
    scene.SetSlot(body, Element::Transmissive, {0.1f, 0.2f, 0.3f});
    scene.SetSlot(body, Element::Glossy, {0.4f, 0.2f, 0.2f});
    scene.SetSlot(body, Element::Specular, {0.2f, 0.2f, 0.4f});
    scene.SetSlot(body, Element::Roughness, kWhite * 0.2f);
    scene.SetSlot(body, Element::Emissive, {0.0f, 0.1f, 0.2f});
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
