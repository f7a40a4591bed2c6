// Shaders: preparation, choice of a layer, what surfaces let through, the terms of a hit.

#include "shading/shading.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace hv {
namespace {

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

/// Empties the registry before and after.
class Shading : public testing::Test {
protected:
    void        SetUp() override { Clear(); }
    void        TearDown() override { Clear(); }
    static void Clear()
    {
        Shaders.clear();
        ShaderTraits.clear();
    }
    static std::string Report()
    {
        testing::internal::CaptureStdout();
        PrepareShaders();
        return testing::internal::GetCapturedStdout();
    }
};

SurfaceShader& AddLayer(Shader& shader, Element element, Color color, Material material = Material::Conductor)
{
    SurfaceShader& layer      = shader.layers.emplace_back();
    layer.Slot(element).color = color;
    layer.material            = material;
    return layer;
}

TEST_F(Shading, ALoneOneSidedLayerGetsABlackOtherSide)
{
    using enum Sideness;
    const struct {
        std::vector<Sideness> given;
        std::vector<int>      face, back;
    } cases[] = {
        {{}, {0}, {0}},
        {{Both}, {0}, {0}},
        {{Face}, {0}, {1}},
        {{Back}, {1}, {0}},
        {{Face, Face}, {0, 1}, {}},
        {{Back, Both}, {1}, {0, 1}},
        {{Both, Face, Back}, {0, 1}, {0, 2}},
    };
    for (const auto& test : cases) {
        Shader shader;
        for (const Sideness side : test.given) shader.layers.emplace_back().sideness = side;
        PrepareShader(shader);
        ASSERT_EQ(shader.face_layer_count, test.face.size());
        ASSERT_EQ(shader.back_layer_count, test.back.size());
        for (std::size_t i = 0; i < kMaxSideLayers; ++i) {
            EXPECT_EQ(shader.face_layers[i], i < test.face.size() ? test.face[i] : 0);
            EXPECT_EQ(shader.back_layers[i], i < test.back.size() ? test.back[i] : 0);
        }
    }
}

TEST_F(Shading, LayersBeyondWhatASideHoldsTakeNoPart)
{
    Shader crowded;
    crowded.layers.resize(300);
    for (std::size_t i = 0; i < 300; ++i) crowded.layers[i].sideness = i < 290 ? Sideness::Back : Sideness::Face;
    crowded.layers[20].Slot(Element::Emissive).color = kWhite;
    PrepareShader(crowded);
    EXPECT_EQ(crowded.face_layer_count, 0u);  // position 290 does not fit a byte
    EXPECT_EQ(crowded.back_layer_count, 16u);
    EXPECT_FALSE(crowded.back_emissive);
}

TEST_F(Shading, SidesSummariseTheirOwnLayersOnly)
{
    Shader shader;
    AddLayer(shader, Element::Emissive, {0, 0, 2}).sideness  = Sideness::Back;
    AddLayer(shader, Element::Lambertian, kWhite).sideness   = Sideness::Face;
    AddLayer(shader, Element::Transmissive, kWhite).sideness = Sideness::Face;
    shader.layers[1].virtual_light                           = true;
    PrepareShader(shader);
    EXPECT_TRUE(shader.back_emissive && shader.face_lambertian && shader.face_transmissive &&
                shader.face_virtual_light);
    EXPECT_FALSE(shader.face_emissive || shader.back_lambertian || shader.back_transmissive ||
                 shader.back_virtual_light);
}

TEST_F(Shading, GeometryFractionsAreLimited)
{
    const struct {
        float given, expected;
    } cases[] = {{-1, 0}, {0, 0}, {0.5f, 0.5f}, {2, 1}, {kFarAway, 1}, {kNan, 0}};
    for (const auto& test : cases) {
        Shader shader;
        shader.geometry_shader.reduction = shader.geometry_shader.round_corner = test.given;
        PrepareShader(shader);
        EXPECT_EQ(shader.geometry_shader.reduction, test.expected);
        EXPECT_EQ(shader.geometry_shader.round_corner, test.expected);
    }
}

TEST_F(Shading, EmptyShadersTakeOverUndefinedWhichIsMadeAnewIfNeeded)
{
    AddLayer(Shaders[FindOrAddShader("lamp")], Element::Emissive, kWhite).sideness = Sideness::Face;
    FindOrAddShader("empty");
    Report();
    ASSERT_EQ(Shaders.size(), 3u);
    for (const std::size_t i : {1, 2}) {
        EXPECT_EQ(Shaders[i].name, "undefined");
        EXPECT_FLOAT_EQ(SideLayer(Shaders[i], true, 0).Slot(Element::Lambertian).color.g, 0.85f);
    }
    // Preparation may run again.
    const std::size_t layer_count = Shaders[0].layers.size();
    FindOrAddShader("late");
    Report();
    EXPECT_EQ(Shaders[0].layers.size(), layer_count);
    EXPECT_TRUE(Shaders[3].prepared);
    EXPECT_EQ(ShaderTraits.size(), 4u);
}

TEST_F(Shading, NamesFindTheFirstExactMatch)
{
    Shaders.resize(3);
    Shaders[1].name = Shaders[2].name = "wood";
    EXPECT_EQ(FindShader("wood"), 1u);
    EXPECT_EQ(FindShader("Wood"), kNone);
    EXPECT_EQ(FindOrAddShader("Wood"), 3u);
    EXPECT_EQ(FindOrAddShader("wood"), 1u);
    EXPECT_EQ(Shaders.size(), 4u);
    EXPECT_EQ(&ShaderAt(7), &Shaders[0]);
    Clear();
    EXPECT_EQ(LayerCount(ShaderAt(kNone), true), 1u);
}

// 40000 draws: the expected count of a layer has a standard deviation of at most 100.
TEST_F(Shading, LayersAreChosenInProportionToTheMeanOfTheirWeight)
{
    Shader shader;
    AddLayer(shader, Element::Weight, {0.3f, 0.0f, 0.0f});
    AddLayer(shader, Element::Weight, {0.2f, 0.2f, 0.2f});
    AddLayer(shader, Element::Weight, kBlack);
    AddLayer(shader, Element::Weight, {0.0f, 0.9f, 0.6f});
    PrepareShader(shader);
    const float uv[2]    = {0, 0};
    int         count[4] = {};
    for (int i = 0; i < 40000; ++i) ++count[PickLayer(shader, true, uv) - shader.layers.data()];
    EXPECT_NEAR(count[0], 40000 * 0.125, 500);
    EXPECT_NEAR(count[1], 40000 * 0.25, 500);
    EXPECT_EQ(count[2], 0);
    EXPECT_NEAR(count[3], 40000 * 0.625, 500);
}

TEST_F(Shading, BlackWeightsAndEmptySidesStillGiveALayer)
{
    const float uv[2] = {0, 0};
    for (const Sideness side : {Sideness::Both, Sideness::Face})
        for (const std::size_t layer_count : {2, 16, 17}) {
            Shader shader;
            shader.layers.resize(layer_count);
            for (SurfaceShader& layer : shader.layers) layer.sideness = side;
            PrepareShader(shader);
            const SurfaceShader* layer = PickLayer(shader, false, uv);
            ASSERT_NE(layer, nullptr);
            EXPECT_TRUE(side == Sideness::Face || layer == &SideLayer(shader, false, shader.back_layer_count - 1));
        }
}

// Reflectance of glass, n = 1.5, is 0.04 head-on (Fresnel); Schlick's curve ends at 1 at grazing.
TEST_F(Shading, SchlickValues)
{
    EXPECT_NEAR(SchlickReflectance(1.5f, 1.0f), 0.04f, 1e-7f);
    EXPECT_NEAR(SchlickReflectance(1.5f, 0.5f), 0.04f + 0.96f / 32.0f, 1e-7f);
    EXPECT_NEAR(SchlickReflectance(2.42f, 1.0f), 0.172396f, 1e-5f);  // diamond
    EXPECT_EQ(SchlickReflectance(1.5f, 0.0f), 1.0f);
    for (const float c : {0.0f, 0.5f, 1.0f}) EXPECT_EQ(SchlickReflectance(1.0f, c), 0.0f);
}

TEST_F(Shading, TransparencyIsAProductOverAllLayersOfTheSide)
{
    const auto shadow = [](Shader& shader, Color color) -> SurfaceShader& {
        return AddLayer(shader, Element::ShadowTransparency, color);
    };
    const auto slab = [](Shader& shader, float ior) -> SurfaceShader& {
        SurfaceShader& layer = AddLayer(shader, Element::Specular, {1.0f, 0.5f, 0.0f}, Material::ThinDielectric);
        layer.Slot(Element::Ior).color = kWhite * ior;
        return layer;
    };
    Shader both, glass, mixed;
    shadow(both, {0.5f, 0.5f, 1.0f});
    shadow(both, {0.5f, 0.2f, 1.0f}).Slot(Element::Weight).color = kWhite;
    slab(glass, 1.5f);
    shadow(mixed, {0.5f, 0.5f, 0.5f});
    slab(mixed, 1.0f);
    const struct {
        Shader& shader;
        float   cosine;
        Color   expected;
    } cases[] = {
        {both, 1, {0.25f, 0.1f, 1.0f}},
        // 0.96^2 / (1 - 0.04^2): two interfaces with all inter-reflections.
        {glass, 1, {0.923077f, 0.461538f, 0.0f}},
        {glass, -1, {0.923077f, 0.461538f, 0.0f}},
        {glass, 0, kBlack},
        {mixed, 1, {0.5f, 0.25f, 0.0f}},
    };
    for (const auto& test : cases) {
        PrepareShader(test.shader);
        SurfacePoint point;
        point.cos_outgoing = test.cosine;
        const Color result = Transparency(test.shader, true, point);
        for (int c = 0; c < 3; ++c) EXPECT_NEAR(result[c], test.expected[c], 1e-6f) << &test - cases;
    }
}

// The byte of the walks may promise opacity only where the full evaluation is black, and must where a layer is.
TEST_F(Shading, TraitsNameVisibilityAndOpaqueSides)
{
    using namespace shader_traits;
    const auto add = [](Element element, Color color, Material material, Sideness side) {
        Shader shader;
        AddLayer(shader, element, color, material).sideness = side;
        PrepareShader(shader);
        Shaders.push_back(shader);
    };
    add(Element::Lambertian, kWhite, Material::Conductor, Sideness::Both);
    add(Element::ShadowTransparency, {0, 0, 1e-6f}, Material::Conductor, Sideness::Both);
    add(Element::ShadowTransparency, kWhite, Material::Dielectric, Sideness::Face);
    add(Element::Specular, kWhite, Material::ThinDielectric, Sideness::Both);
    add(Element::Specular, kWhite, Material::Dielectric, Sideness::Both);
    add(Element::ShadowTransparency, kWhite, Material::ThinDielectric, Sideness::Both);
    Shaders[5].geometry_shader.visibility = Visibility::CameraPrimary;
    RefreshShaderTraits();
    const int both       = kFrontOpaque | kBackOpaque;
    const int expected[] = {3 | both, 3, 3 | kBackOpaque, 3, 3 | both, 1 | both};
    ASSERT_EQ(ShaderTraits.size(), std::size(expected));
    for (std::size_t i = 0; i < std::size(expected); ++i) EXPECT_EQ(ShaderTraits[i], expected[i]) << i;

    SurfacePoint point;
    for (std::size_t i = 0; i < Shaders.size(); ++i)
        for (const bool front : {true, false}) {
            if ((ShaderTraits[i] & (front ? kFrontOpaque : kBackOpaque)) == 0) continue;
            for (point.cos_outgoing = 0; point.cos_outgoing <= 1; point.cos_outgoing += 0.25f)
                EXPECT_EQ(Transparency(Shaders[i], front, point), kBlack) << i;
        }
}

/// A hit straight on a flat floor, on a layer with the given slots.
SurfacePoint FloorPoint(const SurfaceShader& layer)
{
    SurfacePoint point;
    point.tangent          = {1, 0, 0};
    point.bitangent        = {0, 1, 0};
    point.normal           = {0, 0, 1};
    point.geometric_normal = {0, 0, 1};
    point.outgoing         = {0, 0, 1};
    point.layer            = &layer;
    return point;
}

TEST_F(Shading, TermsOfASurface)
{
    Shader         shader;
    SurfaceShader& layer                  = AddLayer(shader, Element::Glossy, kWhite);
    layer.Slot(Element::Roughness).color  = {0.2f, 0.2f, 0.2f};
    layer.Slot(Element::Anisotropy).color = {0.5f, 0.5f, 0.5f};
    layer.Slot(Element::Angle).color      = {0.25f, 0.25f, 0.25f};
    layer.Slot(Element::Ior).color        = {1.5f, 1.5f, 1.5f};
    PrepareShader(shader);

    SurfacePoint point = FloorPoint(shader.layers[0]);
    DeriveSurfaceTerms(point, true);
    EXPECT_NEAR(point.roughness_x, 0.1f, 1e-6f);
    EXPECT_NEAR(point.roughness_y, 0.4f, 3e-6f);
    // A quarter turn: tangent cos - bitangent sin.
    EXPECT_NEAR(point.tangent.y, -1.0f, 1e-6f);
    EXPECT_NEAR(point.bitangent.x, 1.0f, 1e-6f);
    EXPECT_NEAR(point.reflectance, 0.04f, 1e-6f);
    EXPECT_NEAR(point.transmittance, 0.96f, 1e-6f);
    EXPECT_NEAR(point.eta, 1.0f / 1.5f, 1e-6f);

    // From behind; as a slab, 0.04 + 0.96^2 0.04 / (1 - 0.04^2); without an interface; at grazing.
    const struct {
        Material material;
        float    ior;
        Vector   outgoing;
        bool     front;
        float    reflectance, eta;
    } cases[] = {{Material::Conductor, 1.5f, {0, 0, 1}, false, 0.04f, 1.5f},
                 {Material::ThinDielectric, 1.5f, {0, 0, 1}, false, 0.0769231f, 1.0f},
                 {Material::Conductor, 1.0f, {0, 0, 1}, true, 0.0f, 1.0f},
                 {Material::Conductor, 1.5f, {1, 0, 0}, true, 1.0f, 1.0f / 1.5f}};
    for (const auto& test : cases) {
        shader.layers[0].material                 = test.material;
        shader.layers[0].Slot(Element::Ior).color = kWhite * test.ior;
        point                                     = FloorPoint(shader.layers[0]);
        point.outgoing                            = test.outgoing;
        DeriveSurfaceTerms(point, test.front);
        EXPECT_NEAR(point.reflectance, test.reflectance, 1e-6f);
        EXPECT_NEAR(point.transmittance, 1.0f - test.reflectance, 1e-6f);
        EXPECT_NEAR(point.eta, test.eta, 1e-6f);
    }
}

// A shading normal whose mirror ray dips into the surface is given up, one whose mirror ray stays above is kept.
TEST_F(Shading, TheShadingNormalNeverMirrorsIntoTheSurface)
{
    Shader shader;
    PrepareShader(shader);
    for (const float degrees : {-44.0f, -20.0f, 0.0f, 20.0f, 40.0f}) {
        SurfacePoint point  = FloorPoint(shader.layers[0]);
        const float  angle  = degrees * kRadians;
        point.outgoing      = {std::sin(0.9f), 0, std::cos(0.9f)};
        point.normal        = {std::sin(angle), 0, std::cos(angle)};
        const Vector before = point.normal;
        DeriveSurfaceTerms(point, true);
        // The mirror ray of a normal tilted by `angle` leaves at 2 angle - 0.9 from the vertical.
        const bool   above    = std::fabs(2 * angle - 0.9f) < kHalfPi;
        const Vector expected = above ? before : point.geometric_normal;
        EXPECT_EQ(point.normal, expected) << degrees;
        EXPECT_NEAR(point.cos_outgoing, Dot(point.outgoing, expected), 1e-6f);
    }
}

}  // namespace
}  // namespace hv
