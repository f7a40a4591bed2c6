#include "output/camera.h"

#include "accel/ray.h"
#include "output/output.h"
#include "session/console.h"
#include "session/sampling.h"
#include "session/settings.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>

namespace hv {
namespace {

constexpr int   kMaxFrames        = 65535;
constexpr float kMaxImageDistance = 1e18f;  // its square is still a number
constexpr float kParallelCosine   = 0.999999f;

/// "beauty-" + local time + ".hdr".
std::string DefaultAOVName()
{
    const std::time_t now = std::time(nullptr);
    std::tm           local{};
    localtime_r(&now, &local);
    char stamp[64];
    std::snprintf(stamp, sizeof stamp, "beauty-%04d%02d%02d-%02d%02d%02d.hdr", local.tm_year + 1900, local.tm_mon + 1,
                  local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    return stamp;
}

bool IsSet(const CameraPose& pose, PoseField field) { return pose.set_fields >> static_cast<unsigned>(field) & 1u; }

/// A field that only one of the poses was given holds for both; one that none was given keeps its default.
template <class T>
void ShareField(CameraPose (&poses)[2], PoseField field, T CameraPose::*member)
{
    const int given = IsSet(poses[0], field) ? 0 : 1;
    const int other = 1 - given;
    if (!IsSet(poses[other], field)) poses[other].*member = poses[given].*member;
}

void FillUnsetFields(CameraPose (&poses)[2])
{
    ShareField(poses, PoseField::Position, &CameraPose::position);
    ShareField(poses, PoseField::Target, &CameraPose::target);
    ShareField(poses, PoseField::UpVector, &CameraPose::up_vector);
    ShareField(poses, PoseField::Bokeh, &CameraPose::bokeh);
    ShareField(poses, PoseField::FieldOfView, &CameraPose::field_of_view);
}

bool Differ(const CameraPose& a, const CameraPose& b)
{
    return a.position != b.position || a.target != b.target || a.up_vector != b.up_vector || a.bokeh != b.bokeh ||
           a.field_of_view != b.field_of_view;
}

void ReportCamera(const Camera& camera)
{
    std::int64_t bytes = 0;
    for (const CameraAOV& aov : camera.aovs) bytes += ImageBytes(aov.image);
    ReportCount("camera sensor width ", camera.width, "pixels");
    ReportCount("camera sensor height", camera.height, "pixels");
    ReportValue("camera memory       ", static_cast<float>(bytes) / 1048576.0f, "M bytes");
    PrintRule();
}

/// Equal values blend to that value: a camera at rest makes the same rays at all times.
float  Blend(float a, float b, float t) { return a == b ? a : (1.0f - t) * a + t * b; }
Vector Blend(Vector a, Vector b, float t) { return {Blend(a.x, b.x, t), Blend(a.y, b.y, t), Blend(a.z, b.z, t)}; }

/// Spherical, but for nearly parallel and opposite vectors, where the sine below says nothing.
Vector BlendUpVectors(Vector a, Vector b, float t)
{
    const float d = Dot(a, b);
    if (a == b || std::fabs(d) > kParallelCosine) return Blend(a, b, t);
    const float angle = std::acos(std::clamp(d, -1.0f, 1.0f));
    const float sine  = std::sin(angle);
    return std::sin((1.0f - t) * angle) / sine * a + std::sin(t * angle) / sine * b;
}

/// From (right, forward, up) terms to world space.
Vector ToWorld(const CameraPose& pose, Vector v)
{
    const float* m = pose.transposed;
    return {m[0] * v.x + m[1] * v.y + m[2] * v.z, m[3] * v.x + m[4] * v.y + m[5] * v.z,
            m[6] * v.x + m[7] * v.y + m[8] * v.z};
}

void StartPath(const Camera& camera, RayRecord& ray, int x, int y, int thread)
{
    const float* jitter  = PixelJitterTable[y & 31][x & 31];
    ray.jitter[0]        = jitter[0];
    ray.jitter[1]        = jitter[1];
    ray.sample_index     = 0;
    ray.dimension        = 0;
    ray.throughput       = kWhite;
    ray.hit_primitive    = kNone;
    ray.from_primitive   = kNone;
    ray.hit_kind         = 0;
    ray.from_kind        = 0;
    ray.element_before   = ElementCode::SpecularReflection;
    ray.element          = ElementCode::SpecularReflection;
    ray.depth            = 0;
    ray.diffuse_bounces  = 0;
    ray.glossy_bounces   = 0;
    ray.specular_bounces = 0;
    ray.is_secondary     = 0;
    ray.stores_caustics  = 0;
    ray.thread           = static_cast<std::uint8_t>(thread);
    ray.weight_count     = static_cast<std::uint32_t>(std::clamp(camera.sample, 1, kMaxFrames));
    ray.refraction       = camera.ior;
}

/// Turns the ray about its point in focus, so that all rays of a pixel meet there. Directions fill the cone evenly by
/// solid angle: the cosine is uniform between that of the half-angle and 1.
void BlurRay(const CameraPose& pose, RayRecord& ray)
{
    const Vector d     = ray.direction;
    const Vector focus = ray.origin + d * pose.focus_distance;
    const Vector e1    = PerpendicularTo(d);
    const Vector e2    = Cross(e1, d);

    const float w1     = HardwareRandom();
    const float w2     = HardwareRandom();
    const float cosine = 1.0f - w2 * (1.0f - std::cos(pose.bokeh * kRadians));
    const float sine   = SafeRoot(1.0f - cosine * cosine);
    const float phi    = w1 * kTwoPi;

    ray.direction = sine * std::cos(phi) * e2 + sine * std::sin(phi) * e1 + cosine * d;
    ray.origin    = focus - ray.direction * pose.focus_distance;
}

void AimPerspective(const Camera& camera, const CameraPose& pose, RayRecord& ray, int x, int y, float u1, float u2)
{
    const float a = static_cast<float>(x) - static_cast<float>(camera.width) * 0.5f + u1;
    const float b = static_cast<float>(camera.height) * 0.5f - static_cast<float>(y) - u2;
    ray.origin    = pose.position;
    ray.direction = Normalized(ToWorld(pose, {a, pose.image_distance, b}));
    if (pose.bokeh > 0.0f) BlurRay(pose, ray);
}

/// Longitude across, latitude down: the centre looks along forward, the top row along up. Unit length by itself.
void AimPanorama(const Camera& camera, const CameraPose& pose, RayRecord& ray, int x, int y, float u1, float u2)
{
    const float phi   = (static_cast<float>(x) + u1) / static_cast<float>(camera.width) * kTwoPi - kHalfPi;
    const float theta = (static_cast<float>(y) + u2) / static_cast<float>(camera.height) * kPi;
    const float sine  = std::sin(theta);
    ray.origin        = pose.position;
    ray.direction     = ToWorld(pose, {-std::cos(phi) * sine, std::sin(phi) * sine, std::cos(theta)});
}

}  // namespace

void CameraDefaults(Camera& camera)
{
    camera = Camera{};
    CameraAOV beauty;
    beauty.image.path = DefaultAOVName();
    camera.aovs.push_back(std::move(beauty));
}

void PrepareCamera(Camera& camera)
{
    camera.sample         = std::clamp(camera.sample, 1, kMaxFrames);
    camera.inverse_sample = 1.0f / static_cast<float>(camera.sample);
    camera.x0             = std::max(camera.x0, 0);
    camera.y0             = std::max(camera.y0, 0);
    camera.x1             = std::min(camera.x1, camera.width);
    camera.y1             = std::min(camera.y1, camera.height);

    FillUnsetFields(camera.poses);
    for (CameraPose& pose : camera.poses) PreparePose(pose, camera.width);
    camera.moving = Differ(camera.poses[0], camera.poses[1]);

    for (CameraAOV& aov : camera.aovs) PrepareAOV(aov, camera.width, camera.height);
    ReportCamera(camera);
}

bool IsFilmPrepared(const Camera& camera)
{
    if (camera.aovs.empty()) return false;
    const Image& image = camera.aovs[0].image;
    return image.loaded && image.width == camera.width && image.height == camera.height;
}

void PreparePose(CameraPose& pose, int width)
{
    const Vector view = pose.target - pose.position;
    pose.forward      = Normalized(view);
    pose.right        = Normalized(Cross(pose.forward, Normalized(pose.up_vector)));
    pose.up           = Normalized(Cross(pose.right, pose.forward));
    for (int axis = 0; axis < 3; ++axis) {
        pose.transposed[3 * axis]     = pose.right[axis];
        pose.transposed[3 * axis + 1] = pose.forward[axis];
        pose.transposed[3 * axis + 2] = pose.up[axis];
    }
    const float distance = static_cast<float>(width) * 0.5f / std::tan(pose.field_of_view * kRadians * 0.5f);
    pose.image_distance  = std::fabs(distance) < kMaxImageDistance ? distance : kMaxImageDistance;
    pose.focus_distance  = Length(view);
}

CameraPose InterpolatePose(const Camera& camera, float t)
{
    const CameraPose& start = camera.poses[0];
    const CameraPose& end   = camera.poses[1];

    CameraPose pose;
    pose.position      = Blend(start.position, end.position, t);
    pose.target        = Blend(start.target, end.target, t);
    pose.bokeh         = Blend(start.bokeh, end.bokeh, t);
    pose.field_of_view = Blend(start.field_of_view, end.field_of_view, t);
    pose.up_vector     = BlendUpVectors(start.up_vector, end.up_vector, t);
    PreparePose(pose, camera.width);
    return pose;
}

void GenerateCameraRay(const Camera& camera, const CameraPose& pose, RayRecord& ray, int x, int y, int thread)
{
    StartPath(camera, ray, x, y, thread);
    PixelSlot[thread] =
        static_cast<std::uint32_t>(camera.width) * static_cast<std::uint32_t>(y) + static_cast<std::uint32_t>(x);

    const float u1 = HardwareRandom();
    const float u2 = HardwareRandom();
    if (camera.projection == Projection::Spherical)
        AimPanorama(camera, pose, ray, x, y, u1, u2);
    else
        AimPerspective(camera, pose, ray, x, y, u1, u2);
}

}  // namespace hv
