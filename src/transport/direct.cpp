#include "lights/lights.h"
#include "output/output.h"
#include "session/settings.h"
#include "shading/shading.h"
#include "transport/branches.h"
#include "transport/transport.h"

#include <cmath>

namespace hv {

ElementRadiance& ElementRadiance::operator+=(const ElementRadiance& other)
{
    lambertian += other.lambertian;
    transmissive += other.transmissive;
    glossy += other.glossy;
    specular += other.specular;
    return *this;
}

// Direct light sampling is not built yet: the three functions below find out whether their light acts at the vertex, and
// add nothing. Emitters and the sky are met by scattered rays, at full weight; point and parallel lights, which no ray can
// meet, stay dark.

ElementRadiance GeometryLightDirect(const RayRecord& ray, const SurfacePoint& /*point*/)
{
    if (!IsLinked(GeometryLight.link_shaders, ray.hit_shader)) return {};
    if (!(GeometryLight.area > 0.0f) || GeometryLight.sample < 1 || !HasEmitterList()) return {};
    return {};
}

ElementRadiance SkyDirect(const RayRecord& ray, const SurfacePoint& /*point*/)
{
    if (!IsLinked(SkyLight.link_shaders, ray.hit_shader) || SkyLight.sample < 1) return {};
    return {};
}

ElementRadiance PointAndParallelDirect(const RayRecord& /*ray*/, const SurfacePoint& /*point*/) { return {}; }

namespace {

bool IsSpecular(ElementCode element)
{
    return element == ElementCode::SpecularReflection || element == ElementCode::SpecularRefraction;
}

/// Whether nothing but this ray can bring the emission of the surface that it hit, so that it counts in full.
bool IsOnlyWay(const RayRecord& ray, const SurfacePoint& point)
{
    if (!point.virtual_light || GeometryLight.sample == 0 || !HasEmitterList() || ScatterBounces(ray) == 0) return true;
    if (!IsSpecular(ray.element)) return false;
    if (ray.element_before == ElementCode::GlossyReflection) return true;
    const bool after_diffuse =
        ray.element_before == ElementCode::Lambertian || ray.element_before == ElementCode::Transmissive;
    return after_diffuse && GeometryLight.photon == 0;
}

/// Density (1/sr) with which the vertex that the ray left scattered into its direction.
float ScatterDensity(const RayRecord& ray)
{
    // The densities of a fibre come with its scattering.
    if (!ray.from_surface || ray.from_kind == static_cast<std::uint8_t>(PrimitiveKind::Cylinder)) return 0.0f;
    const SurfacePoint& from = *ray.from_surface;
    switch (ray.element) {
    case ElementCode::Lambertian:
        return Dot(from.normal, ray.direction) * kInvPi;
    case ElementCode::Transmissive:
        return -Dot(from.normal, ray.direction) * kInvPi;
    case ElementCode::GlossyReflection:
        return WardLobe(from.outgoing, ray.direction, from);
    default:
        return 0.0f;
    }
}

/// Share of an emission that direct sampling of the emitters leaves to the ray: the balance heuristic (Veach 1995).
float EmissionWeight(const RayRecord& ray, const SurfacePoint& point)
{
    if (!(std::fabs(ray.refraction - 1.0f) < 1e-8f) || !(point.cos_outgoing > 0.0f)) return 0.0f;
    const float scattered = ScatterDensity(ray);
    if (!(scattered > 0.0f)) return 0.0f;
    const float area  = GeometryLight.area;
    const float light = area > 0.0f ? ray.distance * ray.distance / (point.cos_outgoing * area) : 0.0f;
    if (ScatterBounces(ray) != 1) return scattered / (light + scattered);
    const float count = static_cast<float>(Settings.RendererSample);
    return scattered * count / (static_cast<float>(GeometryLight.sample) * light + scattered * count);
}

/// The channel of a light's AOV that collects what an element brought, compared whole; 0 for none.
std::uint32_t AOVChannel(ElementCode element)
{
    switch (element) {
    case ElementCode::Lambertian:
        return static_cast<std::uint32_t>(Channel::Lambertian);
    case ElementCode::Transmissive:
        return static_cast<std::uint32_t>(Channel::Transmissive);
    case ElementCode::GlossyReflection:
    case ElementCode::GlossyRefraction:
        return static_cast<std::uint32_t>(Channel::Glossy);
    case ElementCode::SpecularReflection:
    case ElementCode::SpecularRefraction:
        return static_cast<std::uint32_t>(Channel::Specular);
    default:
        return 0;
    }
}

/// What a ray adds to the AOVs of a light that it has met.
Color AOVShare(const RayRecord& ray, Color light)
{
    return light * ray.throughput / static_cast<float>(ray.weight_count);
}

[[gnu::noinline]] void AddToGeometryAOVs(const RayRecord& ray, Color emission)
{
    const std::uint32_t channel = AOVChannel(ray.element);
    for (CameraAOV& aov : GeometryLightAOVs) {
        const bool collects = aov.shader == -1 || static_cast<std::uint32_t>(aov.shader) == ray.hit_shader;
        if (collects && aov.channel == channel) AddToAOV(aov, PixelSlot[ray.thread], AOVShare(ray, emission));
    }
}

[[gnu::noinline]] void AddToSkyAOVs(const RayRecord& ray, Color light)
{
    if (ray.element < ElementCode::Lambertian) return;
    for (CameraAOV& aov : SkyLightAOVs) AddToAOV(aov, PixelSlot[ray.thread], AOVShare(ray, light));
}

/// What the surface itself sends along the ray. A window sends the sky behind it.
Color OwnEmission(const RayRecord& ray, const SurfacePoint& point)
{
    if (point.layer->window) return SkyColor(ray.direction);
    Color emission;
    ReadSlot(point.layer->Slot(Element::Emissive), emission, point);
    return emission;
}

Color DensityAt(const RayRecord& ray, const SurfacePoint& point)
{
    Color density = kBlack;
    if (!point.use_density) return density;
    if (point.layer->has_lambertian) density += DensityFront(ray);
    if (point.layer->has_transmissive) density += DensityBack(ray);
    return density;
}

}  // namespace

Color SurfaceEmission(const RayRecord& ray, const SurfacePoint& point)
{
    Color emission = DensityAt(ray, point);
    if (!IsLinked(GeometryLight.link_shaders, ray.from_shader)) return emission * point.transmittance;
    const float weight = IsOnlyWay(ray, point) ? 1.0f : EmissionWeight(ray, point);
    if (weight > 0.0f) emission += OwnEmission(ray, point) * weight;
    if (!GeometryLightAOVs.empty()) AddToGeometryAOVs(ray, emission);
    return emission * point.transmittance;
}

Color MissRadiance(const RayRecord& ray)
{
    if (!IsLinked(SkyLight.link_shaders, ray.from_shader)) return kBlack;
    // In full on every path: without importance tables direct lighting takes no share of the sky.
    const Color light = SkyRadiance(ray);
    if (!SkyLightAOVs.empty()) AddToSkyAOVs(ray, light);
    return light;
}

}  // namespace hv
