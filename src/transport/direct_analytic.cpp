#include "lights/lights.h"
#include "transport/direct.h"

namespace hv {

namespace {

/// Cosines that the terms of an analytic light carry. On paths that take one sample a vertex the light's `offset`
/// narrows them: a surface has to turn towards the light by more than that to be lit.
struct Cosines {
    float reflected, transmitted, glossy;
};

Cosines CosinesOf(const Receiver& at, Vector d, float offset, SampleNumber number)
{
    const float c = Dot(d, at.point.normal);
    if (number.IsBranching()) return {c, -c, c};
    return {(c - offset) / (1.0f - offset), -(c + offset) / (1.0f - offset), c};
}

ElementRadiance HairTerms(const Receiver& at, Vector d, Color color, SampleNumber number)
{
    ElementRadiance terms;
    if (!number.IsBranching()) color *= kPi;  // meant: on paths that take one sample a vertex only
    if (at.point.has_lambertian) terms.lambertian = color * HairDiffuse(at.point.outgoing, d, at.point.tangent);
    if (at.point.has_glossy) {
        const HairLobeSet lobes = HairLobes(*at.point.hair, at.point.outgoing, d, at.point.tangent);
        terms.glossy            = color * (lobes.colors[0] + lobes.colors[1] + lobes.colors[2]);
    }
    return terms;
}

/// The terms of a light of the given colour in the unit direction d. None carries 1/pi: the colour is used as it
/// stands.
ElementRadiance AnalyticTerms(const Receiver& at, Vector d, Color color, float offset, SampleNumber number)
{
    if (at.is_hair) return HairTerms(at, d, color, number);
    const SurfacePoint& point   = at.point;
    const Cosines       cosines = CosinesOf(at, d, offset, number);
    const Color         diffuse = color * at.weight * point.transmittance;
    ElementRadiance     terms;
    if (point.has_lambertian && cosines.reflected > 0.0f) terms.lambertian = diffuse * cosines.reflected;
    if (point.has_transmissive && cosines.transmitted > 0.0f) terms.transmissive = diffuse * cosines.transmitted;
    if (point.has_glossy && cosines.glossy > 0.0f) {
        const float lobe = cosines.glossy * 4.0f * kPi * WardLobe(point.outgoing, d, point);
        if (lobe > 0.0f) terms.glossy = color * (point.reflectance * lobe);
    }
    return terms;
}

ElementRadiance SampleAnalytic(const PointLight& light, const Receiver& at, SampleNumber number, RayRecord& shadow)
{
    Vector source = light.position;
    if (light.blur > 0.0f) {
        const NumberPair u = PairOf(shadow, shadow.dimension, number.k);
        source             = PointOnSource(light, u.a, u.b);
    }
    const Vector way      = source - at.point.position;
    const float  square   = Dot(way, way);
    const float  distance = Length(way);
    const Vector d        = way / distance;
    const float  spot     = SpotFactor(light, -d);
    if (!(square > 0.0f) || !(spot > 0.0f)) return {};
    ElementRadiance terms = AnalyticTerms(at, d, light.color * (spot / square), light.offset, number);
    if (IsDark(terms)) return {};
    Scale(terms, Visibility(shadow, d, distance));
    return terms;
}

ElementRadiance SampleAnalytic(const ParallelLight& light, const Receiver& at, SampleNumber number, RayRecord& shadow)
{
    Vector d = -light.axis;
    if (light.blur > 0.0f) {
        const NumberPair u = PairOf(shadow, shadow.dimension, number.k);
        d                  = -SampleConeDirection(light, u.a, u.b);
    }
    ElementRadiance terms = AnalyticTerms(at, d, light.color, light.offset, number);
    if (IsDark(terms)) return {};
    Scale(terms, Visibility(shadow, d, kFarAway));
    return terms;
}

/// A source without extent gives the same from every sample, so one serves, unless it is received at several places.
template <class LightType>
ElementRadiance LightDirect(const RayRecord& ray, const SurfacePoint& point, LightType& light)
{
    if (!IsLinked(light.link_shaders, ray.hit_shader)) return {};
    const bool            branches = light.blur > 0.0f || EntersByDiffusion(point);
    const ElementRadiance arriving = SampleLight(ray, point, {light.sample, branches},
                                                 [&](const Receiver& at, SampleNumber number, RayRecord& shadow) {
                                                     return SampleAnalytic(light, at, number, shadow);
                                                 });
    for (CameraAOV& aov : light.aovs) AddToLightAOV(aov, ray, point, arriving);
    return arriving;
}

}  // namespace

ElementRadiance PointAndParallelDirect(const RayRecord& ray, const SurfacePoint& point)
{
    ElementRadiance sum;
    for (PointLight& light : PointLights) sum += LightDirect(ray, point, light);
    for (ParallelLight& light : ParallelLights) sum += LightDirect(ray, point, light);
    return sum;
}

}  // namespace hv
