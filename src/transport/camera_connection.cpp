#include "transport/camera_connection.h"

#include "accel/accel.h"
#include "geometry/object.h"
#include "output/output.h"
#include "transport/direct.h"
#include "transport/order_free_sums.h"

namespace hv {

namespace {

/// Sums of the pixels. On while photons are cast with a seed.
OrderFreeSums ConnectionSums;

/// Whether an AOV collects light paths, and has the camera's film to do so.
bool IsLightPath(const Camera& camera, const CameraAOV& aov)
{
    return aov.channel == static_cast<std::uint32_t>(Channel::LightPath) && aov.image.loaded &&
           aov.image.width == camera.width && aov.image.height == camera.height;
}

/// Where a camera sees a point.
struct Projected {
    std::uint32_t pixel       = 0;
    float         solid_angle = 0.0f;  ///< of the pixel there, seen from the camera; 0: the point is outside the film
};

/// The film position (x, y) in pixels as a pixel.
Projected PixelAt(const Camera& camera, float x, float y, float solid_angle)
{
    const auto width = static_cast<float>(camera.width), height = static_cast<float>(camera.height);
    if (!(x >= 0.0f && y >= 0.0f && x + 1e-8f < width && y + 1e-8f < height)) return {};
    return {static_cast<std::uint32_t>(camera.width) * static_cast<std::uint32_t>(y) + static_cast<std::uint32_t>(x),
            solid_angle};
}

/// `d`: unit vector from the camera to the point.
Projected ProjectPerspective(const Camera& camera, const CameraPose& pose, Vector d)
{
    const float along = Dot(d, pose.forward);
    if (!(along > 0.0f)) return {};
    const float f = pose.image_distance;
    const float x = Dot(d, pose.right) / along * f + 0.5f * static_cast<float>(camera.width);
    const float y = -Dot(d, pose.up) / along * f + 0.5f * static_cast<float>(camera.height);
    return PixelAt(camera, x, y, along * along * along / (f * f));
}

/// The inverse of the panorama's rays: longitude across, latitude down.
Projected ProjectPanorama(const Camera& camera, const CameraPose& pose, Vector d)
{
    const auto  width = static_cast<float>(camera.width), height = static_cast<float>(camera.height);
    const float z   = std::clamp(Dot(d, pose.up), -1.0f, 1.0f);
    const float phi = std::atan2(Dot(d, pose.forward), -Dot(d, pose.right)) + kHalfPi;
    const float x   = (phi < 0.0f ? phi + kTwoPi : phi) / kTwoPi * width;
    const float y   = std::acos(z) * kInvPi * height;
    return PixelAt(camera, x, y, SafeRoot(1.0f - z * z) * kTwoPi / width * kPi / height);
}

/// Turning the shading normal away from the true one would make light from photons differ from light to a camera (Veach
/// 1997, section 5.3). Near the horizon the ratio runs away and is left out.
float ShadingNormalFactor(const SurfacePoint& point)
{
    const float geometric = Dot(point.outgoing, point.geometric_normal);
    return geometric >= 1e-6f ? Dot(point.outgoing, point.normal) / geometric : 1.0f;
}

Color LightToCamera(const RayRecord& photon, const SurfacePoint& point, Vector towards, float distance)
{
    RayRecord shadow = ShadowRay(photon, point);
    return Visibility(shadow, towards, distance);
}

void AddToLightPaths(Camera& camera, std::uint32_t pixel, Color value)
{
    if (ConnectionSums.IsOn()) return ConnectionSums.Add(pixel, value);
    for (CameraAOV& aov : camera.aovs)
        if (IsLightPath(camera, aov)) AddToAOV(aov, pixel, value);
}

}  // namespace

bool CollectsLightPaths()
{
    const Camera* camera = ActiveCamera();
    return camera &&
           std::ranges::any_of(camera->aovs, [camera](const CameraAOV& aov) { return IsLightPath(*camera, aov); });
}

void ConnectToCamera(const RayRecord& photon, const SurfacePoint& point, Color value)
{
    if (!CollectsLightPaths() || photon.throughput == kBlack) return;
    Camera&           camera  = *ActiveCamera();
    const CameraPose& pose    = camera.poses[0];
    const Vector      to      = pose.position - point.position;
    const float       squared = Dot(to, to);
    if (!(Dot(to, point.geometric_normal) > 0.0f)) return;
    const Vector    towards = Normalized(to);
    const Projected seen    = camera.projection == Projection::Spherical ? ProjectPanorama(camera, pose, -towards)
                                                                         : ProjectPerspective(camera, pose, -towards);
    if (!(seen.solid_angle > 0.0f)) return;

    const float weight =
        Dot(point.geometric_normal, towards) * ShadingNormalFactor(point) / (squared * seen.solid_angle);
    const Color passing = LightToCamera(photon, point, towards, Length(to));
    if (IsPresent(passing)) AddToLightPaths(camera, seen.pixel, photon.throughput * value * passing * weight);
}

void ClearConnections()
{
    ConnectionSums.Stop();
    if (!CollectsLightPaths()) return;
    Camera& camera = *ActiveCamera();
    for (CameraAOV& aov : camera.aovs)
        if (IsLightPath(camera, aov)) std::ranges::fill(aov.image.pixels32, 0.0f);
}

void StartOrderFreeConnections(double power)
{
    const Camera* camera = ActiveCamera();
    if (!CollectsLightPaths()) return;
    // A pixel sees (r / f)^2 square metres at the distance r.
    const double f      = camera->poses[0].image_distance;
    const double r      = std::max({SceneRadius, Length(camera->poses[0].position - SceneCenter), 1e-5f});
    const auto   pixels = static_cast<std::size_t>(camera->width) * static_cast<std::size_t>(camera->height);
    ConnectionSums.Start(pixels, power * f * f / (r * r));
}

void FinishOrderFreeConnections()
{
    if (!ConnectionSums.IsOn()) return;
    Camera& camera = *ActiveCamera();
    for (CameraAOV& aov : camera.aovs)
        for (std::uint32_t pixel = 0; IsLightPath(camera, aov) && pixel < ConnectionSums.Count(); ++pixel)
            AddToAOV(aov, pixel, ConnectionSums.At(pixel));
    ConnectionSums.Stop();
}

}  // namespace hv
