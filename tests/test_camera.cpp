#include "accel/ray.h"
#include "geometry/object.h"
#include "output/output.h"
#include "session/sampling.h"
#include "session/settings.h"
#include "shading/surface_point.h"

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

// ---- What a primary hit adds to the AOVs ----

struct PrimaryHitTest : CameraTest {
    PrimaryHitTest()
    {
        Camera& camera = Add(4, 2);
        camera.sample  = 2;
        for (const std::uint32_t channel :
             {4u, 8u, 16u, 32u, 64u, 128u, 256u, 512u, 1024u, 2048u, 4096u, 8192u, 16384u, 5u, 12u, 2u})
            camera.aovs.emplace_back().channel = channel;
        Prepare(camera);

        ray.thread       = 1;
        ray.weight_count = 2;
        ray.origin       = {0, 0, 0};
        PixelSlot[1]     = 6;

        point.position     = {0, 3, 4};
        point.normal       = {0, -1, 0};
        point.tangent      = {1, 0, 0};
        point.lambertian   = {1, 2, 3};
        point.transmissive = {4, 5, 6};
        point.glossy       = {7, 8, 9};
        point.specular     = {10, 11, 12};
        hit                = {{20, 21, 22}, {23, 24, 25}, {26, 27, 28}, {29, 30, 31}, {32, 33, 34}};
    }

    Color PixelOf(std::size_t aov, std::uint32_t pixel)
    {
        Color color;
        ReadImagePixel(Cameras[0].aovs[aov].image, &color.r, pixel);
        return color;
    }

    RayRecord    ray;
    SurfacePoint point;
    PrimaryHit   hit;
};

TEST_F(PrimaryHitTest, FeedsTheChannelsThatAreExactlyOne)
{
    AddPrimaryHit(ray, point, hit);
    AddPrimaryHit(ray, point, hit);  // two frames of two: the sum is the value
    const Color expected[] = {{20, 21, 22}, {1, 2, 3},    {23, 24, 25}, {4, 5, 6},       {26, 27, 28},    {7, 8, 9},
                              {29, 30, 31}, {10, 11, 12}, {32, 33, 34}, {0.5f, 0, 0.5f}, {1, 0.5f, 0.5f}, {0, 3, 4},
                              {5, 5, 5},    kBlack,       kBlack,       kBlack};
    for (std::size_t i = 0; i < std::size(expected); ++i) {
        EXPECT_EQ(PixelOf(i + 1, 6), expected[i]) << Cameras[0].aovs[i + 1].channel;
        EXPECT_EQ(PixelOf(i + 1, 5), kBlack);
    }
    EXPECT_EQ(PixelOf(0, 6), kBlack) << "beauty is averaged, not added";

    PixelSlot[1] = 4000000000u;  // beyond the film: nothing happens
    AddPrimaryHit(ray, point, hit);
}

TEST_F(PrimaryHitTest, ShowsVertexDataOfEveryKind)
{
    Part part;
    part.particles = {2};
    part.cylinders = {1};
    part.triangles = {{0, 1, 2, 0}};
    part.tetragons = {{0, 1, 2, 3, 0}};
    part.scalars.push_back({"one", {1, 10, 100, 1000}});
    part.uvs.push_back({"two", {{1, 2}, {10, 20}, {100, 200}, {1000, 2000}}});
    part.vectors.push_back({"three", {{1, 2, 3}, {10, 20, 30}, {100, 200, 300}, {1000, 2000, 3000}}});
    part.scalars.push_back({"both", {7, 7, 7, 7}});
    part.uvs.push_back({"both", {{1, 2}, {1, 2}}});  // the last list that holds a corner wins, here two of them
    ray.hit_part      = &part;
    ray.hit_primitive = 0;
    ray.weight_count  = 1;

    const struct {
        PrimitiveKind kind;
        const char*   name;
        float         u, v, w;
        Color         expected;
    } cases[]      = {{PrimitiveKind::Particle, "one", 0.3f, 0.3f, 0.3f, {100, 100, 100}},
                      {PrimitiveKind::Cylinder, "one", 9, 9, 0.25f, {32.5f, 32.5f, 32.5f}},
                      {PrimitiveKind::Triangle, "two", 0.5f, 0.25f, 0.25f, {28, 56, 0}},
                      {PrimitiveKind::Triangle, "three", 0, 1, 0, {10, 20, 30}},
                      {PrimitiveKind::Triangle, "both", 0, 0, 1, {7, 7, 7}},
                      {PrimitiveKind::Triangle, "both", 1, 0, 0, {1, 2, 0}},
                      {PrimitiveKind::Tetragon, "one", 1, 0, 0, {1000, 1000, 1000}},
                      {PrimitiveKind::Triangle, "absent", 1, 0, 0, kBlack}};
    CameraAOV& aov = Cameras[0].aovs[1];
    aov.channel    = static_cast<std::uint32_t>(Channel::UserData);
    for (const auto& test : cases) {
        aov.user_data = test.name;
        ray.hit_kind  = static_cast<std::uint8_t>(test.kind);
        ray.hit_u = test.u, ray.hit_v = test.v, ray.hit_w = test.w;
        const Color before = PixelOf(1, 6);
        AddPrimaryHit(ray, point, hit);
        const Color after = PixelOf(1, 6);
        for (int c = 0; c < 3; ++c) EXPECT_FLOAT_EQ(after[c] - before[c], test.expected[c]) << test.name;
    }
}

}  // namespace
}  // namespace hv
