// What each light does to which shader, and where its share of the picture is collected.

#include "light_scenes.h"
#include "lights/light.h"
#include "scene_files.h"

#include <string>
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
    const int left = scene.AddEmitter(red, true), right = scene.AddEmitter(blue, true);
    hvSetShaderName(left, "left");
    hvSetShaderName(right, "right");
    const auto  left_corners  = scene.AddPatch(left, {-1, -2.5f, 1}, {0, 0, 0.5f}, {0.5f, 0, 0});
    const auto  right_corners = scene.AddPatch(right, {1, -2.5f, 0}, {0, 0, 1}, {0.5f, 0, 0});
    const Color of_left       = red * static_cast<float>(FormFactor({}, {0, -1, 0}, left_corners));
    const Color of_right      = blue * static_cast<float>(FormFactor({}, {0, -1, 0}, right_corners));
    const struct {
        const char* shader;  ///< a name that no shader has stands for any
        Channel     lobe;
        Color       expected;
    } aovs[] = {{"left", Channel::Lambertian, of_left},
                {"right", Channel::Lambertian, of_right},
                {"nobody", Channel::Lambertian, of_left + of_right},
                {"left", Channel::Glossy, kBlack}};
    for (const auto& test : aovs) {
        const int aov = hvAddGeometryLightAOV();
        hvSetGeometryLightAOVShaderName(aov, test.shader);
        hvSetGeometryLightAOVChannel(aov, test.lobe);
    }
    ExpectColor(scene.RenderPixel(), of_left + of_right, 0.01f);
    for (int i = 0; i < 4; ++i)
        ExpectColor(LightPixel(hvxLight::Geometry, 0, i), aovs[i].expected, 5e-3f * MaxChannel(aovs[i].expected));
    GeometryLightAOVs.clear();
}

/// Everything that light can meet, under a light of each kind, in a film of 12 x 9.
struct Crowd : SceneTest {
    ~Crowd() override
    {
        SkyLightAOVs.clear();
        GeometryLightAOVs.clear();
        hvxSetThreadCount(0);
    }

    /// With the lights of one kind alone where `only` names one.
    void Fill(TestScene& scene, int only = -1) const
    {
        scene.LookFrom({0, -6, 2}, {0, 0, 0.8f}, 55);
        hvSetRendererBounce(3);
        const int tiles = scene.AddShader(Lambertian, {0.8f, 0.6f, 0.4f}, Conductor, 2.0f);
        scene.SetSlot(tiles, Glossy, kWhite * 0.5f);
        scene.SetSlot(tiles, Roughness, kWhite * 0.2f);
        hvSetSurfaceImage(tiles, 0, Lambertian, Write("tiles.ppm", Tiles(40)).c_str(), 2.2f, nullptr, nullptr);
        const int leaf = scene.AddShader(Lambertian, {0.2f, 0.4f, 0.1f});
        scene.SetSlot(leaf, Transmissive, {0.1f, 0.3f, 0.1f});
        const int mixed = scene.AddShader(Specular, kWhite * 0.9f, Conductor, 5.0f);
        hvAddSurfaceShader(mixed);
        for (const int layer : {0, 1}) hvSetSurfaceColor(mixed, layer, Weight, 1, 1, 1);
        hvSetSurfaceColor(mixed, 1, Lambertian, 0.5f, 0.5f, 0.9f);
        const int pane  = scene.AddShader(Specular, {0.9f, 0.7f, 0.5f}, ThinDielectric, 1.5f);
        const int glass = scene.AddShader(Specular, kWhite, Dielectric, 1.5f);
        scene.AddQuad(tiles, {{-3, -3, 0}, {3, -3, 0}, {3, 3, 0}, {-3, 3, 0}});
        scene.AddQuad(mixed, {{-3, 3, 0}, {0, 3, 0}, {0, 3, 3}, {-3, 3, 3}});
        scene.AddQuad(leaf, {{0, 2, 0}, {3, 2, 0}, {3, 2, 3}, {0, 2, 3}});
        scene.AddQuad(pane, {{-3, -1, 0.5f}, {-1, -1, 0.5f}, {-1, -1, 2}, {-3, -1, 2}});
        scene.AddBox(glass, {1, -1, 0.2f}, {2, 0, 1.2f});
        const auto power = [=](hvxLight kind) { return only < 0 || kKinds[only] == kind ? 1.0f : 0.0f; };
        const int  lamp  = scene.AddShader(Emissive, Color{3, 4, 5} * power(hvxLight::Geometry));
        hvSetSurfaceVirtualLight(lamp, 0, true);
        scene.AddQuad(lamp, {{-1, 0, 2}, {1, 0, 2}, {1, 1, 3}, {-1, 1, 3}});
        const float uvs[8] = {0, 0, 2, 0, 2, 2, 0, 2};
        hvAddUVs(0, 0, 4, uvs);
        const float normals[12] = {-1, 0, 2, 1, 0, 2, 1, 0, 2, -1, 0, 2};  // rays about a leaning normal may be lost
        hvAddNormals(0, 0, 4, normals);
        hvSetSkyLightImage(Write("sky.ppm", Tiles(90)).c_str());
        const float sky = power(hvxLight::Sky);
        hvSetSkyLightColor(0.2f * sky, 0.3f * sky, 0.4f * sky);
        hvSetSkyLightSample(8);
        hvSetGeometryLightSample(8);
        hvSetGeometryLightPhoton(0);
        hvSetPointLightBlur(AddPointLight({1, -2, 3}, kWhite * 2 * power(hvxLight::Point)), 0.2f);
        hvSetParallelLightBlur(AddParallelLight({-1, -1, 2}, kWhite * power(hvxLight::Parallel)), 5);
        hvSetParallelLightSample(0, 4);
        for (const hvxLight kind : kKinds)
            for (const Channel lobe : {Channel::Lambertian, Channel::Transmissive, Channel::Glossy, Channel::Specular})
                EXPECT_GE(hvxAddLightShare(kind, 0, lobe, nullptr), 0);
    }

    /// A picture of 4 x 3 pixels of different brightness.
    static std::string Tiles(int step)
    {
        std::string text = "P6 4 3 255\n";
        for (int i = 0; i < 36; ++i) text += static_cast<char>(30 + step * i % 220);
        return text;
    }

    /// Pixels of all shares, one after the other.
    static std::vector<float> Shares()
    {
        std::vector<float> pixels;
        for (const hvxLight kind : kKinds)
            for (int aov = 0; aov < 4; ++aov) {
                hvxImage image{};
                EXPECT_TRUE(hvxGetLightAOV(kind, 0, aov, &image));
                if (image.pixels)
                    pixels.insert(pixels.end(), image.pixels, image.pixels + 3 * image.width * image.height);
            }
        return pixels;
    }
};

// Sample by sample, what four lights bring over four elements is what the picture shows. A light that shines alone is
// the only one to have a share.
TEST_F(Crowd, SharesOfAllLightsAddUpToThePicture)
{
    for (const int only : {-1, 0, 1, 2, 3}) {
        SCOPED_TRACE(only);
        TestScene scene(2, 12, 9);
        Fill(scene, only);
        const std::vector<Color> picture = scene.Render();
        const std::vector<float> shares  = Shares();
        const std::size_t        size    = picture.size();
        ASSERT_EQ(shares.size(), 16 * 3 * size);
        for (std::size_t p = 0; p < size; ++p) {
            Color sum;
            for (std::size_t i = p; i < 16 * size; i += size) {
                const Color share{shares[3 * i], shares[3 * i + 1], shares[3 * i + 2]};
                sum += share;
                EXPECT_TRUE(only < 0 || i / (4 * size) == static_cast<std::size_t>(only) || share == kBlack);
            }
            ExpectColor(sum, picture[p], 1e-5f * MaxChannel(picture[p]));
        }
        SkyLightAOVs.clear();
        GeometryLightAOVs.clear();
    }
}

TEST_F(Crowd, SeededRendersAreEqualForAnyNumberOfThreads)
{
    const auto render = [&](int threads) {
        hvxSetThreadCount(threads);
        TestScene scene(3, 12, 9);
        Fill(scene);
        const std::vector<Color> picture = scene.Render();
        return std::pair(picture, Shares());
    };
    const auto alone = render(1);
    EXPECT_EQ(render(2), alone);
    EXPECT_EQ(render(5), alone);
}

}  // namespace
}  // namespace hv
