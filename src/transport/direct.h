#pragma once

#include "base/constants.h"
#include "output/aov.h"
#include "transport/hair.h"
#include "transport/transport.h"

/// The shape that all direct-lighting functions share; private to this folder.
namespace hv {

/// Where one sample of a light is received: the vertex itself, or a place nearby where diffusion lets the light in. That
/// place stands in for position and frame; flags, colours and Fresnel weights stay those of the vertex.
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

/// One sample of a light: what it brings to the receiver, split by element, before the colours of the surface. `shadow` is
/// ready but for direction, distance and the light's own primitive.
using LightSampler = ElementRadiance (*)(const Receiver& at, SampleNumber number, RayRecord& shadow, const void* light);

/// What a light lends to the sampling of one vertex.
struct LightQuery {
    LightSampler sample;
    const void*  light;     ///< handed to `sample`
    int          budget;    ///< samples of a first vertex over the whole render
    bool         branches;  ///< whether a first vertex spends that budget; else one sample serves
};

/// Sums the samples that a vertex takes in this frame, and returns their mean. Black on paths whose budget is spent.
ElementRadiance SampleLight(const RayRecord& ray, const SurfacePoint& point, const LightQuery& query);

/// Whether light enters around the vertex by diffusion.
bool EntersByDiffusion(const SurfacePoint& point);

/// The quasi-random pair of the ray's present dimension, rotated by the pixel's offset.
struct LightNumbers {
    float a, b;
};
LightNumbers NumbersOf(const RayRecord& shadow, std::uint32_t k);

/// Share of the light that comes through from `distance` away in the unit direction d; black when the ray is blocked.
Color Visibility(RayRecord& shadow, Vector d, float distance);

/// Whether a direction lies on a side of both normals on which the receiver has an element that takes light. A fibre takes
/// light from everywhere.
bool CanReceive(const Receiver& at, Vector d);

/// Adds what a light brought to a vertex to one of its AOVs, which may collect several elements.
void AddToLightAOV(CameraAOV& aov, const RayRecord& ray, const SurfacePoint& point, const ElementRadiance& light);

/// The terms of a light that is sampled with a density. `light`: radiance over that density. weight(f): share that direct
/// sampling takes of a direction which the surface itself would choose with density f (1/sr).
template <class Weight>
ElementRadiance DensityTerms(const Receiver& at, Vector d, Color light, const Weight& weight)
{
    const SurfacePoint& point = at.point;
    ElementRadiance     terms;
    if (at.is_hair) {
        if (point.has_lambertian) {
            const float f    = HairDiffuse(point, d);
            terms.lambertian = light * (f * weight(f));
        }
        if (point.has_glossy) {
            const HairLobeSet lobes = HairLobes(point, d);
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

inline void Scale(ElementRadiance& light, Color factor)
{
    light.lambertian *= factor;
    light.transmissive *= factor;
    light.glossy *= factor;
}

}  // namespace hv
