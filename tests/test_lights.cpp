// Lights: links, and what preparation derives.

#include "base/constants.h"
#include "geometry/object.h"
#include "lights/lights.h"
#include "output/camera.h"
#include "shading/shading.h"

#include <gtest/gtest.h>

namespace hv {
namespace {

/// Starts from defaults in a scene of radius 1 about (0, 0, 1).
class Lights : public testing::Test {
protected:
    void SetUp() override
    {
        Clear();
        SceneCenter = {0, 0, 1};
        SceneRadius = 1;
        for (const char* name : {"undefined", "floor", "wall", "floor"}) Shaders.emplace_back().name = name;
    }
    void TearDown() override { Clear(); }

    static void Clear()
    {
        SkyLightDefaults();
        GeometryLightDefaults();
        PointLights.clear();
        ParallelLights.clear();
        Shaders.clear();
        SceneCenter = {};
        SceneRadius = 0;
    }

    template <class Stage>
    static std::string Report(Stage stage)
    {
        testing::internal::CaptureStdout();
        stage();
        return testing::internal::GetCapturedStdout();
    }
};

TEST_F(Lights, LinksNameExistingShadersOnly)
{
    using Indices         = std::vector<std::uint32_t>;
    SkyLight.link_names   = {"wall", "roof", "floor", "Wall"};
    SkyLight.link_shaders = {3};
    Report(PrepareSkyLight);
    EXPECT_EQ(SkyLight.link_shaders, (Indices{3, 2, 1}));
    EXPECT_EQ(Shaders.size(), 4u);
    EXPECT_TRUE(IsLinked({}, 7) && IsLinked({1, 7}, 7));
    EXPECT_FALSE(IsLinked({1, 7}, kNone));
}

TEST_F(Lights, TheSkyGetsAFrameAndItsPower)
{
    SkyLight.zenith = {0, 3, 0};
    SkyLight.north  = {5, 2, 0};
    Report(PrepareSkyLight);
    EXPECT_EQ(SkyLight.zenith, (Vector{0, 1, 0}));
    EXPECT_EQ(SkyLight.north, (Vector{1, 0, 0}));
    EXPECT_EQ(SkyColor({0, 0, 1}), (Color{0.75f, 0.75f, 0.75f}));
    EXPECT_NEAR(SkyLight.sky_scale.g, 4 * kPi, 1e-5f);
    EXPECT_EQ(SkyLight.sample, 0);
}

TEST_F(Lights, WithoutLightNoPhotonsAreCast)
{
    SkyLight.color = {0, 1.0f / 1024, 0};
    Report(PrepareSkyLight);
    Report(PrepareGeometryLight);
    EXPECT_EQ(SkyLight.photon, 0);
    EXPECT_EQ(GeometryLight.photon, 0);
}

TEST_F(Lights, APointLightAimsAtASceneThatItStandsOutsideOf)
{
    const struct {
        float height;
        bool  outside;
        float solid_angle;  ///< of the photons: 2 pi (1 - cos asin(R / d)) or the whole sphere
    } cases[] = {{3.0f, false, 0.8417872f}, {1.5f, true, 12.566371f}};
    for (const auto& test : cases) {
        PointLight light;
        light.position    = {0, 0, test.height};
        light.photon      = 10;
        light.color       = {1, 2, 4};
        light.outer_angle = 90;
        light.direction   = {0, 0, -5};
        PointLights       = {light};
        Report(PrepareGaffer);
        EXPECT_EQ(PointLights[0].outside, test.outside);
        EXPECT_NEAR(PointLights[0].photon_power.b, 4 * test.solid_angle, 1e-4f);
        EXPECT_NEAR(PointLights[0].outer_radians, kHalfPi, 1e-6f);
        EXPECT_EQ(PointLights[0].direction, (Vector{0, 0, -1}));
    }
}

TEST_F(Lights, AParallelLightSpansABasisAboutItsDirection)
{
    // The last direction is the one at which the general rule for a perpendicular fails.
    for (const Vector direction : {Vector{0, 0, -2}, Vector{1, 2, 3}, Vector{1, 1, -1}}) {
        ParallelLights.assign(1, {});
        ParallelLight& light = ParallelLights[0];
        light.axis           = direction;
        light.blur           = 60;
        light.photon         = 1;
        Report(PrepareGaffer);
        EXPECT_NEAR(Length(light.axis), 1.0f, 1e-5f);
        EXPECT_NEAR(Dot(light.e1, light.axis), 0.0f, 1e-5f);
        EXPECT_NEAR(Length(Cross(light.e1, light.e2) - light.axis), 0.0f, 1e-5f);
        EXPECT_NEAR(light.cone, 0.5f, 1e-6f);
        EXPECT_NEAR(light.photon_power.r, kPi, 1e-5f);
    }
}

}  // namespace
}  // namespace hv
