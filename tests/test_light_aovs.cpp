// What each light does to which shader, and where its share of the picture is collected.

#include "light_scenes.h"
#include "lights/lights.h"
#include "session/console.h"
#include "shading/shading.h"

#include <utility>
#include <vector>

namespace hv {
namespace {

using enum Element;
using enum Material;

constexpr hvxLight kKinds[] = {hvxLight::Sky, hvxLight::Geometry, hvxLight::Point, hvxLight::Parallel};

/// A light of each kind above a screen; the emitter stands behind the camera.
void AddLight(DarkScene& scene, hvxLight kind)
{
    if (kind == hvxLight::Sky) hvSetSkyLightColor(1, 1, 1);
    if (kind == hvxLight::Point) AddPointLight({0, -3, 0}, kWhite);
    if (kind == hvxLight::Parallel) AddParallelLight({0, -1, 0}, kWhite);
    if (kind != hvxLight::Geometry) return;
    hvSetGeometryLightSample(64);
    scene.AddPatch(scene.AddEmitter(kWhite, true), {0, -3, 0}, {0, 0, 1}, {1, 0, 0});
}

void Link(hvxLight kind, int shader)
{
    if (kind == hvxLight::Sky) hvSetSkyLightShaderLink(shader);
    if (kind == hvxLight::Geometry) hvSetGeometryLightShaderLink(shader);
    if (kind == hvxLight::Point) hvSetPointLightShaderLink(0, shader);
    if (kind == hvxLight::Parallel) hvSetParallelLightShaderLink(0, shader);
}

TEST(Links, LightsActOnWhatTheyAreLinkedTo)
{
    for (const hvxLight kind : kKinds) {
        const auto seen = [=](const std::vector<int>& links) {
            DarkScene scene;
            const int other = scene.AddShader(Lambertian, kWhite), floor = scene.AddShader(Lambertian, kWhite);
            scene.AddScreen(floor);
            AddLight(scene, kind);
            for (const int link : links) Link(kind, link == 1 ? floor : other);
            for (const int bad : {-1, 77}) Link(kind, bad);  // no shader: ignored
            return scene.RenderPixel();
        };
        const Color free = seen({});
        EXPECT_GT(free.g, 0.05f);
        EXPECT_EQ(seen({1}), free);
        EXPECT_EQ(seen({0, 1}), free);
        EXPECT_EQ(seen({0}), kBlack);
    }
}

TEST(Links, NameExistingShadersOnly)
{
    for (const char* name : {"undefined", "floor", "wall", "floor"}) Shaders.emplace_back().name = name;
    SkyLight.link_names   = {"wall", "roof", "floor", "Wall"};
    SkyLight.link_shaders = {3};
    SetReport(false);
    PrepareSkyLight();
    SetReport(true);
    EXPECT_EQ(SkyLight.link_shaders, (std::vector<std::uint32_t>{3, 2, 1}));
    EXPECT_EQ(Shaders.size(), 4u);
    Shaders.clear();
    SkyLightDefaults();
}

// The camera is no shader: a list hides emitters and the sky from it. A linked mirror still shows them.
TEST(Links, HideEmittersAndSkyFromTheCamera)
{
    for (const bool emitter : {false, true})
        for (const bool linked : {false, true})
            for (const bool mirrored : {false, true}) {
                DarkScene scene;
                const int mirror = scene.AddShader(Specular, kWhite, Conductor, 1e6f);
                if (mirrored) scene.AddScreen(mirror, -1);
                if (emitter) scene.AddScreen(scene.AddEmitter(kWhite, false, Sideness::Both), mirrored ? -3 : 0);
                if (!emitter) hvSetSkyLightColor(1, 1, 1);
                if (linked) Link(emitter ? hvxLight::Geometry : hvxLight::Sky, mirror);
                ExpectColor(scene.RenderPixel(), kWhite * (linked && !mirrored ? 0.0f : 1.0f), 1e-5f);
            }
}

// Light that is sampled on emitters is told apart by their shader. With so few rays that nearly all of it is sampled,
// an AOV holds the form factor of its emitter.
TEST(LightAOVs, OfEmittersCollectByShader)
{
    DarkScene   scene;
    const Color red{4, 1, 0.5f}, blue{0.25f, 0.5f, 1};
    hvSetGeometryLightSample(65536);
    hvSetRendererSample(4);
    scene.AddScreen(scene.AddShader(Lambertian, kWhite));
    const auto add = [&](const char* name, Color radiance, Vector centre) {
        const int shader = scene.AddEmitter(radiance, true);
        hvSetShaderName(shader, name);
        const auto corners = scene.AddPatch(shader, centre, {0, 0, 0.5f}, {0.5f, 0, 0});
        return radiance * static_cast<float>(FormFactor({}, {0, -1, 0}, corners));
    };
    const Color left = add("left", red, {-1, -2.5f, 1}), right = add("right", blue, {1, -2.5f, 0});
    const std::pair<const char*, Color> aovs[] = {
        {"left", left}, {"right", right}, {"nobody", left + right}};  // a name that no shader has stands for any
    for (int i = 0; i < 3; ++i) {
        hvSetGeometryLightAOVShaderName(hvAddGeometryLightAOV(), aovs[i].first);
        hvSetGeometryLightAOVChannel(i, Channel::Lambertian);
    }
    ExpectColor(scene.RenderPixel(), left + right, 0.01f);
    for (int i = 0; i < 3; ++i)
        ExpectColor(LightPixel(hvxLight::Geometry, 0, i), aovs[i].second, 5e-3f * MaxChannel(aovs[i].second));
    GeometryLightAOVs.clear();
}

/// Surfaces of all elements, under a light of each kind, of which only `only` shines where it names one.
void FillCrowd(TestScene& scene, int only)
{
    const auto power = [=](hvxLight kind) { return only < 0 || kKinds[only] == kind ? 1.0f : 0.0f; };
    scene.LookFrom({0, -6, 2}, {0, 0, 0.8f}, 55);
    hvSetRendererBounce(3);
    const int gloss = scene.AddShader(Lambertian, {0.8f, 0.6f, 0.4f}, Conductor, 2.0f);
    scene.SetSlot(gloss, Glossy, kWhite * 0.5f);
    scene.SetSlot(gloss, Roughness, kWhite * 0.2f);
    const int leaf = scene.AddShader(Lambertian, {0.2f, 0.4f, 0.1f});
    scene.SetSlot(leaf, Transmissive, {0.1f, 0.3f, 0.1f});
    const int lamp = scene.AddShader(Emissive, Color{3, 4, 5} * power(hvxLight::Geometry));
    hvSetSurfaceVirtualLight(lamp, 0, true);
    scene.AddQuad(gloss, {{-3, -3, 0}, {3, -3, 0}, {3, 3, 0}, {-3, 3, 0}});
    scene.AddQuad(scene.AddShader(Specular, kWhite * 0.9f, Conductor, 5.0f),
                  {{-3, 3, 0}, {0, 3, 0}, {0, 3, 3}, {-3, 3, 3}});
    scene.AddQuad(leaf, {{0, 2, 0}, {3, 2, 0}, {3, 2, 3}, {0, 2, 3}});
    scene.AddQuad(scene.AddShader(Specular, {0.9f, 0.7f, 0.5f}, ThinDielectric, 1.5f),
                  {{-3, -1, 0.5f}, {-1, -1, 0.5f}, {-1, -1, 2}, {-3, -1, 2}});
    scene.AddQuad(lamp, {{-1, 0, 2}, {1, 0, 2}, {1, 1, 3}, {-1, 1, 3}});
    scene.AddBox(scene.AddShader(Specular, kWhite, Dielectric, 1.5f), {1, -1, 0.2f}, {2, 0, 1.2f});
    const float normals[12] = {-1, 0, 2, 1, 0, 2, 1, 0, 2, -1, 0, 2};  // rays about a leaning normal may be lost
    hvAddNormals(0, 0, 4, normals);
    const float sky = power(hvxLight::Sky);
    hvSetSkyLightColor(0.2f * sky, 0.3f * sky, 0.4f * sky);
    hvSetSkyLightSample(8);
    hvSetGeometryLightSample(8);
    hvSetPointLightBlur(AddPointLight({1, -2, 3}, kWhite * 2 * power(hvxLight::Point)), 0.2f);
    hvSetParallelLightBlur(AddParallelLight({-1, -1, 2}, kWhite * power(hvxLight::Parallel)), 5);
    hvSetParallelLightSample(0, 4);
}

// Sample by sample, what four lights bring over four elements is what the picture shows. A light that shines alone is
// the only one to have a share.
TEST(LightAOVs, SharesOfAllLightsAddUpToThePicture)
{
    constexpr int kPixels = 12 * 9;
    for (const int only : {-1, 0, 1, 2, 3}) {
        SCOPED_TRACE(only);
        TestScene scene(2, 12, 9);
        FillCrowd(scene, only);
        const Channel lobes[] = {Channel::Lambertian, Channel::Transmissive, Channel::Glossy, Channel::Specular};
        for (const hvxLight kind : kKinds)
            for (const Channel lobe : lobes) EXPECT_GE(hvxAddLightShare(kind, 0, lobe, nullptr), 0);
        const std::vector<Color> picture = scene.Render();
        std::vector<Color>       sum(kPixels);
        for (const hvxLight kind : kKinds)
            for (int aov = 0; aov < 4; ++aov) {
                hvxImage image{};
                ASSERT_TRUE(hvxGetLightAOV(kind, 0, aov, &image));
                for (std::size_t i = 0; i < kPixels; ++i) {
                    const Color share{image.pixels[3 * i], image.pixels[3 * i + 1], image.pixels[3 * i + 2]};
                    EXPECT_TRUE(only < 0 || kKinds[only] == kind || share == kBlack);
                    sum[i] += share;
                }
            }
        for (std::size_t i = 0; i < kPixels; ++i) ExpectColor(sum[i], picture[i], 1e-5f * MaxChannel(picture[i]));
        SkyLightAOVs.clear();
        GeometryLightAOVs.clear();
    }
}

}  // namespace
}  // namespace hv
