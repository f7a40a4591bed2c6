#include "base/constants.h"
#include "lights/lights.h"
#include "session/sampling.h"
#include "shading/hair.h"
#include "transport/branches.h"
#include "transport/diffusion.h"
#include "transport/spawn.h"
#include "transport/transport.h"

#include <algorithm>

namespace hv {

// The functions that hold a child record are kept out of line: the frames that stay on the stack while a path grows are
// then those of one lobe, not of all four.

namespace {

/// Sum of what the rays of one lobe brought, and how many were traced.
struct Tally {
    Color sum;
    int   traced = 0;

    Color Mean() const { return traced > 0 ? sum / static_cast<float>(traced) : sum; }
};

/// A child of branch k, one of `branches.count` in this frame, of which `gain` tells how many are lost.
RayRecord SpawnBranch(const RayRecord& ray, const SurfacePoint& point, const Branches& branches, std::uint32_t k,
                      ElementCode element, Vector direction, Color throughput, float gain = 1.0f)
{
    RayRecord child    = SpawnChild(ray, point, element, direction, throughput);
    child.sample_index = k;
    child.weight_count *= branches.count;
    child.share_gain *= gain;
    return child;
}

/// The picture takes the mean over the rays that a vertex traces, AOVs divide by all of its branches. Shares of lights
/// are to add up to the picture, so the difference has to be known before the first ray goes out; nothing else asks for
/// it.
bool NeedsGain(const Branches& branches) { return branches.count > 1 && CollectsLightShares(); }

float GainOf(const Branches& branches, int traced)
{
    return traced > 0 ? static_cast<float>(branches.count) / static_cast<float>(traced) : 1.0f;
}

/// One cosine lobe: above the surface (side 1) or through it (side -1).
struct CosineLobe {
    ElementCode element;
    float       side;
    Color       throughput;
    float       gain = 1.0f;
};

/// Direction of branch k; false when it is lost, as the shading normal may lean over the true surface.
bool DrawCosine(const RayRecord& ray, const SurfacePoint& point, const CosineLobe& lobe, const Branches& branches,
                std::uint32_t k, Vector& direction)
{
    const NumberPair u = PairOf(ray, branches.dimension, k);
    direction          = SampleCosine(point, u.a, u.b, lobe.side);
    return lobe.side * Dot(direction, point.geometric_normal) > 0.0f;
}

[[gnu::noinline]] float CosineGain(const RayRecord& ray, const SurfacePoint& point, const CosineLobe& lobe,
                                   const Branches& branches)
{
    int    traced = 0;
    Vector direction;
    for (std::uint32_t k = branches.first; k < branches.end; k += branches.stride)
        traced += DrawCosine(ray, point, lobe, branches, k, direction) ? 1 : 0;
    return GainOf(branches, traced);
}

[[gnu::noinline]] void TraceCosine(const RayRecord& ray, const SurfacePoint& point, const CosineLobe& lobe,
                                   const Branches& branches, std::uint32_t k, Tally& tally)
{
    Vector direction;
    if (!DrawCosine(ray, point, lobe, branches, k, direction)) return;
    RayRecord child = SpawnBranch(ray, point, branches, k, lobe.element, direction, lobe.throughput, lobe.gain);
    tally.sum += Radiance(child);
    ++tally.traced;
}

/// The same from a place nearby on the same shader, which the light enters instead.
[[gnu::noinline]] void TraceDiffused(const RayRecord& ray, const SurfacePoint& point, const CosineLobe& lobe,
                                     const Branches& branches, std::uint32_t k, Tally& tally)
{
    DiffusionProbe probe;
    FindDiffusionProbe(ray, point, probe);
    const NumberPair u         = PairOf(ray, branches.dimension, k);
    const Vector     direction = SampleCosine(probe.point, u.a, u.b, lobe.side);
    if (!(Dot(direction, probe.point.geometric_normal) > 0.0f)) return;
    RayRecord child =
        SpawnBranch(ray, probe.point, branches, k, lobe.element, direction, lobe.throughput * probe.weight);
    child.from_primitive = probe.primitive;
    child.from_kind      = probe.kind;
    tally.sum += Radiance(child) * probe.weight;
    ++tally.traced;
}

/// Light over a cosine lobe of a surface. Directions are drawn with density cos / pi (1/sr), which cancels the cosine
/// and the 1/pi of the lobe: each child counts with weight one.
Color ScatterCosine(const RayRecord& ray, const SurfacePoint& point, CosineLobe lobe)
{
    if (!IsPresent(lobe.throughput) || !MayScatter(ray)) return kBlack;
    const Branches branches = SplitBranches(ray, Mean(lobe.throughput), Settings.RendererSample);
    // Diffusion acts at the first scattering of a path only, and on reflection only.
    const bool diffused = point.has_diffusion && lobe.element == ElementCode::Lambertian && ScatterBounces(ray) == 0;
    Tally      tally;
    if (!diffused && NeedsGain(branches)) lobe.gain = CosineGain(ray, point, lobe, branches);
    for (std::uint32_t k = branches.first; k < branches.end; k += branches.stride)
        (diffused ? TraceDiffused : TraceCosine)(ray, point, lobe, branches, k, tally);
    return (tally.Mean() + CausticEstimate(ray, point)) * point.transmittance;
}

[[gnu::noinline]] Color TraceHairCosine(const RayRecord& ray, const SurfacePoint& point, const Branches& branches,
                                        std::uint32_t k, Color throughput)
{
    const NumberPair u         = PairOf(ray, branches.dimension, k);
    const Vector     direction = SampleCosine(point, u.a, u.b, 1.0f);
    RayRecord        child     = SpawnBranch(ray, point, branches, k, ElementCode::Lambertian, direction, throughput);
    child.from_lobe            = 255;
    return Radiance(child);
}

/// A fibre has no inside to test against: every direction counts.
Color ScatterHairCosine(const RayRecord& ray, const SurfacePoint& point)
{
    const Color throughput = ray.throughput * point.lambertian;
    if (!IsPresent(throughput) || !MayScatter(ray)) return kBlack;
    const Branches branches = SplitBranches(ray, Mean(throughput), Settings.RendererSample);
    Color          sum      = kBlack;
    for (std::uint32_t k = branches.first; k < branches.end; k += branches.stride)
        sum += TraceHairCosine(ray, point, branches, k, throughput);
    return sum / static_cast<float>(branches.count);
}

[[gnu::noinline]] Color TraceHairLobe(const RayRecord& ray, const SurfacePoint& point, const Branches& branches,
                                      std::uint32_t k, Color throughput)
{
    const HairSample sample = SampleHair(*point.hair, point.outgoing, point.tangent);
    RayRecord        child  = SpawnBranch(ray, point, branches, k, ElementCode::GlossyReflection, sample.direction,
                                          throughput * sample.weight);
    child.from_lobe         = static_cast<std::uint8_t>(sample.lobe);
    return Radiance(child) * sample.weight;
}

/// Light over the lobes of a fibre. Directions are drawn lobe by lobe with the density of the lobe, so that each child
/// counts with what the lobe leaves of the light.
Color ScatterHairLobes(const RayRecord& ray, const SurfacePoint& point, Color throughput)
{
    const Branches branches = SplitBranches(ray, Mean(throughput), Settings.RendererSample);
    Color          sum      = kBlack;
    for (std::uint32_t k = branches.first; k < branches.end; k += branches.stride)
        sum += TraceHairLobe(ray, point, branches, k, throughput);
    return sum / static_cast<float>(branches.count);
}

/// A ray mirrored at n, with c = -(d . n).
Vector Mirror(Vector d, Vector n, float c) { return d + 2.0f * c * n; }

/// Refraction of `ray` at `normal` into `out`, below the true surface. Sets `total` on total internal reflection.
bool RefractBelow(const RayRecord& ray, const SurfacePoint& point, Vector normal, float c, Vector& out, bool& total)
{
    total = Refract(out, ray.direction, normal, point.eta, c);
    return !total && Dot(out, point.geometric_normal) < -1e-8f;
}

/// One sample of the glossy lobe: a half vector splits the ray as a mirror would be split at its normal.
struct GlossySample {
    Vector reflected, refracted;
    bool   reflects, refracts;
    bool   total = false;  ///< all is reflected
};

GlossySample DrawGlossy(const RayRecord& ray, const SurfacePoint& point, const Branches& branches, std::uint32_t k)
{
    const NumberPair u    = PairOf(ray, branches.dimension, k);
    const Vector     half = SampleWardHalf(point, u.a, u.b);
    const float      c    = -Dot(ray.direction, half);
    GlossySample     sample;
    sample.refracts =
        point.material == Material::Dielectric && RefractBelow(ray, point, half, c, sample.refracted, sample.total);
    sample.reflected = Mirror(ray.direction, half, c);
    sample.reflects  = Dot(sample.reflected, point.geometric_normal) > 0.0f;
    return sample;
}

/// One side of the glossy lobe.
struct GlossySide {
    Tally tally;
    float gain = 1.0f;
};

[[gnu::noinline]] void FindGlossyGains(const RayRecord& ray, const SurfacePoint& point, const Branches& branches,
                                       GlossySide& reflected, GlossySide& refracted)
{
    int reflections = 0, refractions = 0;
    for (std::uint32_t k = branches.first; k < branches.end; k += branches.stride) {
        const GlossySample sample = DrawGlossy(ray, point, branches, k);
        reflections += sample.reflects ? 1 : 0;
        refractions += sample.refracts ? 1 : 0;
    }
    reflected.gain = GainOf(branches, reflections);
    refracted.gain = GainOf(branches, refractions);
}

[[gnu::noinline]] void TraceGlossyRefraction(const RayRecord& ray, const SurfacePoint& point, const Branches& branches,
                                             std::uint32_t k, Vector direction, Color throughput, GlossySide& side)
{
    RayRecord child  = SpawnBranch(ray, point, branches, k, ElementCode::GlossyRefraction, direction,
                                   throughput * point.transmittance, side.gain);
    child.refraction = RefractionBehind(ray, point.eta);
    side.tally.sum += Radiance(child) * point.transmittance;
    ++side.tally.traced;
}

[[gnu::noinline]] void TraceGlossyReflection(const RayRecord& ray, const SurfacePoint& point, const Branches& branches,
                                             std::uint32_t k, Vector direction, Color throughput, float weight,
                                             GlossySide& side)
{
    RayRecord child =
        SpawnBranch(ray, point, branches, k, ElementCode::GlossyReflection, direction, throughput * weight, side.gain);
    side.tally.sum += Radiance(child) * weight;
    ++side.tally.traced;
}

void TraceGlossy(const RayRecord& ray, const SurfacePoint& point, const Branches& branches, std::uint32_t k,
                 Color throughput, GlossySide& reflected, GlossySide& refracted)
{
    const GlossySample sample = DrawGlossy(ray, point, branches, k);
    if (sample.refracts) TraceGlossyRefraction(ray, point, branches, k, sample.refracted, throughput, refracted);
    if (!sample.reflects) return;
    const float weight = sample.total ? 1.0f : point.reflectance;
    TraceGlossyReflection(ray, point, branches, k, sample.reflected, throughput, weight, reflected);
}

[[gnu::noinline]] Color TraceSpecularRefraction(const RayRecord& ray, const SurfacePoint& point, Vector direction,
                                                Color throughput)
{
    RayRecord child =
        SpawnChild(ray, point, ElementCode::SpecularRefraction, direction, throughput * point.transmittance);
    child.refraction = RefractionBehind(ray, point.eta);
    if (point.material == Material::ThinDielectric) {
        // To light selection a thin sheet is not there: the path keeps the identity that it had before.
        child.element        = ray.element;
        child.element_before = ray.element_before;
        child.from_surface   = ray.from_surface;
    }
    return Radiance(child) * point.transmittance;
}

[[gnu::noinline]] Color TraceSpecularReflection(const RayRecord& ray, const SurfacePoint& point, Vector direction,
                                                Color throughput, float weight)
{
    RayRecord child = SpawnChild(ray, point, ElementCode::SpecularReflection, direction, throughput * weight);
    return Radiance(child) * weight;
}

}  // namespace

Color ScatterLambertian(const RayRecord& ray, const SurfacePoint& point)
{
    if (IsHair(ray)) return ScatterHairCosine(ray, point);
    return ScatterCosine(ray, point,
                         {ElementCode::Lambertian, 1.0f, ray.throughput * point.lambertian * point.transmittance});
}

Color ScatterTransmissive(const RayRecord& ray, const SurfacePoint& point)
{
    // Meant: the Fresnel factor scales the result, but takes no part in the throughput.
    return ScatterCosine(ray, point, {ElementCode::Transmissive, -1.0f, ray.throughput * point.transmissive});
}

Color ScatterGlossy(const RayRecord& ray, const SurfacePoint& point)
{
    const Color throughput = ray.throughput * point.glossy;
    if (!IsPresent(throughput) || !MayScatter(ray)) return kBlack;
    if (IsHair(ray)) return ScatterHairLobes(ray, point, throughput);
    const float    mean     = Mean(throughput) * std::max(point.transmittance, point.reflectance);
    const Branches branches = SplitBranches(ray, mean, Settings.RendererSample);
    GlossySide     reflected, refracted;
    if (NeedsGain(branches)) FindGlossyGains(ray, point, branches, reflected, refracted);
    for (std::uint32_t k = branches.first; k < branches.end; k += branches.stride)
        TraceGlossy(ray, point, branches, k, throughput, reflected, refracted);
    return reflected.tally.Mean() + refracted.tally.Mean();
}

Color ScatterSpecular(const RayRecord& ray, const SurfacePoint& point)
{
    const Color throughput = ray.throughput * point.specular;
    if (!IsPresent(throughput)) return kBlack;
    Color  sum   = kBlack;
    bool   total = false;
    Vector direction;
    if (point.material != Material::Conductor &&
        RefractBelow(ray, point, point.normal, point.cos_outgoing, direction, total))
        sum += TraceSpecularRefraction(ray, point, direction, throughput);
    direction = Mirror(ray.direction, point.normal, point.cos_outgoing);
    if (Dot(direction, point.geometric_normal) > 0.0f)
        sum += TraceSpecularReflection(ray, point, direction, throughput, total ? 1.0f : point.reflectance);
    return sum;
}

}  // namespace hv
