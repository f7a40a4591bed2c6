// Textures: lookup, image store, textured slots, pictures as arrays.

#include "base/release.h"
#include "scene_files.h"
#include "scene_fixture.h"
#include "session/sampling.h"
#include "shading/byte_powers.h"
#include "shading/image_store.h"
#include "shading/shading.h"
#include "shading/texture_lookup.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>

namespace hv {
namespace {

constexpr float        kNan    = std::numeric_limits<float>::quiet_NaN();
constexpr float        kInf    = std::numeric_limits<float>::infinity();
constexpr std::uint8_t kRepeat = 0, kClamp = 1;
constexpr std::uint8_t kNearest = 0, kStochastic = 1, kBilinear = 2;

Image MakePicture(int width, int height, int channels, std::vector<float> samples)
{
    Image image;
    AllocateImage(image, width, height, channels, 32, false);
    image.pixels32 = std::move(samples);
    return image;
}

Image MakeBytes(int width, int height, int channels, std::vector<std::uint8_t> samples)
{
    Image image;
    AllocateImage(image, width, height, channels, 8, false);
    image.pixels8 = std::move(samples);
    return image;
}

ShaderElement MakeElement(std::uint8_t sampler, std::uint8_t wrap = kRepeat, float gamma = 1.0f)
{
    ShaderElement element;
    element.sampler = sampler;
    element.wrap_u = element.wrap_v = wrap;
    element.gamma                   = gamma;
    return element;
}

Color Lookup(const Image& image, float u, float v, const ShaderElement& element)
{
    const float uv[2] = {u, v};
    return LookupTexture(image, uv, element);
}

// Three columns, two rows; every sum of samples tells which ones are in it.
const Image kPicture = MakePicture(3, 2, 1, {1, 2, 4, 8, 16, 32});

TEST(Textures, CoordinatesOutsideAreWrapped)
{
    for (const int x : {INT_MIN, -7, -3, -2, -1, 0, 1, 3, 4, INT_MAX - 1, INT_MAX}) {
        const auto column = static_cast<float>(((std::int64_t{x} % 3) + 3) % 3);
        EXPECT_EQ(FetchTexel(kPicture, x, 0, MakeElement(kNearest)).g, std::exp2(column)) << x;
        EXPECT_EQ(FetchTexel(kPicture, 0, x, MakeElement(kNearest)).g, x % 2 == 0 ? 1 : 8) << x;
        EXPECT_EQ(FetchTexel(kPicture, x, 0, MakeElement(kNearest, kClamp)).g, std::exp2(std::clamp(x, 0, 2))) << x;
        EXPECT_EQ(FetchTexel(kPicture, 0, x, MakeElement(kNearest, kClamp)).g, x <= 0 ? 1 : 8) << x;
    }
    // A mode that does not wrap counts on into the next row, and is black behind the last.
    const int unwrapped[][3] = {{3, 0, 8}, {-1, 1, 4}, {3, 1, 0}, {0, 2, 0}, {-1, 0, 0}, {0, -1, 0}};
    for (const auto& [x, y, expected] : unwrapped)
        EXPECT_EQ(FetchTexel(kPicture, x, y, MakeElement(kNearest, 2)).g, static_cast<float>(expected));
}

TEST(Textures, SamplersReadTheTexelsAboutACoordinate)
{
    const struct {
        float        u, v;
        std::uint8_t sampler, wrap;
        float        expected;
    } cases[] = {
        {0.34f, 0.49f, kNearest, kRepeat, 2},
        {1, 1, kNearest, kRepeat, 1},
        {1, 1, kNearest, kClamp, 32},
        {-0.01f, -0.01f, kNearest, kRepeat, 32},
        // Texel 0 begins at 0; between texels their mean.
        {0, 0, kBilinear, kRepeat, 1},
        {0.5f, 0.25f, kBilinear, kRepeat, 13.5f},      // of 2, 4, 16, 32
        {0.25f, 0.125f, kBilinear, kRepeat, 4.8125f},  // a quarter of the way from 1.75 to 14
        {5 / 6.0f, 0, kBilinear, kRepeat, 2.5f},
        {5 / 6.0f, 0, kBilinear, kClamp, 4},
        {0, 0.75f, kBilinear, kRepeat, 4.5f},
        {0.5f, 0.25f, 3, kRepeat, 0},
    };
    for (const auto& test : cases)
        EXPECT_NEAR(Lookup(kPicture, test.u, test.v, MakeElement(test.sampler, test.wrap)).b, test.expected, 1e-5f)
            << test.u << ' ' << test.v << ' ' << int{test.sampler} << ' ' << int{test.wrap};
}

// The expected number of draws of each texel is its bilinear weight.
TEST(Textures, StochasticSamplesHaveTheBilinearMean)
{
    constexpr int kDraws = 20000;
    for (const float v : {0.05f, 0.3f, 0.9f}) {
        double sum = 0, square = 0;
        for (int i = 0; i < kDraws; ++i) {
            const double value = Lookup(kPicture, 0.8f, v, MakeElement(kStochastic)).r;
            sum += value;
            square += value * value;
        }
        const double mean = sum / kDraws, sigma = std::sqrt((square / kDraws - mean * mean) / kDraws);
        EXPECT_NEAR(mean, Lookup(kPicture, 0.8f, v, MakeElement(kBilinear)).r, 4 * sigma) << v;
    }
}

TEST(Textures, GammaIsAPowerOfEveryTexel)
{
    Image picture = MakeBytes(256, 1, 1, {});
    for (int i = 0; i < 256; ++i) picture.pixels8.push_back(static_cast<std::uint8_t>(i));
    for (const float gamma : {2.2f, 0.0f, -1.0f, kNan}) {
        const ShaderElement plain = MakeElement(kNearest, kRepeat, gamma);
        ShaderElement       bound = plain;
        bound.byte_powers         = PowersOfBytes(gamma);
        for (int i = 0; i < 256; ++i) {
            const auto expected = std::bit_cast<std::uint32_t>(std::pow(static_cast<float>(i) * 0.0039215684f, gamma));
            for (const ShaderElement& element : {plain, bound})
                EXPECT_EQ(std::bit_cast<std::uint32_t>(FetchTexel(picture, i, 0, element).g), expected) << gamma;
        }
    }
    ReleasePowersOfBytes();
    // Before the samples are blended: the mean of the powers.
    const Image halves = MakePicture(2, 1, 1, {0.5f, 1});
    EXPECT_NEAR(Lookup(halves, 0.25f, 0, MakeElement(kBilinear, kRepeat, 2.2f)).g, 0.608819f, 1e-6f);
}

TEST(Textures, MatricesTransformCoordinatesAndColours)
{
    // Perspective: (u, v) = (0.25, 0.5) goes to (0.5, 1.25) / 0.75 = (2/3, 5/3), column 2 and row 3 of a repeated
    // picture.
    ShaderElement element         = MakeElement(kNearest);
    const float   uv_rows[9]      = {0, 1, 0, 1, 1, 0.5f, 1, 0, 0.5f};
    element.uv_matrix_is_identity = false;
    std::copy_n(uv_rows, 9, element.uv_matrix);
    EXPECT_EQ(Lookup(kPicture, 0.2501f, 0.5002f, element).r, 32);

    // The divisor takes green twice and blue never: 1 * 2 + (10 + 100) * 3 + 1000.
    const Image colors               = MakePicture(1, 1, 3, {2, 3, 5});
    const float color_rows[16]       = {1, 0, 0, 1, 0, 2, 0, 0, 1, 1, 1, 0, 1, 10, 100, 1000};
    element                          = MakeElement(kBilinear);
    element.color_matrix_is_identity = false;
    std::copy_n(color_rows, 16, element.color_matrix);
    ExpectColor(Lookup(colors, 0.3f, 0.3f, element) * 1332.0f, {3, 6, 10}, 1e-4f);
}

// Whatever the coordinates and the record, a lookup stays inside the picture (the sanitizers look on) and gives
// numbers.
TEST(Textures, NoCoordinateLeadsOutOfThePicture)
{
    const float values[] = {0, 1, 1e-40f, 0.99999994f, -1e-9f, 2147483648.0f, 3e38f, -3e38f, kInf, -kInf, kNan};
    Image       hollow   = kPicture, none;
    none.loaded          = true;
    Release(hollow.pixels32);
    for (const std::uint8_t sampler : {kNearest, kStochastic, kBilinear}) {
        for (const float u : values)
            for (const float v : values)
                for (const std::uint8_t wrap : {kRepeat, kClamp, std::uint8_t{2}, std::uint8_t{255}}) {
                    const Color color = Lookup(kPicture, u, v, MakeElement(sampler, wrap));
                    EXPECT_TRUE(color.r >= 0 && color.r <= 32) << u << ' ' << v << ' ' << int{sampler} << int{wrap};
                }
        EXPECT_EQ(Lookup(none, 0.5f, 0.5f, MakeElement(sampler)), kBlack);
        EXPECT_EQ(Lookup(hollow, 0.5f, 0.5f, MakeElement(sampler)), kBlack);
    }
}

/// With files; the image store is empty at both ends.
struct TexturedScene : SceneTest {
    TexturedScene() { ReleaseImages(); }
    ~TexturedScene() override
    {
        Shaders.clear();
        ReleaseImages();
    }

    /// Writes a picture; returns its path.
    std::string Save(Image image, const std::string& name) const
    {
        image.path = (folder / name).string();
        EXPECT_TRUE(WriteImage(image)) << name;
        return image.path;
    }

    /// Puts a picture of one row into the store; returns a prepared slot that reads it without blending.
    static ShaderElement Stored(std::vector<float> rgb, Color color = kWhite)
    {
        ShaderElement slot = MakeElement(kNearest);
        slot.color         = color;
        slot.image_index   = static_cast<int>(Images.size());
        Images.push_back(MakePicture(static_cast<int>(rgb.size() / 3), 1, 3, rgb));
        return slot;
    }

    template <class Work>
    static std::string Report(Work&& work)
    {
        testing::internal::CaptureStdout();
        work();
        return testing::internal::GetCapturedStdout();
    }
};

const std::string kRule = std::string(80, '_') + "\n\n";

TEST_F(TexturedScene, PicturesAreStoredOnceASpellingAndFoundOnTheSearchList)
{
    Save(MakeBytes(1, 1, 3, {1, 2, 3}), "a.png");
    std::filesystem::create_directories(folder / "first" / "a.png");  // a folder is no picture
    ImageSearchPaths = {"", (folder / "first").string(), folder.string()};
    EXPECT_EQ(FindOrAddImage(""), -1);
    EXPECT_EQ(FindOrAddImage("a.png"), 0);
    EXPECT_EQ(FindOrAddImage("./a.png"), 1);
    EXPECT_EQ(FindOrAddImage("a.png"), 0);
    ASSERT_TRUE(LoadImage(Images[0]));
    EXPECT_EQ(Images[0].pixels8, (std::vector<std::uint8_t>{1, 2, 3}));
    std::filesystem::remove(folder / "a.png");
    EXPECT_TRUE(LoadImage(Images[0])) << "read but once";
}

TEST_F(TexturedScene, APictureThatIsMissingLeavesThePlainColour)
{
    ImageSearchPaths                              = {""};
    const std::string broken                      = Write("broken.png", "no picture"),
                      good                        = Save(MakeBytes(1, 1, 3, {1, 2, 3}), "good.png");
    const std::pair<Element, std::string> slots[] = {
        {Element::Lambertian, "none.png"}, {Element::Specular, broken}, {Element::Emissive, good}};
    Shader shader;
    shader.layers.resize(1);
    for (const auto& [element, path] : slots) {
        shader.layers[0].Slot(element).image = path;
        shader.layers[0].Slot(element).color = {0.5f, 0.25f, 0};
    }
    const std::string missing = "error :( \timage - none.png\tcannot be found\n" + kRule;
    const std::string out     = Report([&] { PrepareShader(shader); });
    EXPECT_TRUE(out.starts_with(missing)) << out;
    EXPECT_NE(out.find("error :( \timage - " + broken + "\t"), out.npos) << out;
    for (const auto& [element, path] : slots) {
        SurfacePoint point;
        Color        color;
        EXPECT_TRUE(ReadSlot(shader.layers[0].Slot(element), color, point));
        EXPECT_EQ(color == (Color{0.5f, 0.25f, 0}), path != good);
    }
    // The stage tries again, closes its messages with a rule of their own and counts every entry.
    const std::string stage = Report(ReportTextures);
    EXPECT_TRUE(stage.starts_with(missing)) << stage;
    EXPECT_TRUE(stage.ends_with(kRule + "textures                3            0.0000 [ M bytes ]\n" + kRule)) << stage;
}

TEST_F(TexturedScene, TexturesMultiplySlotColours)
{
    Shader shader, pane;
    shader.layers.resize(2);
    PrepareShader(shader);
    shader.layers[0].Slot(Element::Weight) = Stored({1, 1, 1, 0, 0, 0});
    shader.layers[1].Slot(Element::Weight) = Stored({0, 0, 0, 1, 0, 0});
    // Shadows take the colour of the pane at the point, unless its colour is black all over.
    pane.layers.resize(1);
    PrepareShader(pane);
    pane.layers[0].Slot(Element::ShadowTransparency) = Stored({1, 0, 0, 0, 0.5f, 0}, {2, 2, 2});
    const Color passed[]                             = {{2, 0, 0}, {0, 1, 0}};
    for (const std::size_t side : {0u, 1u}) {
        SurfacePoint point;
        point.uv[0] = 0.5f * static_cast<float>(side);
        EXPECT_EQ(Transparency(pane, true, point), passed[side]);
        for (int i = 0; i < 20; ++i) EXPECT_EQ(PickLayer(shader, true, point.uv), &shader.layers[side]);
    }
    Shaders                                                      = {pane, pane};
    Shaders[1].layers[0].Slot(Element::ShadowTransparency).color = kBlack;
    RefreshShaderTraits();
    EXPECT_FALSE(ShaderTraits[0] & shader_traits::kFrontOpaque);
    EXPECT_TRUE(ShaderTraits[1] & shader_traits::kFrontOpaque);
}

// Texels 0 to 1 are directions -1 to 1 in the tangent frame.
TEST_F(TexturedScene, NormalMapsTiltTheShadingNormal)
{
    Shader shader;
    shader.layers.resize(1);
    PrepareShader(shader);
    shader.layers[0].has_normal_map        = true;
    shader.layers[0].Slot(Element::Normal) = Stored({0.5f, 0.5f, 1, 0.75f, 0.375f, 1});
    for (const Vector tilted : {Vector{0, 0, 1}, {0.5f, -0.25f, 1}}) {
        SurfacePoint point;
        point.layer     = &shader.layers[0];
        point.tangent   = {1, 0, 0};
        point.bitangent = {0, 1, 0};
        point.normal = point.geometric_normal = point.outgoing = {0, 0, 1};
        point.uv[0]                                            = tilted.x;
        DeriveSurfaceTerms(point, true);
        EXPECT_LT(Length(point.normal - Normalized(tilted)), 2e-5f);
        EXPECT_NEAR(point.cos_outgoing, point.normal.z, 1e-6f);
    }
}

// v = 0 is the lowest row of a picture. The matrices of the export are kept but take no part; gamma does.
TEST_F(TexturedScene, ARenderedTextureStandsUprightAndIgnoresExportedMatrices)
{
    const std::string path       = Save(MakeBytes(2, 2, 3, {255, 0, 0, 0, 255, 0, 0, 0, 255, 51, 51, 51}), "t.png");
    const float       zero[4][4] = {}, quarter[3][3] = {{1, 0, 0.25f}, {0, 1, 0.25f}, {0, 0, 1}};
    const struct {
        float u, v;
        Color expected;
    } cases[] = {{0, 0, {0, 0, 4}}, {0.5f, 0, {0.16f, 0.16f, 0.16f}}, {0, 0.5f, {4, 0, 0}}, {0.5f, 0.5f, {0, 4, 0}}};
    for (const auto& test : cases) {
        TestScene scene(1);
        const int shader = scene.AddShader(Element::Emissive, {4, 4, 4});
        scene.AddScreen(shader);
        const float uvs[4][2] = {{test.u, test.v}, {test.u, test.v}, {test.u, test.v}, {test.u, test.v}};
        hvAddUVs(0, 0, 4, uvs[0]);
        hvSetSurfaceImage(shader, 0, Element::Emissive, path.c_str(), 2.0f, zero, quarter);
        ExpectColor(scene.RenderPixel(), test.expected, 1e-5f);
    }
    EXPECT_TRUE(Images.empty()) << "the end of a session empties the store";
}

// Pictures of floats fill the arrays that the exports fill, pixel by pixel in the order of memory. Particles come from
// four channels.
TEST_F(TexturedScene, ArrayTexturesAreTheArraysOfTheExports)
{
    const std::vector<float> positions = {0, 0, 0, 1.1f, 0, 0, 1, 1.3f, 0, 0, 1, -0.7f};
    const std::vector<float> normals   = {0, 0, 1, 0, 0.1f, 1, 1, 1, 1, -1, 0, 3};
    const std::vector<float> uvs       = {0, 0, 1.1f, 0, 1, 1.3f, 0, 1};  // of the positions
    const int                indices[] = {0, 1, 2, 2, 3, 0};
    std::vector<float>       triangles(6);
    std::memcpy(triangles.data(), indices, sizeof indices);

    ImageSearchPaths = {folder.string()};
    Save(MakePicture(2, 2, 3, positions), "p.pfm");
    Save(MakePicture(2, 2, 3, normals), "n.pfm");
    Save(MakePicture(2, 1, 3, triangles), "t.pfm");
    Save(MakePicture(2, 1, 4, {0, 1, 2, 0.5f, -3, 4, 5, 0.25f}), "four.exr");
    ReadSceneFile(Write("o.hv",
                        "object\nparticle_texture \"four.exr\"\nposition_texture \"p.pfm\"\nuv_texture "
                        "\"p.pfm\"\nnormal_texture \"n.pfm\"\n"
                        "tangent_texture \"n.pfm\"\ntriangle_texture \"t.pfm\"\nend\n"));
    const int object = hvAddObject(), part = hvAddPart(object);
    hvAddPositions(object, part, 4, positions.data());
    hvAddUVs(object, part, 4, uvs.data());
    hvAddNormals(object, part, 4, normals.data());
    hvAddTangents(object, part, 4, normals.data());
    hvAddTriangles(object, part, 2, indices);
    const Part &read = Objects[0].parts.at(1), &expected = Objects[1].parts[0];
    EXPECT_EQ(read.positions, expected.positions);
    EXPECT_EQ(read.uvs[0].values, expected.uvs[0].values);
    EXPECT_EQ(read.normals, expected.normals);
    EXPECT_EQ(read.tangents, expected.tangents);
    ASSERT_EQ(read.triangles.size(), 2u);
    EXPECT_EQ(std::memcmp(read.triangles.data(), expected.triangles.data(), 2 * sizeof(Triangle)), 0);
    const Part& balls = Objects[0].parts[0];
    EXPECT_EQ(balls.positions, (std::vector<Vector>{{0, 1, 2}, {-3, 4, 5}}));
    EXPECT_EQ(balls.scalars[0].values, (std::vector<float>{0.5f, 0.25f}));
    EXPECT_EQ(balls.particles, (std::vector<std::uint32_t>{0, 1}));
    EXPECT_TRUE(Images.empty()) << "array pictures do not enter the store";
}

}  // namespace
}  // namespace hv
