#include "transport/diffusion.h"

#include "accel/accel.h"
#include "base/constants.h"
#include "session/sampling.h"

#include <cmath>

namespace hv {

namespace {

/// Distance with a Gaussian spread of the given variance, square metres.
float GaussianRadius(float variance)
{
    // Meant: the first draw decides whether there is a radius, a second one gives it.
    if (!(-2.0f * SafeLog(HardwareRandom()) * variance > 1e-10f)) return 1e-5f;
    return std::sqrt(-2.0f * SafeLog(HardwareRandom()) * variance);
}

/// Uniform point on a sphere.
Vector PointOnSphere(Vector centre, float radius)
{
    const float p = HardwareRandom(), angle = kTwoPi * HardwareRandom();
    const float ring = 2.0f * SafeRoot(p * (1.0f - p));
    return centre + radius * Vector{ring * std::cos(angle), ring * std::sin(angle), 1.0f - 2.0f * p};
}

/// A chord of a sphere about the vertex, whose radius is drawn anew each time.
RayRecord ProbeRay(const RayRecord& ray, const SurfacePoint& point)
{
    const float  radius = GaussianRadius(MaxChannel(point.diffusion)) * std::cos(kTwoPi * HardwareRandom());
    const Vector start  = PointOnSphere(point.position, radius);
    const Vector chord  = PointOnSphere(point.position, radius) - start;

    RayRecord probe_ray;
    probe_ray.origin    = start;
    probe_ray.direction = Normalized(chord);
    probe_ray.distance  = Length(chord);
    probe_ray.hit_kind  = kNoKind;
    probe_ray.thread    = ray.thread;
    probe_ray.depth     = 1;  // no primary ray: what the path has hit the probe must see too
    return probe_ray;
}

/// A channel of smaller variance counts less, whatever the distance of the probe.
Color ProbeWeight(Color variance)
{
    const float widest = SafeRoot(kTwoPi * MaxChannel(variance));
    return Color{SafeRoot(kTwoPi * variance.r), SafeRoot(kTwoPi * variance.g), SafeRoot(kTwoPi * variance.b)} *
           (1.0f / widest);
}

void TurnOver(SurfacePoint& point)
{
    point.outgoing         = -point.outgoing;
    point.geometric_normal = -point.geometric_normal;
    point.normal           = -point.normal;
}

}  // namespace

bool ProbeDiffusion(const RayRecord& ray, const SurfacePoint& point, DiffusionProbe& probe)
{
    RayRecord probe_ray = ProbeRay(ray, point);
    if (!TraceProbe(probe_ray) || probe_ray.hit_shader != ray.hit_shader) return false;
    probe.point = {};
    EvaluateHit(probe_ray, probe.point);
    if (probe_ray.front_side != ray.front_side) TurnOver(probe.point);
    probe.weight    = ProbeWeight(point.diffusion);
    probe.primitive = probe_ray.hit_primitive;
    probe.kind      = probe_ray.hit_kind;
    return true;
}

void FindDiffusionProbe(const RayRecord& ray, const SurfacePoint& point, DiffusionProbe& probe)
{
    constexpr int kMaxProbes = 256;  // a surface that no chord meets must not hang the render
    for (int i = 0; i < kMaxProbes; ++i)
        if (ProbeDiffusion(ray, point, probe)) return;
    probe = {point, kWhite, ray.hit_primitive, ray.hit_kind};
}

}  // namespace hv
