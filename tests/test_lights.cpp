// Lights: defaults, links, and what preparation derives.

#include "base/constants.h"
#include "geometry/object.h"
#include "lights/lights.h"
#include "output/camera.h"
#include "session/console.h"
#include "shading/shading.h"

#include <gtest/gtest.h>

#include <cmath>

namespace hv {
namespace {

/// Starts from defaults in a scene of radius 1 about (0, 0, 1).
class Lights : public testing::Test {
protected:
    void SetUp() override
    {
        SkyLightDefaults();
        GeometryLightDefaults();
        SceneCenter = {0, 0, 1};
        SceneRadius = 1;
        for (const char* name : {"undefined", "floor", "wall", "floor"}) Shaders.emplace_back().name = name;
    }
    void TearDown() override
    {
        SetUp();
        PointLights.clear();
        ParallelLights.clear();
        SkyLightAOVs.clear();
        Shaders.clear();
        Cameras.clear();
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

using Indices = std::vector<std::uint32_t>;

TEST_F(Lights, LinksNameExistingShadersOnly)
{
    SkyLight.link_names   = {"wall", "roof", "floor", "Wall"};
    SkyLight.link_shaders = {3};
    Report(PrepareSkyLight);
    EXPECT_EQ(SkyLight.link_shaders, (Indices{3, 2, 1}));
    EXPECT_EQ(Shaders.size(), 4u);
    EXPECT_TRUE(IsLinked({}, 7));
    EXPECT_TRUE(IsLinked({1, 7}, 7));
    EXPECT_FALSE(IsLinked({1, 7}, kNone));
}

TEST_F(Lights, SkyFrameBecomesOrthonormal)
{
    SkyLight.zenith = {0, 3, 0};
    SkyLight.north  = {5, 2, 0};
    Report(PrepareSkyLight);
    EXPECT_EQ(SkyLight.zenith, (Vector{0, 1, 0}));
    EXPECT_EQ(SkyLight.north, (Vector{1, 0, 0}));
}

TEST_F(Lights, SkyWithoutAPictureIsNotSampled)
{
    Report(PrepareSkyLight);
    EXPECT_EQ(SkyLight.sample, 0);
    EXPECT_EQ(SkyLight.photon, 1000000);
    EXPECT_NEAR(SkyLight.sky_scale.g, 4 * kPi, 1e-5f);
    SkyLight.color = {0, 1.0f / 1024, 0};
    Report(PrepareSkyLight);
    EXPECT_EQ(SkyLight.photon, 0);
}

TEST_F(Lights, SkyWarnsOfPicturesAndKeepsItsColour)
{
    SkyLight.image.path      = "sky.hdr";
    const std::string report = Report(PrepareSkyLight);
    EXPECT_NE(report.find("image - pictures are not read yet: sky.hdr"), std::string::npos);
    EXPECT_EQ(SkyColor({0, 0, 1}), (Color{0.75f, 0.75f, 0.75f}));
}

TEST_F(Lights, DefaultsLeaveTheSkyModelAlone)
{
    SkyLight.turbidity                   = 4;
    SkyLight.sun_direction               = {0, 0, 1};
    SkyLight.volume_shader.transmittance = kBlack;
    SkyLight.link_shaders                = {1};
    FinalizeSkyLight();
    EXPECT_EQ(SkyLight.turbidity, 4.0f);
    EXPECT_EQ(SkyLight.sun_direction, (Vector{0, 0, 1}));
    EXPECT_EQ(SkyLight.volume_shader.transmittance, kWhite);
    EXPECT_TRUE(SkyLight.link_shaders.empty());
    SkyLight.turbidity     = SkyLightState{}.turbidity;
    SkyLight.sun_direction = SkyLightState{}.sun_direction;
}

TEST_F(Lights, APointLightAimsAtASceneThatItStandsOutsideOf)
{
    const struct {
        float height;
        bool  outside;
        float solid_angle;  ///< of the photons: 2 pi (1 - cos asin(R / d)) or the whole sphere
    } cases[] = {{3.0f, false, 0.8417872f}, {1.5f, true, 12.566371f}};
    for (const auto& test : cases) {
        PointLight& light = PointLights.emplace_back();
        light.position    = {0, 0, test.height};
        light.photon      = 10;
        light.color       = {1, 2, 4};
        light.outer_angle = 90;
        light.direction   = {0, 0, -5};
        Report(PrepareGaffer);
        EXPECT_EQ(light.outside, test.outside);
        EXPECT_NEAR(light.photon_power.b, 4 * test.solid_angle, 1e-4f);
        EXPECT_NEAR(light.outer_radians, kHalfPi, 1e-6f);
        EXPECT_EQ(light.direction, (Vector{0, 0, -1}));
        PointLights.clear();
    }
}

TEST_F(Lights, AParallelLightSpansABasisAboutItsDirection)
{
    // The last direction is the one at which the general rule for a perpendicular fails.
    for (const Vector direction : {Vector{0, 0, -2}, Vector{1, 2, 3}, Vector{1, 1, -1}}) {
        ParallelLight& light = ParallelLights.emplace_back();
        light.axis           = direction;
        light.blur           = 60;
        light.photon         = 1;
        Report(PrepareGaffer);
        EXPECT_NEAR(Dot(light.axis, light.axis), 1.0f, 1e-5f);
        EXPECT_NEAR(Dot(light.e1, light.axis), 0.0f, 1e-5f);
        const Vector turned = Cross(light.e1, light.e2) - light.axis;
        EXPECT_NEAR(Dot(turned, turned), 0.0f, 1e-10f);
        EXPECT_NEAR(light.cone, 0.5f, 1e-6f);
        EXPECT_NEAR(light.photon_power.r, kPi, 1e-5f);
        ParallelLights.clear();
    }
}

TEST_F(Lights, WithoutEmittersNoPhotonsAreCast)
{
    Report(PrepareGeometryLight);
    EXPECT_EQ(GeometryLight.area, 0.0f);
    EXPECT_EQ(GeometryLight.photon, 0);
}

TEST_F(Lights, ReportsNameAreasCountsAndMemory)
{
    PointLights.resize(3);
    const std::string gaffer = Report(PrepareGaffer);
    EXPECT_NE(gaffer.find("parallel lights                0 [ n/a ]\npoint    lights                3 [ n/a ]\n"
                          "parallel lights           0.0000 [ M bytes ]\npoint    lights "),
              std::string::npos)
        << gaffer;
    EXPECT_NE(Report(PrepareGeometryLight).find("geometry light area             0.0000 [ m x m ]\n"),
              std::string::npos);
    EXPECT_NE(Report(PrepareSkyLight).find("sky light map width                   0 [ n/a ]\n"), std::string::npos);
}

}  // namespace
}  // namespace hv
