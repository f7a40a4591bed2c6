#include "accel/ray.h"
#include "geometry/object.h"
#include "output/output.h"
#include "scene_fixture.h"
#include "session/sampling.h"
#include "session/settings.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace hv {
namespace {

void Set(CameraPose& pose, PoseField field) { pose.set_fields |= 1u << static_cast<unsigned>(field); }

void Aim(CameraPose& pose, Vector position, Vector target, Vector up, float field_of_view, float bokeh = 0.0f)
{
    pose.position      = position;
    pose.target        = target;
    pose.up_vector     = up;
    pose.field_of_view = field_of_view;
    pose.bokeh         = bokeh;
    for (const PoseField field :
         {PoseField::Position, PoseField::Target, PoseField::UpVector, PoseField::Bokeh, PoseField::FieldOfView})
        Set(pose, field);
}

struct CameraTest : testing::Test {
    CameraTest() { FillSamplingTables(); }
    ~CameraTest() override { Cameras.clear(); }

    /// A small film, silent.
    Camera& Add(int width, int height)
    {
        Camera& camera = Cameras.emplace_back();
        CameraDefaults(camera);
        camera.width  = width;
        camera.height = height;
        return camera;
    }

    std::string Prepare(Camera& camera)
    {
        testing::internal::CaptureStdout();
        PrepareCamera(camera);
        return testing::internal::GetCapturedStdout();
    }

    RayRecord Ray(const Camera& camera, int x, int y, float t = 0.5f)
    {
        RayRecord ray;
        GenerateCameraRay(camera, InterpolatePose(camera, t), ray, x, y, 3);
        return ray;
    }
};

struct Film {
    double x, y, depth;
};

/// Where a point falls on the film, in pixels from the top left, by similar triangles.
Film Project(const CameraPose& pose, int width, int height, Vector point)
{
    const Vector view = pose.target - pose.position, across = Cross(view, pose.up_vector), up = Cross(across, view);
    const auto   along = [&](Vector axis) { return double{Dot(point - pose.position, axis) / Length(axis)}; };
    const double pixel = 2.0 * std::tan(pose.field_of_view * M_PI / 360.0) * along(view) / width;
    return {width * 0.5 + along(across) / pixel, height * 0.5 - along(up) / pixel, along(view)};
}

// Every ray of a pixel, followed to any distance, projects back into that pixel; over many rays it fills the pixel.
TEST_F(CameraTest, PerspectiveRaysProjectBackIntoTheirPixel)
{
    Camera& camera = Add(64, 36);
    Aim(camera.poses[0], {3, -4, 2}, {-1, 5, 0.5f}, {0.2f, 0.1f, 3}, 65.0f);
    Prepare(camera);
    for (const auto& [x, y] : {std::pair{0, 0}, {63, 0}, {0, 35}, {63, 35}, {40, 9}}) {
        double low[2] = {1e9, 1e9}, high[2] = {-1e9, -1e9};
        for (int i = 0; i < 400; ++i) {
            const RayRecord ray = Ray(camera, x, y);
            ASSERT_NEAR(Dot(ray.direction, ray.direction), 1.0f, 1e-6f);
            const Vector point = ray.origin + ray.direction * (0.5f + static_cast<float>(i));
            const Film   film  = Project(camera.poses[0], 64, 36, point);
            ASSERT_GT(film.depth, 0.0);
            const double offset[2] = {film.x - x, film.y - y};
            for (int axis = 0; axis < 2; ++axis) {
                low[axis]  = std::min(low[axis], offset[axis]);
                high[axis] = std::max(high[axis], offset[axis]);
            }
        }
        for (int axis = 0; axis < 2; ++axis) {
            EXPECT_GT(low[axis], -1e-3);
            EXPECT_LT(high[axis], 1.0 + 1e-3);
            EXPECT_GT(high[axis] - low[axis], 0.95);
        }
    }
}

// All rays of a blurred pixel meet in the plane of focus; about the sharp ray they fill a cone evenly by solid angle,
// so the cosine is uniform between that of the half-angle and 1, and the azimuth uniform.
TEST_F(CameraTest, BokehIsAnEvenConeThatMeetsInFocus)
{
    constexpr int   kCount = 20000;
    constexpr float kAngle = 10.0f;

    Camera& camera = Add(1 << 20, 1);  // pixels far smaller than the tolerances, so that a pixel has one sharp ray
    Aim(camera.poses[0], {1, 2, 3}, {1, 7, 3}, {0, 0, 1}, 40.0f, kAngle);
    Prepare(camera);
    const double span = 1.0 - std::cos(kAngle * M_PI / 180.0);
    double       sum = 0.0, squares = 0.0, sine = 0.0, cosine = 0.0;
    for (int i = 0; i < kCount; ++i) {
        const RayRecord ray = Ray(camera, 1 << 19, 0);
        EXPECT_NEAR(Length(ray.origin + ray.direction * 5.0f - Vector{1, 7, 3}), 0.0f, 1e-4f);
        const double height  = (1.0 - ray.direction.y) / span;
        const double azimuth = std::atan2(ray.direction.z, ray.direction.x);
        ASSERT_LE(height, 1.0 + 1e-3);
        sum += height / kCount;
        squares += height * height / kCount;
        sine += std::sin(azimuth) / kCount;
        cosine += std::cos(azimuth) / kCount;
    }
    EXPECT_NEAR(sum, 0.5, 0.01);
    EXPECT_NEAR(squares, 1.0 / 3.0, 0.01);
    EXPECT_NEAR(sine, 0.0, 0.03);
    EXPECT_NEAR(cosine, 0.0, 0.03);
}

// The centre looks along forward, a quarter to the right along right, the top along up.
TEST_F(CameraTest, PanoramaIsTheRightWayRound)
{
    Camera& camera    = Add(4000, 2000);
    camera.projection = Projection::Spherical;
    Aim(camera.poses[0], {5, 5, 5}, {5, 6, 5}, {0, 0, 1}, 45.0f, 30.0f);  // a blur that must not show
    Prepare(camera);
    const struct {
        int    x, y;
        Vector direction;
    } cases[] = {{2000, 1000, {0, 1, 0}}, {3000, 1000, {1, 0, 0}},  {1000, 1000, {-1, 0, 0}},
                 {0, 1000, {0, -1, 0}},   {2000, 1999, {0, 0, -1}}, {2000, 500, {0, std::sqrt(0.5f), std::sqrt(0.5f)}}};
    for (const auto& test : cases) {
        const RayRecord ray = Ray(camera, test.x, test.y);
        EXPECT_NEAR(Length(ray.direction - test.direction), 0.0f, 0.005f) << test.x << ' ' << test.y;
        EXPECT_EQ(ray.origin, (Vector{5, 5, 5}));
    }
}

TEST_F(CameraTest, PosesBlendOverTheShutter)
{
    Camera& camera = Add(8, 8);
    Aim(camera.poses[0], {0, 0, 0}, {0, 1, 0}, {0, 0, 1}, 40.0f, 1.0f);
    Aim(camera.poses[1], {4, 0, 0}, {4, 1, 0}, {1, 0, 0}, 60.0f, 3.0f);
    Prepare(camera);
    const CameraPose quarter = InterpolatePose(camera, 0.25f);
    EXPECT_EQ(quarter.position, (Vector{1, 0, 0}));
    EXPECT_EQ(quarter.field_of_view, 45.0f);
    EXPECT_EQ(quarter.bokeh, 1.5f);
    EXPECT_NEAR(quarter.up.x, std::sin(M_PI / 8.0), 1e-6);  // a quarter of the right angle, at even speed
    EXPECT_NEAR(quarter.up.z, std::cos(M_PI / 8.0), 1e-6);
    camera.poses[1].up_vector = {0, 0, -1};  // opposite: blended linearly
    EXPECT_EQ(InterpolatePose(camera, 0.25f).up_vector, (Vector{0, 0, 0.5f}));
}

TEST_F(CameraTest, DegeneratePosesGiveNoInfiniteFilm)
{
    CameraPose pose;
    pose.target = pose.position;
    for (const float field_of_view : {0.0f, 1e-30f, 180.0f, 360.0f, std::numeric_limits<float>::quiet_NaN()}) {
        pose.field_of_view = field_of_view;
        PreparePose(pose, 4000);
        EXPECT_LE(std::fabs(pose.image_distance), 1e18f) << field_of_view;
        EXPECT_TRUE(IsFinite(pose.right) && IsFinite(pose.forward) && IsFinite(pose.up));
        EXPECT_EQ(pose.focus_distance, 1e-5f);
    }
}

// A film that is no film, or that no machine has memory for, is told in one line and leaves an empty picture.
TEST_F(CameraTest, ImpossibleFilmsAreToldAndLeftEmpty)
{
    const int sizes[][2] = {{0, 10}, {10, -1}, {2147483647, 2147483647}, {65535, 65535}, {2147483647, 1 << 10}};
    for (const auto& [width, height] : sizes) {
        Camera&           camera = Add(width, height);
        const std::string report = Prepare(camera);
        if (camera.aovs[0].image.loaded) continue;  // a machine with that much memory
        EXPECT_EQ(report.rfind("error :( \t", 0), 0u) << report;
        EXPECT_FALSE(IsFilmPrepared(camera));
        AddToAOV(camera.aovs[0], 0, kWhite);
    }
}

// Faces and fibres show their albedo under an even sky, and data of vertices that are places the place that is hit;
// along a fibre it goes in eight steps.
TEST(VertexData, IsBlendedOverAPrimitive)
{
    const float places[] = {-1, 0, -1, 1, 0, -1, 1, 0, 1, -1, 0, 1}, radii[] = {0.5f, 0.5f, 0.5f, 0.5f};
    const int   corners[] = {0, 1, 2, 3};
    const Color albedo{0.5f, 0.25f, 1.0f};
    for (const PrimitiveKind kind : {PrimitiveKind::Triangle, PrimitiveKind::Tetragon, PrimitiveKind::Cylinder}) {
        TestScene scene;
        const int part = hvAddPart(0), aov = hvAddCameraAOV(0);
        hvSetShaderID(0, part, scene.AddShader(Element::Lambertian, albedo));
        hvAddPositions(0, part, 4, places);
        hvAddRadii(0, part, 4, radii);
        hvAddVertexData(0, part, "place", 3, 4, places);
        if (kind == PrimitiveKind::Triangle) hvAddTriangles(0, part, 1, corners);
        if (kind == PrimitiveKind::Tetragon) hvAddTetragons(0, part, 1, corners);
        if (kind == PrimitiveKind::Cylinder) hvAddCylinders(0, part, 1, corners);
        hvSetCameraAOVChannel(0, aov, Channel::UserData);
        hvSetCameraAOVUserData(0, aov, "place");
        const Vector place{0.3f, 0, kind == PrimitiveKind::Cylinder ? -1.0f : -0.4f};
        scene.LookFrom(place - Vector{0, 2, 0}, place, 0.01f);
        ExpectColor(scene.RenderPixel(), albedo, 1e-5f);
        hvxImage image{};
        ASSERT_TRUE(hvxGetCameraAOV(0, aov, &image));
        const Color seen{image.pixels[0], image.pixels[1], image.pixels[2]};
        ExpectColor(seen, {place.x, place.y, place.z}, kind == PrimitiveKind::Cylinder ? 0.25f : 1e-4f);
    }
}

}  // namespace
}  // namespace hv
