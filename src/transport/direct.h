#pragma once

#include "base/constants.h"
#include "output/aov.h"
#include "shading/hair.h"
#include "transport/branches.h"
#include "transport/transport.h"

/// The shape that all direct-lighting functions share; private to this folder.
namespace hv {

/// Where one sample of a light is received: the vertex itself, or a place nearby where diffusion lets the light in.
/// That place stands in for position and frame; flags, colours and Fresnel weights stay those of the vertex.
struct Receiver {
    const SurfacePoint& point;
    Color               weight;  ///< of the lambertian and transmissive terms
    bool                is_hair;
};

/// Which numbers a sample draws and what it weighs.
struct SampleNumber {
    std::uint32_t k;      ///< in the quasi-random sequence
    std::uint32_t total;  ///< samples over the whole render; 0 on paths that take one sample a vertex

    bool IsBranching() const { return total > 0; }
};

inline void Scale(ElementRadiance& light, Color factor)
{
    light.lambertian *= factor;
    light.transmissive *= factor;
    light.glossy *= factor;
}

/// A shadow ray that leaves the vertex, ready but for direction, distance and the light's own primitive. One serves all
/// samples of a light.
RayRecord ShadowRay(const RayRecord& ray, const SurfacePoint& point);

/// How bright the vertex can be: the branches of a light are spent in proportion.
float SurfaceMean(const SurfacePoint& point);

/// Whether light enters around the vertex by diffusion.
bool EntersByDiffusion(const SurfacePoint& point);

/// Puts the receiver of one sample somewhere around the vertex, and the start of its shadow ray with it. `place` is a
/// copy of the vertex. Returns the weight of what is received there.
Color MoveByDiffusion(const RayRecord& ray, const SurfacePoint& point, SurfacePoint& place, RayRecord& shadow);

/// Which samples a vertex takes of a light.
struct LightBudget {
    int  samples;   ///< of a first vertex over the whole render
    bool branches;  ///< whether a first vertex spends them; else one sample serves
};

/// Calls take(number) for every sample of this frame and returns the mean of what it brings.
template <class Take>
ElementRadiance MeanOfSamples(const RayRecord& ray, const SurfacePoint& point, LightBudget budget, const Take& take)
{
    if (ScatterBounces(ray) > 0 || !budget.branches) return take(SampleNumber{ray.sample_index, 0});
    const Branches  branches = SplitBranches(ray, SurfaceMean(point) * Mean(ray.throughput), budget.samples);
    ElementRadiance sum;
    for (std::uint32_t k = branches.first; k < branches.end; k += branches.stride)
        sum += take(SampleNumber{k, branches.end});
    Scale(sum, kWhite / static_cast<float>(branches.count));
    return sum;
}

/// The same where each sample is received at a place of its own.
template <class Sample>
[[gnu::noinline]] ElementRadiance SampleDiffused(const RayRecord& ray, const SurfacePoint& point, LightBudget budget,
                                                 const Sample& sample)
{
    RayRecord    shadow = ShadowRay(ray, point);
    SurfacePoint place  = point;
    return MeanOfSamples(ray, point, budget, [&](SampleNumber number) {
        const Color weight = MoveByDiffusion(ray, point, place, shadow);
        return sample(Receiver{place, weight, false}, number, shadow);
    });
}

/// What a light brings to a vertex, split by element, before the colours of the surface: the mean of its samples
/// sample(receiver, number, shadow ray). Black on paths whose bounces are spent.
template <class Sample>
ElementRadiance SampleLight(const RayRecord& ray, const SurfacePoint& point, LightBudget budget, const Sample& sample)
{
    if (!MayScatter(ray)) return {};
    if (IsFace(ray) && EntersByDiffusion(point)) return SampleDiffused(ray, point, budget, sample);
    RayRecord      shadow = ShadowRay(ray, point);
    const Receiver at{point, kWhite, IsHair(ray)};
    return MeanOfSamples(ray, point, budget, [&](SampleNumber number) { return sample(at, number, shadow); });
}

/// Share of the light that comes through from `distance` away in the unit direction d; black when the ray is blocked.
Color Visibility(RayRecord& shadow, Vector d, float distance);

/// Whether a direction lies on a side of both normals on which the receiver has an element that takes light. A fibre
/// takes light from everywhere.
bool CanReceive(const Receiver& at, Vector d);

/// Adds what a light brought to a vertex to one of its AOVs, which may collect several elements.
void AddToLightAOV(CameraAOV& aov, const RayRecord& ray, const SurfacePoint& point, const ElementRadiance& light);

/// The terms of a light that is sampled with a density. `light`: radiance over that density. weight(f): share that
/// direct sampling takes of a direction which the surface itself would choose with density f (1/sr).
template <class Weight>
ElementRadiance DensityTerms(const Receiver& at, Vector d, Color light, const Weight& weight)
{
    const SurfacePoint& point = at.point;
    ElementRadiance     terms;
    if (at.is_hair) {
        if (point.has_lambertian) {
            const float f    = HairDiffuse(point.outgoing, d, point.tangent);
            terms.lambertian = light * (f * weight(f));
        }
        if (point.has_glossy) {
            const HairLobeSet lobes = HairLobes(*point.hair, point.outgoing, d, point.tangent);
            for (int p = 0; p < 3; ++p) terms.glossy += light * lobes.colors[p] * weight(lobes.densities[p]);
        }
        return terms;
    }
    const float cosine  = Dot(d, point.normal);
    const float density = std::fabs(cosine) * kInvPi;
    light *= density;
    const Color diffuse = light * at.weight * (point.transmittance * weight(density));
    if (cosine > 0.0f) {
        if (point.has_lambertian) terms.lambertian = diffuse;
        if (point.has_glossy) {
            const float lobe = WardLobe(point.outgoing, d, point);
            if (lobe > 0.0f) terms.glossy = light * (point.reflectance * 4.0f * kPi * lobe * weight(lobe));
        }
    } else if (point.has_transmissive) {
        terms.transmissive = diffuse;
    }
    return terms;
}

/// Nothing to gain from a shadow ray.
inline bool IsDark(const ElementRadiance& terms)
{
    const auto any = [](Color c) { return c.r > 0.0f || c.g > 0.0f || c.b > 0.0f; };
    return !any(terms.lambertian) && !any(terms.transmissive) && !any(terms.glossy);
}

}  // namespace hv
