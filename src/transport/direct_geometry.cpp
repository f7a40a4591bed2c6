#include "lights/lights.h"
#include "output/output.h"
#include "session/sampling.h"
#include "session/settings.h"
#include "transport/branches.h"
#include "transport/direct.h"

namespace hv {

namespace {

/// Samples of light and surface between which the balance heuristic weighs (Veach and Guibas 1995).
struct Counts {
    float light, surface;
};

Counts CountsOf(SampleNumber number)
{
    if (!number.IsBranching()) return {1.0f, 1.0f};
    return {static_cast<float>(GeometryLight.sample), static_cast<float>(Settings.MisSample)};
}

/// Number that picks the emitter: stratified over the samples of a first vertex.
float EmitterNumber(const RayRecord& shadow, SampleNumber number)
{
    if (!number.IsBranching()) return HardwareRandom();
    const float u = (static_cast<float>(number.k) + HardwareRandom()) / static_cast<float>(number.total);
    return Rotate(u, shadow.jitter[0]);
}

/// An emitter seen from a receiver.
struct EmitterView {
    Vector d;             ///< unit vector to it
    float  distance;      ///< metres
    float  density;       ///< of its choice, 1/sr
    Color  over_density;  ///< radiance over the density of the estimate
};

/// False when the emitter turns its back or cannot be weighed.
bool ViewEmitter(const EmitterPoint& emitter, Vector from, EmitterView& view)
{
    const Vector way    = emitter.position - from;
    const float  square = Dot(way, way);
    view.distance       = Length(way);
    view.d              = way / view.distance;
    const float cosine  = -Dot(view.d, emitter.normal);
    if (!(cosine > 0.0f) || !(square > 0.0f)) return false;
    view.density      = square / (cosine * GeometryLight.area);
    view.over_density = emitter.radiance * (EmitterPointArea() * cosine /
                                            (static_cast<float>(kEmitterPointCount) * square * emitter.probability));
    return true;
}

/// Feeds the AOVs that collect the light of one emitter's shader; those of all shaders come at the end.
[[gnu::noinline]] void AddToShaderAOVs(const RayRecord& ray, const SurfacePoint& vertex, ElementRadiance terms,
                                       std::uint32_t shader, SampleNumber number)
{
    if (number.IsBranching())
        Scale(terms, kWhite * (static_cast<float>(FrameTotal()) / static_cast<float>(number.total)));
    for (CameraAOV& aov : GeometryLightAOVs)
        if (aov.shader != -1 && static_cast<std::uint32_t>(aov.shader) == shader)
            AddToLightAOV(aov, ray, vertex, terms);
}

/// Light of one point on an emitter, which is left in `emitter`; null when none was drawn.
ElementRadiance SampleEmitter(const Receiver& at, SampleNumber number, RayRecord& shadow, const EmitterPoint*& emitter)
{
    emitter = PickEmitterPoint(EmitterNumber(shadow, number));
    EmitterView view;
    if (!emitter || !ViewEmitter(*emitter, at.point.position, view) || !CanReceive(at, view.d)) return {};

    const Counts    counts = CountsOf(number);
    const float     own    = counts.light * view.density;
    ElementRadiance terms =
        DensityTerms(at, view.d, view.over_density, [&](float f) { return own / (own + counts.surface * f); });
    if (IsDark(terms)) return {};
    shadow.hit_primitive = emitter->primitive;
    shadow.hit_kind      = emitter->kind;
    Scale(terms, Visibility(shadow, view.d, view.distance));
    return terms;
}

}  // namespace

ElementRadiance GeometryLightDirect(const RayRecord& ray, const SurfacePoint& point)
{
    if (GeometryLight.sample < 1 || !HasEmitterList()) return {};
    if (!IsLinked(GeometryLight.link_shaders, ray.hit_shader)) return {};
    const auto sample = [&](const Receiver& at, SampleNumber number, RayRecord& shadow) {
        const EmitterPoint*   emitter;
        const ElementRadiance terms = SampleEmitter(at, number, shadow, emitter);
        if (emitter && !GeometryLightAOVs.empty()) AddToShaderAOVs(ray, point, terms, emitter->shader, number);
        return terms;
    };
    const ElementRadiance light = SampleLight(ray, point, {GeometryLight.sample, true}, sample);
    for (CameraAOV& aov : GeometryLightAOVs)
        if (aov.shader == -1) AddToLightAOV(aov, ray, point, light);
    return light;
}

}  // namespace hv
