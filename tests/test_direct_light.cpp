// Light of point and parallel lights on surfaces, through panes and media, against closed forms.

#include "light_scenes.h"
#include "lights/light.h"
#include "shading/shader.h"

#include <functional>

namespace hv {
namespace {

using enum Element;
using enum Material;

constexpr Color kTint{0.5f, 0.25f, 1.0f};

/// A float sum of few terms: relative 2e-5, which also covers the size of the pixel.
void ExpectExactly(Color actual, Color expected)
{
    ExpectColor(actual, expected, 2e-5f * (1e-3f + MaxChannel(expected)));
}

// The colour over the squared distance, no 1/pi, times the cosine less the light's offset, scaled so that 1 stays 1.
TEST(PointLight, LightsAPlaneByItsShiftedCosine)
{
    for (const float offset : {0.1f, 0.0f, 0.4f})
        for (const float degrees : {0.0f, 30.0f, 60.0f, 80.0f, 88.0f, 100.0f}) {
            DarkScene   scene;
            const float distance = 0.5f + 0.05f * degrees;
            scene.AddScreen(scene.AddShader(Lambertian, kTint));
            hvSetPointLightOffset(AddPointLight(At(degrees, distance), {1, 2, 3}), offset);
            const float shifted = (std::cos(degrees * kRadians) - offset) / (1 - offset);
            ExpectExactly(scene.RenderPixel(),
                          kTint * Color{1, 2, 3} * (std::max(shifted, 0.0f) / (distance * distance)));
        }
}

// One screen under one light of 4 at 2 m: what each lobe and material make of it, seen at 50 degrees.
TEST(PointLight, EachElementTakesItsTerm)
{
    const float seen = std::cos(50 * kRadians), thin = ThinPass(1.5f, seen);
    const float shifted = (std::cos(20 * kRadians) - 0.1f) / 0.9f;
    const float gloss   = std::cos(20 * kRadians) * 4 * kPi * Ward(At(50, 1), At(-20, 1), {0, -1, 0}, 0.3f);
    const struct {
        const char* name;
        Element     element;
        Material    material;
        float       ior, degrees, expected;
    } cases[] = {
        {"matte under an interface", Lambertian, Dielectric, 1.5f, -20, shifted * (1 - Schlick(1.5f, seen))},
        {"matte under a thin sheet", Lambertian, ThinDielectric, 1.5f, -20, shifted * thin},
        {"a sheet shows light from behind", Transmissive, Conductor, 1.0f, 160, shifted},
        {"a sheet under an interface", Transmissive, Dielectric, 1.5f, 200, shifted * (1 - Schlick(1.5f, seen))},
        {"the offset cuts grazing light from behind", Transmissive, Conductor, 1.0f, 95, 0.0f},
        {"gloss of a body", Glossy, Dielectric, 1.5f, -20, gloss * Schlick(1.5f, seen)},
        {"gloss of a thin sheet", Glossy, ThinDielectric, 1.5f, -20, gloss * (1 - thin)},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        DarkScene scene;
        scene.LookFrom(At(50, 2), {0, 0, 0}, 1e-4f);
        const int surface = scene.AddShader(test.element, kTint, test.material, test.ior);
        scene.SetSlot(surface, Roughness, kWhite * 0.3f);
        scene.AddScreen(surface);
        AddPointLight(At(test.degrees, 2), kWhite * 4.0f);
        ExpectExactly(scene.RenderPixel(), kTint * test.expected);
    }
}

// Full inside the inner cone, none outside the outer one, linear in the angle between them. A wrong order turns the
// cone inside out.
TEST(PointLight, ConesFallOffLinearlyInTheAngle)
{
    const struct {
        float inner, outer, degrees, expected;
    } cases[] = {{20, 40, 19, 1}, {20, 40, 25, 0.75f}, {20, 40, 41, 0}, {30, 30, 29, 1},
                 {30, 30, 31, 0}, {40, 20, 25, 0.25f}, {40, 20, 90, 1}, {0, 180, 45, 0.75f}};
    for (const auto& test : cases) {
        DarkScene scene;
        scene.AddScreen(scene.AddShader(Lambertian, kTint));
        const int    light = AddPointLight({0, -2, 0}, kWhite * 4.0f);
        const Vector axis  = At(180 - test.degrees, 5);  // of any length
        hvSetPointLightInnerAngle(light, test.inner);
        hvSetPointLightOuterAngle(light, test.outer);
        hvSetPointLightDirection(light, axis.x, axis.y, axis.z);
        // The arc cosine of floats is off by up to 3e-4 rad next to the axis, which only the widest cone shows: 1e-4.
        ExpectColor(scene.RenderPixel(), kTint * test.expected, 2e-4f);
    }
}

// Sources may dip below the plane, shine through cones of their own, or hide behind an edge.
TEST(PointLight, BlurredLightsAverageTheirSources)
{
    const struct {
        const char* name;
        Vector      centre;
        float       blur, edge;  ///< a blocker at y = -1 covers all x below `edge`
        float       outer;
    } cases[] = {{"half below the plane", {0.0f, -0.3f, 0.0f}, 1.0f, -10.0f, 180.0f},
                 {"each source has its cone", {0.0f, -2.0f, 0.5f}, 0.5f, -10.0f, 30.0f},
                 {"an edge beside it", {0.0f, -2.0f, 0.5f}, 0.5f, 0.1f, 180.0f}};
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        DarkScene scene;
        scene.LookFrom({0, -0.2f, 0}, {0, 0, 0}, 1e-4f);
        const int matte = scene.AddShader(Lambertian, kWhite);
        scene.AddScreen(matte);
        scene.AddQuad(matte, {{-10, -1, -10}, {test.edge, -1, -10}, {test.edge, -1, 10}, {-10, -1, 10}});
        const int light = AddPointLight(test.centre, kWhite);
        hvSetPointLightBlur(light, test.blur);
        hvSetPointLightSample(light, 4096);
        hvSetPointLightInnerAngle(light, test.outer > 90 ? 180.0f : 0.0f);
        hvSetPointLightOuterAngle(light, test.outer);
        const Moments expected = MomentsOf([&](float a, float b) {
            const float  z = 1 - 2 * b, ring = std::sqrt(1 - z * z);
            const Vector source =
                test.centre + test.blur * Vector{ring * std::cos(kTwoPi * a), ring * std::sin(kTwoPi * a), z};
            const float d2 = Dot(source, source), height = -source.y;
            if (height <= 0 || (height > 1 && source.x / height < test.edge)) return 0.0f;
            const float angle = std::acos(height / std::sqrt(d2)) / kRadians;
            const float cone  = test.outer > 90 ? 1.0f : std::max(0.0f, 1 - angle / test.outer);
            return cone * height / (d2 * std::sqrt(d2));
        });
        ExpectColor(scene.RenderPixel(), kWhite * expected.Value(), expected.Noise(4096));
    }
}

TEST(ParallelLight, LightsAtAngles)
{
    const Color behind{0.125f, 0.5f, 0.0f};
    for (const float degrees : {0.0f, 45.0f, 89.0f, 120.0f}) {
        const float shifted = (std::abs(std::cos(degrees * kRadians)) - 0.1f) / 0.9f;
        DarkScene   scene;
        const int   sheet = scene.AddShader(Lambertian, kTint);
        scene.SetSlot(sheet, Transmissive, behind);
        scene.AddScreen(sheet);
        AddParallelLight(At(degrees, 7), {1, 2, 3});
        ExpectExactly(scene.RenderPixel(), (degrees < 90 ? kTint : behind) * Color{1, 2, 3} * std::max(shifted, 0.0f));
    }
}

// The mean over the cone of directions, uniform in solid angle, above the horizon. Sampled directions know no offset.
TEST(ParallelLight, DiscsAverageTheirCone)
{
    const struct {
        Element element;
        float   degrees, blur;
    } cases[] = {{Lambertian, 40, 20}, {Lambertian, 0, 0.25f}, {Lambertian, 85, 20}, {Glossy, 30, 15}};
    for (const auto& test : cases) {
        DarkScene    scene;
        const Vector axis = Normalized(At(test.degrees, 1)), e1{0, 0, 1}, e2 = Cross(axis, e1), front{0, -1, 0};
        const int    surface = scene.AddShader(test.element, kWhite, Conductor, 3.0f);
        if (test.element == Lambertian) scene.SetSlot(surface, Ior, kWhite);
        scene.SetSlot(surface, Roughness, kWhite * 0.4f);
        scene.AddScreen(surface);
        const int light = AddParallelLight(axis, kWhite);
        hvSetParallelLightBlur(light, test.blur);
        hvSetParallelLightSample(light, 4096);
        const Moments expected = MomentsOf([&](float a, float b) {
            const float  z = 1 - b * (1 - std::cos(test.blur * kRadians)), s = std::sqrt(1 - z * z);
            const Vector d      = axis * z + e1 * (s * std::cos(kTwoPi * a)) + e2 * (s * std::sin(kTwoPi * a));
            const float  cosine = std::max(0.0f, Dot(d, front));
            if (test.element == Lambertian) return cosine;
            return cosine * 4 * kPi * Ward(front, d, front, 0.4f) * Schlick(3.0f, 1.0f);
        });
        ExpectColor(scene.RenderPixel(), kWhite * expected.Value(), expected.Noise(4096) + 1e-5f);
    }
}

// A sheet lit from behind, seen by a matte plane before it: light of the second vertex, and none where the path may not
// bounce. There the offset acts with blur as without. Under one direction the sheet shines alike everywhere, a cosine
// of 0.5 in the mean becomes 4 / 9; a point light without offset is harmonic, so that its blur changes nothing.
TEST(PointAndParallelLights, LightTheSecondVertexToo)
{
    const struct {
        bool  is_point;
        float blur, offset;
    } cases[] = {{false, 0, 0.1f}, {false, 25, 0.1f}, {true, 0, 0.1f}, {true, 0, 0}, {true, 0.5f, 0}};
    for (const auto& test : cases)
        for (const int bounce : {1, 2}) {
            DarkScene   scene(1);
            const float cosine = test.blur > 0 ? 1 / (1 + std::cos(test.blur * kRadians)) : 0.5f;
            hvSetRendererBounce(bounce);
            hvSetRendererSample(16384);
            scene.AddScreen(scene.AddShader(Lambertian, kWhite), 0, 1e5f);
            scene.AddScreen(scene.AddShader(Transmissive, kTint), -3, 1e5f);
            if (test.is_point) {
                AddPointLight({0, -5, 0}, kWhite);
                hvSetPointLightBlur(0, test.blur);
                hvSetPointLightOffset(0, test.offset);
            } else {
                hvSetParallelLightBlur(AddParallelLight(At(std::acos(cosine) / kRadians, 1), kWhite), test.blur);
            }
            const float expected =
                MomentsOf([&](float a, float) {
                    if (!test.is_point) return 4.0f / 9.0f;
                    const float d2 = 9 * a / (1 - a) + 4;  // the ray meets the sheet 3 m away, 2 m before the light
                    return std::max(0.0f, (2 / std::sqrt(d2) - test.offset) / (1 - test.offset) / d2);
                }).Value();
            // Over seeds, 16384 paths scatter by up to 0.3 %.
            ExpectColor(scene.RenderPixel(), kTint * (bounce > 1 ? expected : 0.0f), 0.01f * expected);
        }
}

/// A square in the plane z = 0 of an object of its own, turned into y and made 20 times as large. The seam of its
/// halves is beside the middle: a ray along the seam meets both.
void PlacePane(int shader, float y)
{
    const float positions[4][3] = {{-0.4f, -0.5f, 0}, {0.6f, -0.5f, 0}, {0.6f, 0.5f, 0}, {-0.4f, 0.5f, 0}};
    const int   triangles[6]    = {0, 1, 2, 0, 2, 3};
    const float matrix[4][4]    = {{20, 0, 0, 0}, {0, 0, -20, y}, {0, 20, 0, 0}, {0, 0, 0, 1}};
    const int   object = hvAddObject(), part = hvAddPart(object);
    hvSetShaderID(object, part, shader);
    hvAddPositions(object, part, 4, positions[0]);
    hvAddTriangles(object, part, 2, triangles);
    hvSetInstance(0, hvAddInstance(0), object, matrix, -1);
}

// What stands between a surface and a light of irradiance 1 lets pass. The product runs over every layer of the side
// and every surface, and ends once no channel is above 1/1024.
TEST(Shadows, PanesColourWhatTheyLetPass)
{
    using Edit            = std::function<void(int shader)>;
    const auto with_layer = [](Material material, Element element) {
        return [=](int shader) {
            hvAddSurfaceShader(shader);
            hvSetSurfaceMaterial(shader, 1, material);
            hvSetSurfaceColor(shader, 1, element, 0.5f, 0.5f, 0.5f);
        };
    };
    const auto on_side = [](Sideness side) { return [=](int shader) { hvSetSurfaceSideness(shader, 0, side); }; };
    const auto seen_by = [](Visibility who) { return [=](int shader) { hvSetShaderVisibility(shader, who); }; };
    const Edit with_shadow_slot = [](int shader) { hvSetSurfaceColor(shader, 0, ShadowTransparency, 1, 1, 1); };
    const struct {
        const char* name;
        int         count;
        Color       color;  ///< of the slot that the material asks for
        Material    material;
        float       ior, degrees;
        Color       expected;
        Edit        edit  = [](int) {};
        float       depth = -3;
    } cases[] = {
        {"a matte sheet", 1, kBlack, Conductor, 1, 0, kBlack},
        {"a matte sheet with shadow transparency", 1, kTint, Conductor, 1, 0, kTint},
        {"a dielectric with shadow transparency", 1, kTint, Dielectric, 1.5f, 0, kTint},
        {"glass, obliquely", 1, kTint, ThinDielectric, 1.5f, 60, kTint * ThinPass(1.5f, 0.5f)},
        {"a thin pane asks for no other slot", 1, kBlack, ThinDielectric, 1, 0, kBlack, with_shadow_slot},
        {"two thin layers", 1, kTint, ThinDielectric, 1, 0, kTint * 0.5f, with_layer(ThinDielectric, Specular)},
        {"a thin layer and one that blocks", 1, kTint, ThinDielectric, 1, 0, kBlack, with_layer(Conductor, Specular)},
        {"black towards the surface", 1, kTint, ThinDielectric, 1, 0, kBlack, on_side(Sideness::Face)},
        {"black towards the light", 1, kTint, ThinDielectric, 1, 0, kTint, on_side(Sideness::Back)},
        {"seen by the camera alone", 1, kBlack, Conductor, 1, 0, kWhite, seen_by(Visibility::CameraPrimary)},
        {"seen by light alone", 1, kTint, ThinDielectric, 1, 0, kTint, seen_by(Visibility::LightPrimary)},
        {"nine halves, above the cut-off", 9, kWhite * 0.5f, ThinDielectric, 1, 0, kWhite / 512},
        {"ten halves, at the cut-off", 10, kWhite * 0.5f, ThinDielectric, 1, 0, kBlack},
        {"a present channel keeps the others",
         12,
         {0.5f, 1, 0.5f},
         ThinDielectric,
         1,
         0,
         {1.0f / 4096, 1, 1.0f / 4096}},
        {"beyond the light", 1, kBlack, Conductor, 1, 0, kWhite, [](int) {}, -5.5f},
    };
    for (const auto& test : cases)
        for (const bool placed : {false, true}) {
            SCOPED_TRACE(testing::Message() << test.name << ", placed " << placed);
            DarkScene scene;
            scene.LookFrom({0, -1, 0}, {0, 0, 0}, 1e-4f);
            scene.AddScreen(scene.AddShader(Lambertian, kWhite));
            const float cosine = std::cos(test.degrees * kRadians), far = 5 / cosine;
            const int   light = AddPointLight(At(test.degrees, far), kWhite * 25 * std::pow(cosine, -3.0f));
            hvSetPointLightOffset(light, 0);
            const Element slot = test.material == ThinDielectric ? Specular : ShadowTransparency;
            const int     pane = scene.AddShader(slot, test.color, test.material, test.ior);
            test.edit(pane);
            for (int i = 0; i < test.count; ++i) {
                const float y = test.depth - 0.05f * static_cast<float>(i);
                if (placed)
                    PlacePane(pane, y);
                else
                    scene.AddScreen(pane, y);
            }
            ExpectExactly(scene.RenderPixel(), test.expected);
        }
}

// Through a slab of glass 1 m thick to a shining wall 1 m behind it: inside, the glass leaves its colour to the power
// of the refracted length; outside, the scene's medium acts on the way to the slab and behind it. The refraction state
// tells inside from outside, so a slab of index 1 is no inside at all.
TEST(Media, ASlabDimsByBeersLaw)
{
    const Color inside{0.5f, 1.0f, 0.1f}, outside{0.9f, 0.5f, 1.0f};
    const auto  power = [](Color base, float exponent) {
        return Color{std::pow(base.r, exponent), std::pow(base.g, exponent), std::pow(base.b, exponent)};
    };
    for (const float ior : {1.0f, 1.0001f, 1.5f})
        for (const float degrees : {0.0f, 40.0f, 70.0f})
            for (const bool wall : {true, false}) {
                DarkScene scene;
                hvSetRendererRayDepth(3);  // straight through and no further
                scene.LookFrom(At(degrees, 2), {0, 0, 0}, 1e-4f);
                const int glass = scene.AddShader(Specular, kWhite, Dielectric, ior);
                Shaders[static_cast<std::size_t>(glass)].volume_shader.transmittance = inside;
                SkyLight.volume_shader.transmittance                                 = outside;
                scene.AddPatch(glass, {0, 0, 0}, {50, 0, 0}, {0, 0, 50});
                scene.AddPatch(glass, {0, 1, 0}, {0, 0, 50}, {50, 0, 0});
                const float cosine = std::cos(degrees * kRadians);
                const float sine_t = std::sin(degrees * kRadians) / ior, cosine_t = std::sqrt(1 - sine_t * sine_t);
                const float fresnel[] = {Schlick(ior, cosine), Schlick(ior, cosine_t)};
                const float passed    = (1 - fresnel[0]) * (1 - fresnel[1]);
                const Color body      = power(ior > 1 ? inside : outside, 1 / cosine_t) * passed;
                Color       expected  = body * power(outside, 2);
                if (wall) {
                    scene.AddPatch(scene.AddShader(Emissive, kWhite), {0, 2, 0}, {50, 0, 0}, {0, 0, 50});
                    expected *= power(outside, 1 / cosine);
                } else {
                    // The way to the sky is never dimmed. The front mirrors it too, unless that is below the cut-off.
                    hvSetSkyLightColor(1, 1, 1);
                    expected = (body + kWhite * (fresnel[0] > kPresent ? fresnel[0] : 0)) * power(outside, 2);
                }
                ExpectColor(scene.RenderPixel(), expected, 5e-5f);
            }
}

// A vertex inside a refracting body gets no direct light, whatever lets shadow rays pass; one behind a thin pane does.
TEST(Media, SurfacesInsideGlassAreNotLitDirectly)
{
    for (const Material material : {Dielectric, ThinDielectric}) {
        DarkScene scene;
        const int glass = scene.AddShader(Specular, kWhite, material, 1.5f);
        scene.SetSlot(glass, ShadowTransparency, kWhite);
        scene.AddScreen(scene.AddShader(Lambertian, kTint), 1);
        scene.AddScreen(glass);
        AddPointLight({0, -3, 0}, kWhite * 16.0f);
        const float pass = material == ThinDielectric ? ThinPass(1.5f, 1.0f) : 0.0f;
        ExpectExactly(scene.RenderPixel(), kTint * pass * pass);
    }
}

// The medium takes from the camera's path, not from shadow rays, and AOVs stand before it.
TEST(Media, DimsTheCameraPathAlone)
{
    DarkScene scene;
    hvSetCameraAOVChannel(0, hvAddCameraAOV(0), Channel::Lambertian);
    SkyLight.volume_shader.transmittance = {0.5f, 1.0f, 0.25f};
    scene.AddScreen(scene.AddShader(Lambertian, kTint));
    const int light = AddPointLight({0, -3, 0}, kWhite * 9.0f);
    hvSetPointLightAOVChannel(light, hvAddPointLightAOV(light), Channel::Lambertian);
    ExpectExactly(scene.RenderPixel(), kTint * Color{0.25f, 1.0f, 0.0625f});
    hvxImage image{};
    ASSERT_TRUE(hvxGetCameraAOV(0, 1, &image));
    ExpectExactly({image.pixels[0], image.pixels[1], image.pixels[2]}, kTint);
    ExpectExactly(LightPixel(hvxLight::Point, light, 0), kTint);
}

}  // namespace
}  // namespace hv
