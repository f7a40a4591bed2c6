#include "transport/direct.h"

#include "accel/accel.h"
#include "output/output.h"
#include "session/settings.h"
#include "transport/aov_weight.h"
#include "transport/branches.h"
#include "transport/diffusion.h"

#include <algorithm>

namespace hv {

ElementRadiance& ElementRadiance::operator+=(const ElementRadiance& other)
{
    lambertian += other.lambertian;
    transmissive += other.transmissive;
    glossy += other.glossy;
    specular += other.specular;
    return *this;
}

RayRecord ShadowRay(const RayRecord& ray, const SurfacePoint& point)
{
    RayRecord shadow;
    shadow.jitter[0]      = ray.jitter[0];
    shadow.jitter[1]      = ray.jitter[1];
    shadow.dimension      = ray.dimension;
    shadow.origin         = point.position;
    shadow.from_surface   = &point;
    shadow.from_shader    = ray.hit_shader;
    shadow.from_primitive = ray.hit_primitive;
    shadow.from_kind      = ray.hit_kind;
    shadow.hit_kind       = kNoKind;
    shadow.element        = ElementCode::Shadow;
    shadow.element_before = ray.element == ElementCode::Shadow ? ray.element_before : ray.element;
    shadow.thread         = ray.thread;
    shadow.is_secondary   = 1;
    return shadow;
}

float SurfaceMean(const SurfacePoint& point)
{
    float mean = 0.0f;
    if (point.has_lambertian) mean = std::max(mean, Mean(point.lambertian));
    if (point.has_transmissive) mean = std::max(mean, Mean(point.transmissive));
    if (point.has_glossy) mean = std::max(mean, Mean(point.glossy));
    return mean;
}

bool EntersByDiffusion(const SurfacePoint& point)
{
    const Color& variance = point.diffusion;
    return point.has_diffusion && std::min({variance.r, variance.g, variance.b}) > 0.0f;
}

Color MoveByDiffusion(const RayRecord& ray, const SurfacePoint& point, SurfacePoint& place, RayRecord& shadow)
{
    DiffusionProbe probe;
    FindDiffusionProbe(ray, point, probe);
    place.position         = probe.point.position;
    place.tangent          = probe.point.tangent;
    place.bitangent        = probe.point.bitangent;
    place.normal           = probe.point.normal;
    place.geometric_normal = probe.point.geometric_normal;
    shadow.origin          = place.position;
    shadow.from_primitive  = probe.primitive;
    shadow.from_kind       = probe.kind;
    return probe.weight;
}

Color Visibility(RayRecord& shadow, Vector d, float distance)
{
    shadow.direction = d;
    shadow.distance  = distance;
    return TraceOcclusion(shadow) ? kBlack : shadow.throughput;
}

bool CanReceive(const Receiver& at, Vector d)
{
    if (at.is_hair) return true;
    const float shading = Dot(d, at.point.normal), geometric = Dot(d, at.point.geometric_normal);
    if (shading > 0.0f && geometric > 0.0f) return at.point.has_lambertian || at.point.has_glossy;
    return shading < 0.0f && geometric < 0.0f && at.point.has_transmissive;
}

void AddToLightAOV(CameraAOV& aov, const RayRecord& ray, const SurfacePoint& point, const ElementRadiance& light)
{
    const auto has = [&aov](Channel channel) { return (aov.channel & static_cast<std::uint32_t>(channel)) != 0; };
    const std::uint32_t pixel = PixelSlot[ray.thread];
    const Color         share = AOVWeight(aov, ray);
    if (has(Channel::Lambertian)) AddToAOV(aov, pixel, light.lambertian * point.lambertian * share);
    if (has(Channel::Transmissive)) AddToAOV(aov, pixel, light.transmissive * point.transmissive * share);
    if (has(Channel::Glossy)) AddToAOV(aov, pixel, light.glossy * point.glossy * share);
}

}  // namespace hv
