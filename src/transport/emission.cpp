#include "lights/lights.h"
#include "output/output.h"
#include "session/settings.h"
#include "shading/hair.h"
#include "shading/shading.h"
#include "transport/aov_weight.h"
#include "transport/branches.h"
#include "transport/transport.h"

#include <algorithm>
#include <cmath>

// Light that rays meet: emission of surfaces and the sky. Of what direct lighting samples as well a ray brings the
// share that is left to it.
namespace hv {

namespace {

/// Whether nothing but this ray can bring the emission of the surface that it hit, so that it counts in full.
bool IsOnlyWay(const RayRecord& ray, const SurfacePoint& point)
{
    if (!point.virtual_light || GeometryLight.sample < 1 || !HasEmitterList() || ScatterBounces(ray) == 0) return true;
    // What the list of points cannot hold is never drawn: a window's sky, and surfaces that no draw leads to.
    if (point.layer->window || !MayHoldEmitterPoint(*ray.hit_part, static_cast<PrimitiveKind>(ray.hit_kind),
                                                    ray.hit_primitive, ray.front_side != 0))
        return true;
    if (!IsSpecular(ray.element)) return false;
    if (ray.element_before == ElementCode::GlossyReflection) return true;
    const bool after_diffuse =
        ray.element_before == ElementCode::Lambertian || ray.element_before == ElementCode::Transmissive;
    return after_diffuse && GeometryLight.photon < 1;
}

/// Whether direct lighting at the vertex that the ray left had the ray's direction to choose from.
bool MayShare(const RayRecord& ray)
{
    return ray.element >= ElementCode::Lambertian && ray.element <= ElementCode::GlossyReflection &&
           std::fabs(ray.refraction - 1.0f) < 1e-8f;
}

float HairScatterDensity(const RayRecord& ray)
{
    const SurfacePoint& from = *ray.from_surface;
    if (ray.element == ElementCode::Lambertian) return HairDiffuse(from.outgoing, ray.direction, from.tangent);
    if (ray.element != ElementCode::GlossyReflection || ray.from_lobe >= kHairLobeCount) return 0.0f;
    float densities[kHairLobeCount];
    HairLobeDensities(*from.hair, from.outgoing, ray.direction, from.tangent, densities);
    return densities[ray.from_lobe];
}

/// Density (1/sr) with which the vertex that the ray left scattered into its direction.
float ScatterDensity(const RayRecord& ray)
{
    if (!ray.from_surface) return 0.0f;
    if (ray.from_kind == static_cast<std::uint8_t>(PrimitiveKind::Cylinder)) return HairScatterDensity(ray);
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

/// The ray's share by the balance heuristic (Veach and Guibas 1995): the densities of light and surface, at the vertex
/// behind a first one with the number of their samples.
float ScatteredShare(const RayRecord& ray, float light, float light_count, float surface)
{
    if (ScatterBounces(ray) == 1) {
        light *= light_count;
        surface *= static_cast<float>(std::max(Settings.RendererSample, 0));
    }
    const float sum = light + surface;
    return sum > 0.0f ? surface / sum : 0.0f;
}

/// Share of an emission that direct sampling of the emitters leaves to the ray.
float EmissionShare(const RayRecord& ray, const SurfacePoint& point)
{
    if (!MayShare(ray) || !(point.cos_outgoing > 0.0f)) return 0.0f;
    const float surface = ScatterDensity(ray);
    if (!(surface > 0.0f)) return 0.0f;
    const float area  = GeometryLight.area;
    const float light = area > 0.0f ? ray.distance * ray.distance / (point.cos_outgoing * area) : 0.0f;
    return ScatteredShare(ray, light, static_cast<float>(GeometryLight.sample), surface);
}

/// Share of the sky that direct sampling leaves to the ray.
float SkyLightShare(const RayRecord& ray)
{
    if (SkyLight.sample < 1 || !HasSkyTables() || ScatterBounces(ray) == 0 || !MayShare(ray)) return 1.0f;
    return ScatteredShare(ray, SkyDensity(ray.direction), static_cast<float>(SkyLight.sample), ScatterDensity(ray));
}

/// The channel of a light's AOV that collects what an element brought; 0 for none.
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

/// Whether an AOV of the geometry light collects what `channel` brought: a share by bit, any other by the whole value.
bool Collects(const CameraAOV& aov, std::uint32_t channel)
{
    return aov.is_share ? (aov.channel & channel) != 0 : aov.channel == channel;
}

[[gnu::noinline]] void AddToGeometryAOVs(const RayRecord& ray, Color emission)
{
    const std::uint32_t channel = AOVChannel(ray.element);
    for (CameraAOV& aov : GeometryLightAOVs) {
        const bool any_shader = aov.shader == -1 || static_cast<std::uint32_t>(aov.shader) == ray.hit_shader;
        if (any_shader && Collects(aov, channel)) AddToAOV(aov, PixelSlot[ray.thread], emission * AOVWeight(aov, ray));
    }
}

/// Meant: but for shares, every AOV of the sky takes what any ray brings.
[[gnu::noinline]] void AddToSkyAOVs(const RayRecord& ray, Color light)
{
    const std::uint32_t channel = AOVChannel(ray.element);
    if (channel == 0) return;
    for (CameraAOV& aov : SkyLightAOVs)
        if (!aov.is_share || Collects(aov, channel)) AddToAOV(aov, PixelSlot[ray.thread], light * AOVWeight(aov, ray));
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
    if (point.layer->has_lambertian) density += DensitySameSide(ray);
    if (point.layer->has_transmissive) density += DensityOtherSide(ray);
    return density;
}

}  // namespace

Color SurfaceEmission(const RayRecord& ray, const SurfacePoint& point)
{
    Color emission = DensityAt(ray, point);
    if (!IsLinked(GeometryLight.link_shaders, ray.from_shader)) return emission * point.transmittance;
    const float share = IsOnlyWay(ray, point) ? 1.0f : EmissionShare(ray, point);
    if (share > 0.0f) emission += OwnEmission(ray, point) * share;
    if (!GeometryLightAOVs.empty()) AddToGeometryAOVs(ray, emission);
    return emission * point.transmittance;
}

Color MissRadiance(const RayRecord& ray)
{
    if (!IsLinked(SkyLight.link_shaders, ray.from_shader)) return kBlack;
    const Color light = SkyRadiance(ray) * SkyLightShare(ray);
    if (!SkyLightAOVs.empty()) AddToSkyAOVs(ray, light);
    return light;
}

}  // namespace hv
