// Shaders: preparation, choice of a layer, what surfaces let through, the terms of a hit.

#include "shading/shading.h"

#include <gtest/gtest.h>

#include <cmath>

namespace hv {
namespace {

/// Empties the registry before and after.
struct Shading : testing::Test {
    Shading() { Clear(); }
    ~Shading() override { Clear(); }

    static void Clear()
    {
        Shaders.clear();
        ShaderTraits.clear();
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
    } cases[] = {{{}, {0}, {0}},     {{Both}, {0}, {0}},         {{Face}, {0}, {1}},
                 {{Back}, {1}, {0}}, {{Face, Face}, {0, 1}, {}}, {{Both, Face, Back}, {0, 1}, {0, 2}}};
    for (const auto& test : cases) {
        Shader shader;
        for (const Sideness side : test.given) shader.layers.emplace_back().sideness = side;
        PrepareShader(shader);
        EXPECT_EQ(std::vector<int>(shader.face_layers, shader.face_layers + shader.face_layer_count), test.face);
        EXPECT_EQ(std::vector<int>(shader.back_layers, shader.back_layers + shader.back_layer_count), test.back);
    }
}

TEST_F(Shading, SidesSummariseTheLayersTheyHold)
{
    Shader shader, crowded;
    AddLayer(shader, Element::Emissive, {0, 0, 2}).sideness  = Sideness::Back;
    AddLayer(shader, Element::Transmissive, kWhite).sideness = Sideness::Face;
    shader.layers[1].virtual_light                           = true;
    PrepareShader(shader);
    EXPECT_TRUE(shader.back_emissive && shader.face_transmissive && shader.face_virtual_light);
    EXPECT_FALSE(shader.face_emissive || shader.back_transmissive || shader.back_virtual_light);

    crowded.layers.resize(300);
    for (std::size_t i = 0; i < 300; ++i) crowded.layers[i].sideness = i < 290 ? Sideness::Back : Sideness::Face;
    crowded.layers[20].Slot(Element::Emissive).color = kWhite;
    PrepareShader(crowded);
    EXPECT_EQ(crowded.face_layer_count, 0u) << "position 290 does not fit a byte";
    EXPECT_EQ(crowded.back_layer_count, 16u);
    EXPECT_FALSE(crowded.back_emissive);
}

TEST_F(Shading, EmptyShadersTakeOverUndefinedWhichIsMadeAnewIfNeeded)
{
    AddLayer(Shaders[FindOrAddShader("lamp")], Element::Emissive, kWhite).sideness = Sideness::Face;
    FindOrAddShader("empty");
    PrepareShaders();
    ASSERT_EQ(Shaders.size(), 3u);
    for (const std::size_t i : {1, 2}) {
        EXPECT_EQ(Shaders[i].name, "undefined");
        EXPECT_FLOAT_EQ(SideLayer(Shaders[i], true, 0).Slot(Element::Lambertian).color.g, 0.85f);
    }
    // Preparation may run again.
    const std::size_t layer_count = Shaders[0].layers.size();
    FindOrAddShader("late");
    PrepareShaders();
    EXPECT_EQ(Shaders[0].layers.size(), layer_count);
    EXPECT_EQ(ShaderTraits.size(), 4u);
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

// The byte of the walks may promise opacity only where the full evaluation is black, and must where a layer is.
TEST_F(Shading, TraitsNameVisibilityAndOpaqueSides)
{
    using namespace shader_traits;
    const int both = kFrontOpaque | kBackOpaque;
    const struct {
        Element  element;
        Color    color;
        Material material;
        Sideness sideness;
        int      expected;
    } cases[] = {{Element::Lambertian, kWhite, Material::Conductor, Sideness::Both, 3 | both},
                 {Element::ShadowTransparency, {0, 0, 1e-6f}, Material::Conductor, Sideness::Both, 3},
                 {Element::ShadowTransparency, kWhite, Material::Dielectric, Sideness::Face, 3 | kBackOpaque},
                 {Element::Specular, kWhite, Material::ThinDielectric, Sideness::Both, 3},
                 {Element::Specular, kWhite, Material::Dielectric, Sideness::Both, 3 | both},
                 {Element::ShadowTransparency, kWhite, Material::ThinDielectric, Sideness::Both, 3 | both}};
    for (const auto& test : cases) {
        AddLayer(Shaders.emplace_back(), test.element, test.color, test.material).sideness = test.sideness;
        PrepareShader(Shaders.back());
    }
    RefreshShaderTraits();
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(ShaderTraits[i], cases[i].expected) << i;
        for (const int side : {kFrontOpaque, kBackOpaque}) {
            SurfacePoint point;
            for (point.cos_outgoing = 0; point.cos_outgoing <= 1; point.cos_outgoing += 0.25f)
                EXPECT_TRUE(!(ShaderTraits[i] & side) ||
                            Transparency(Shaders[i], side == kFrontOpaque, point) == kBlack)
                    << i;
        }
    }
    Shaders[5].geometry_shader.visibility = Visibility::CameraPrimary;
    RefreshShaderTraits();
    EXPECT_EQ(ShaderTraits[5], 1 | both);
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
    layer.Slot(Element::Roughness).color  = kWhite * 0.2f;
    layer.Slot(Element::Anisotropy).color = kWhite * 0.5f;
    layer.Slot(Element::Angle).color      = kWhite * 0.25f;
    PrepareShader(shader);
    // Glass of both sides; as a slab, 0.04 + 0.96^2 0.04 / (1 - 0.04^2); without an interface; at grazing.
    const struct {
        Material material;
        float    ior;
        Vector   outgoing;
        bool     front;
        float    reflectance, eta;
    } cases[] = {{Material::Conductor, 1.5f, {0, 0, 1}, true, 0.04f, 1.0f / 1.5f},
                 {Material::Conductor, 1.5f, {0, 0, 1}, false, 0.04f, 1.5f},
                 {Material::ThinDielectric, 1.5f, {0, 0, 1}, false, 0.0769231f, 1.0f},
                 {Material::Conductor, 1.0f, {0, 0, 1}, true, 0.0f, 1.0f},
                 {Material::Conductor, 1.5f, {1, 0, 0}, true, 1.0f, 1.0f / 1.5f}};
    for (const auto& test : cases) {
        shader.layers[0].material                 = test.material;
        shader.layers[0].Slot(Element::Ior).color = kWhite * test.ior;
        SurfacePoint point                        = FloorPoint(shader.layers[0]);
        point.outgoing                            = test.outgoing;
        DeriveSurfaceTerms(point, test.front);
        EXPECT_NEAR(point.reflectance, test.reflectance, 1e-6f);
        EXPECT_NEAR(point.transmittance, 1.0f - test.reflectance, 1e-6f);
        EXPECT_NEAR(point.eta, test.eta, 1e-6f);
        EXPECT_NEAR(point.roughness_x, 0.1f, 1e-6f);
        EXPECT_NEAR(point.roughness_y, 0.4f, 3e-6f);
        EXPECT_NEAR(point.tangent.y, -1.0f, 1e-6f) << "a quarter turn: tangent cos - bitangent sin";
        EXPECT_NEAR(point.bitangent.x, 1.0f, 1e-6f);
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
