// What each light does to which shader, and where its share of the picture is collected.

#include "light_scenes.h"
#include "lights/light.h"
#include "scene_files.h"

#include <functional>
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

struct LinkFiles : SceneTest {};

// Names that no shader has are dropped, and the lists of repeated sections are joined. What is left empty lights everything.
TEST_F(LinkFiles, NamesOfUnknownShadersAreDropped)
{
    const struct {
        std::vector<const char*> names;
        bool                     lit;
    } cases[] = {
        {{}, true}, {{"nowhere"}, true}, {{"floor", "nowhere"}, true}, {{"wall"}, false}, {{"nowhere", "wall"}, false}};
    const char* sections[] = {"sky_light\n color 1 1 1\n", "geometry_light\n sample 64\n",
                              "point_light\n position 0 -3 0\n", "parallel_light\n direction 0 1 0\n"};
    for (const hvxLight kind : kKinds)
        for (const auto& test : cases) {
            DarkScene scene;
            scene.AddScreen(scene.AddShader(Lambertian, kWhite));
            hvSetShaderName(1, "floor");
            hvSetShaderName(scene.AddShader(Lambertian, kWhite), "wall");
            if (kind == hvxLight::Geometry) AddLight(scene, kind);
            const bool  repeats = kind == hvxLight::Sky || kind == hvxLight::Geometry;
            std::string text    = sections[static_cast<int>(kind)];
            for (const char* name : test.names) {
                if (repeats && name != test.names[0]) text += std::string("end\n") + sections[static_cast<int>(kind)];
                text += std::string(" link\n  shader \"") + name + "\"\n end\n";
            }
            Write("light/one.hv", text + "end\n");
            ASSERT_EQ(hvxLoadScene(folder.c_str()), 1);
            EXPECT_EQ(scene.RenderPixel().g > 0.05f, test.lit) << text;
        }
}

// Between flat walls no ray is lost, so that a light's AOV, fed at each vertex of each path, is the picture that the light
// makes alone, whatever shines beside it.
TEST(LightAOVs, CollectThePictureOfTheirLight)
{
    enum Lights { kBoth, kPointOnly, kParallelOnly };
    const auto render = [](Lights lights, int bounces, float gloss, Color aovs[2]) {
        DarkScene scene;
        hvSetRendererBounce(bounces);
        scene.LookFrom({0, -2, 0.2f}, {0, 0, 0}, 1e-4f);
        scene.AddScreen(scene.AddShader(Specular, {0.9f, 0.8f, 0.7f}, ThinDielectric, 1.5f), -1);  // before the lens
        const int floor = scene.AddShader(Lambertian, {0.7f, 0.5f, 0.3f}, Conductor, gloss > 0 ? 3.0f : 1.0f);
        scene.SetSlot(floor, Transmissive, gloss > 0 ? kBlack : Color{0.1f, 0.2f, 0.3f});
        scene.SetSlot(floor, Glossy, kWhite * gloss);
        scene.SetSlot(floor, Roughness, kWhite * 0.3f);
        scene.AddScreen(floor);
        scene.AddPatch(scene.AddShader(Lambertian, {0.3f, 0.7f, 0.5f}), {2, -2, 0}, {0, 2, 0}, {0, 0, 5});
        scene.AddPatch(scene.AddShader(Specular, {0.5f, 0.7f, 0.9f}, Conductor, 10.0f), {-2, -2, 0}, {0, 0, 5},
                       {0, 2, 0});
        scene.AddScreen(scene.AddShader(Lambertian, kWhite * 0.5f), 2);
        const Channel lobes[] = {Channel::Lambertian, Channel::Transmissive, Channel::Glossy};
        AddPointLight({-0.5f, -1.5f, 0.5f}, kWhite * (lights == kParallelOnly ? 0.0f : 3.0f));
        AddParallelLight({1, -2, -0.5f}, lights == kPointOnly ? kBlack : Color{1, 2, 3});
        hvSetPointLightBlur(0, 0.1f);
        hvSetPointLightSample(0, 16);
        hvAddPointLightAOV(0);
        hvAddParallelLightAOV(0);
        for (const Channel lobe : lobes) hvSetPointLightAOVChannel(0, 0, lobe);
        for (const Channel lobe : lobes) hvSetParallelLightAOVChannel(0, 0, lobe);
        const Color seen = scene.RenderPixel();
        aovs[0]          = LightPixel(hvxLight::Point, 0, 0);
        aovs[1]          = LightPixel(hvxLight::Parallel, 0, 0);
        return seen;
    };
    const std::pair<int, float> cases[] = {{1, 0.0f}, {3, 0.0f}, {1, 0.5f}};
    for (const auto& [bounces, gloss] : cases) {
        Color       both[2], alone[2];
        const Color seen = render(kBoth, bounces, gloss, both);
        for (const Lights only : {kPointOnly, kParallelOnly}) {
            const Color picture   = render(only, bounces, gloss, alone);
            const int   own       = only == kPointOnly ? 0 : 1;
            const float tolerance = 1e-5f * MaxChannel(seen);
            EXPECT_GT(MaxChannel(picture), 0.1f);
            ExpectColor(alone[own], picture, tolerance);
            ExpectColor(both[own], picture, tolerance);
            EXPECT_EQ(alone[1 - own], kBlack);
        }
        ExpectColor(both[0] + both[1], seen, 1e-5f * MaxChannel(seen));
    }
}

// Light that is sampled on emitters is told apart by their shader. With so few rays that nearly all of it is sampled, an AOV
// holds the form factor of its emitter.
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
    const auto left_corners  = scene.AddPatch(left, {-1, -2.5f, 1}, {0, 0, 0.5f}, {0.5f, 0, 0});
    const auto right_corners = scene.AddPatch(right, {1, -2.5f, 0}, {0, 0, 1}, {0.5f, 0, 0});
    const struct {
        const char* shader;
        Channel     lobe;
        Color       expected;
    } aovs[] = {{"left", Channel::Lambertian, red * static_cast<float>(FormFactor({}, {0, -1, 0}, left_corners))},
                {"right", Channel::Lambertian, blue * static_cast<float>(FormFactor({}, {0, -1, 0}, right_corners))},
                {nullptr, Channel::Lambertian, kBlack},
                {"nobody", Channel::Lambertian, kBlack},
                {"left", Channel::Glossy, kBlack}};
    for (const auto& test : aovs) {
        const int aov = hvAddGeometryLightAOV();
        if (test.shader) hvSetGeometryLightAOVShaderName(aov, test.shader);
        hvSetGeometryLightAOVChannel(aov, test.lobe);
    }
    const Color seen = scene.RenderPixel();
    Color       found[5];
    for (int i = 0; i < 5; ++i) found[i] = LightPixel(hvxLight::Geometry, 0, i);
    for (const int i : {0, 1, 4}) ExpectColor(found[i], aovs[i].expected, 5e-3f * MaxChannel(aovs[i].expected));
    ExpectColor(found[2], found[0] + found[1], 1e-5f);
    EXPECT_EQ(found[3], found[2]);  // a name that no shader has stands for any
    ExpectColor(seen, found[2], 5e-3f);
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

    void Fill(TestScene& scene) const
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
        const int lamp = scene.AddShader(Emissive, {3, 4, 5});
        hvSetSurfaceVirtualLight(lamp, 0, true);
        scene.AddQuad(lamp, {{-1, 0, 2}, {1, 0, 2}, {1, 1, 3}, {-1, 1, 3}});
        const float uvs[8] = {0, 0, 2, 0, 2, 2, 0, 2};
        hvAddUVs(0, 0, 4, uvs);
        const float normals[12] = {-1, 0, 2, 1, 0, 2, 1, 0, 2, -1, 0, 2};  // rays about a leaning normal may be lost
        hvAddNormals(0, 0, 4, normals);
        hvSetSkyLightImage(Write("sky.ppm", Tiles(90)).c_str());
        hvSetSkyLightColor(0.2f, 0.3f, 0.4f);
        hvSetSkyLightSample(8);
        hvSetGeometryLightSample(8);
        hvSetGeometryLightPhoton(0);
        hvSetPointLightBlur(AddPointLight({1, -2, 3}, kWhite * 2), 0.2f);
        hvSetParallelLightBlur(AddParallelLight({-1, -1, 2}, kWhite), 5);
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

// Sample by sample, what four lights bring over four elements is what the picture shows.
TEST_F(Crowd, SharesOfAllLightsAddUpToThePicture)
{
    TestScene scene(2, 12, 9);
    Fill(scene);
    const std::vector<Color> picture = scene.Render();
    const std::vector<float> shares  = Shares();
    ASSERT_EQ(shares.size(), 16 * 3 * picture.size());
    float worst = 0.0f;
    for (std::size_t p = 0; p < picture.size(); ++p) {
        Color sum;
        for (std::size_t i = p; i < shares.size() / 3; i += picture.size())
            sum += Color{shares[3 * i], shares[3 * i + 1], shares[3 * i + 2]};
        for (int c = 0; c < 3; ++c) worst = std::max(worst, std::abs(sum[c] / picture[p][c] - 1));
    }
    EXPECT_LT(worst, 1e-5f);
}

TEST_F(Crowd, SeededRendersAreEqualForAnyNumberOfThreads)
{
    const auto render = [&](int threads) {
        hvxSetThreadCount(threads);
        TestScene scene(3, 12, 9);
        Fill(scene);
        std::vector<float> values = {};
        for (const Color& pixel : scene.Render()) values.insert(values.end(), &pixel.r, &pixel.r + 3);
        const std::vector<float> shares = Shares();
        values.insert(values.end(), shares.begin(), shares.end());
        return values;
    };
    const std::vector<float> alone = render(1);
    EXPECT_EQ(render(2), alone);
    EXPECT_EQ(render(5), alone);
}

}  // namespace
}  // namespace hv
