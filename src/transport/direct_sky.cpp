#include "lights/lights.h"
#include "session/settings.h"
#include "transport/direct.h"

namespace hv {

namespace {

/// Share of a sky sample against the density f with which the surface chooses its direction. Meant as they stand: half
/// the surface's samples count on surfaces and all of them on fibres, and on paths that take one sample a vertex the
/// numerator goes without the number of samples that the denominator has. So the shares of both sides do not add up to
/// one.
struct SkyShare {
    float numerator, own, surface;

    float operator()(float f) const { return numerator / (own + surface * f); }
};

SkyShare ShareOf(const Receiver& at, SampleNumber number, float density)
{
    const float all = static_cast<float>(SkyLight.sample) * density;
    if (number.IsBranching()) {
        const float count = static_cast<float>(Settings.MisSample);
        return {all, all, at.is_hair ? count : 0.5f * count};
    }
    return at.is_hair ? SkyShare{density, density, 1.0f} : SkyShare{density, all, 0.5f};
}

ElementRadiance SampleSkyDirection(const Receiver& at, SampleNumber number, RayRecord& shadow)
{
    const NumberPair u      = PairOf(shadow, shadow.dimension, number.k);
    const SkySample  sample = SampleSky(u.b, u.a);
    // Of a first vertex rare directions are left to its own rays.
    if (!(sample.density > (number.IsBranching() ? 1e-8f : 0.0f)) || !CanReceive(at, sample.direction)) return {};
    ElementRadiance terms =
        DensityTerms(at, sample.direction, sample.radiance / sample.density, ShareOf(at, number, sample.density));
    if (IsDark(terms)) return {};
    Scale(terms, Visibility(shadow, sample.direction, kFarAway));
    return terms;
}

}  // namespace

ElementRadiance SkyDirect(const RayRecord& ray, const SurfacePoint& point)
{
    if (SkyLight.sample < 1 || !HasSkyTables() || !IsLinked(SkyLight.link_shaders, ray.hit_shader)) return {};
    const ElementRadiance light = SampleLight(ray, point, {SkyLight.sample, true}, SampleSkyDirection);
    for (CameraAOV& aov : SkyLightAOVs) AddToLightAOV(aov, ray, point, light);
    return light;
}

}  // namespace hv
