#include "accel/accel.h"
#include "lights/lights.h"
#include "output/output.h"
#include "session/settings.h"
#include "shading/shading.h"
#include "transport/transport.h"

#include <cmath>
#include <limits>

namespace hv {

namespace {

/// Whether the path is long enough to end at a density cell, if the surface has one.
bool WantsDensity(const RayRecord& ray)
{
    if (!Settings.FinalGathering || !ray.has_density) return false;
    if (ray.diffuse_bounces >= Settings.Bounce) return true;
    return ray.diffuse_bounces != 0 && ray.distance > Settings.Distance + kRayEpsilon;
}

/// Reads the element colours of the layer. A density cell stands in for everything diffuse.
void ReadElements(SurfacePoint& point)
{
    const SurfaceShader& layer = *point.layer;
    if (point.use_density) {
        point.has_lambertian = point.has_transmissive = point.has_diffusion = false;
    } else {
        point.has_lambertian   = ReadSlot(layer.Slot(Element::Lambertian), point.lambertian, point);
        point.has_transmissive = ReadSlot(layer.Slot(Element::Transmissive), point.transmissive, point);
        point.has_diffusion    = ReadSlot(layer.Slot(Element::Diffusion), point.diffusion, point);
    }
    point.has_glossy   = ReadSlot(layer.Slot(Element::Glossy), point.glossy, point);
    point.has_specular = ReadSlot(layer.Slot(Element::Specular), point.specular, point);
}

bool CanTakeDirectLight(const RayRecord& ray, const SurfacePoint& point)
{
    if (!(std::fabs(ray.refraction - 1.0f) < 1e-8f)) return false;  // inside a refracting body
    return point.has_lambertian || point.has_transmissive || point.has_glossy ||
           ray.hit_kind == static_cast<std::uint8_t>(PrimitiveKind::Cylinder);
}

[[gnu::noinline]] void AddDirect(const RayRecord& ray, const SurfacePoint& point, ElementRadiance& light)
{
    if (!CanTakeDirectLight(ray, point)) return;
    light += GeometryLightDirect(ray, point);
    light += SkyDirect(ray, point);
    light += PointAndParallelDirect(ray, point);
}

/// Adds what arrives over scattered rays, and turns light at the elements into light from them.
void AddScattered(const RayRecord& ray, const SurfacePoint& point, ElementRadiance& light)
{
    if (point.has_lambertian) light.lambertian = (light.lambertian + ScatterLambertian(ray, point)) * point.lambertian;
    if (point.has_transmissive)
        light.transmissive = (light.transmissive + ScatterTransmissive(ray, point)) * point.transmissive;
    if (point.has_glossy) light.glossy = (light.glossy + ScatterGlossy(ray, point)) * point.glossy;
    if (point.has_specular) light.specular = (light.specular + ScatterSpecular(ray, point)) * point.specular;
}

[[gnu::noinline]] void RecordPrimaryHit(const RayRecord& ray, const SurfacePoint& point, const ElementRadiance& light,
                                        Color emission)
{
    AddPrimaryHit(ray, point, {light.lambertian, light.transmissive, light.glossy, light.specular, emission});
}

/// Colour left of light after the segment of `ray`, by Beer's law. The refraction state alone tells inside from
/// outside: a path inside a body takes the medium of the shader that it hit.
Color SegmentTransmittance(const RayRecord& ray)
{
    const Camera* camera = ActiveCamera();
    const bool    inside = std::fabs(ray.refraction - (camera ? camera->ior : 1.0f)) >= 1e-8f;
    const Color   metre  = (inside ? ShaderAt(ray.hit_shader).volume_shader : SkyLight.volume_shader).transmittance;
    if (metre == kWhite) return kWhite;
    return {std::pow(metre.r, ray.distance), std::pow(metre.g, ray.distance), std::pow(metre.b, ray.distance)};
}

bool IsPathOver(const RayRecord& ray)
{
    constexpr int kDeepest = std::numeric_limits<decltype(ray.depth)>::max();
    return ray.depth >= Settings.RayDepth || ray.depth == kDeepest || !IsPresent(ray.throughput);
}

}  // namespace

Color Radiance(RayRecord& ray)
{
    if (IsPathOver(ray)) return kBlack;
    if (!TraceClosest(ray)) return MissRadiance(ray);

    SurfacePoint point;
    point.use_density = WantsDensity(ray);
    EvaluateHit(ray, point);
    if (!point.layer) return kBlack;
    ReadElements(point);

    ElementRadiance light;
    AddDirect(ray, point, light);
    AddScattered(ray, point, light);
    const Color emission = SurfaceEmission(ray, point);
    if (ray.depth == 0) RecordPrimaryHit(ray, point, light, emission);
    const Color sum = light.lambertian + light.transmissive + light.glossy + light.specular + emission;
    return sum * SegmentTransmittance(ray);
}

}  // namespace hv
