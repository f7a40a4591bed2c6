#include "accel/primitives.h"

#include "accel/curve.h"

namespace hv {

namespace {

/// Stamped shaders outside the registry read as the first.
std::uint32_t ShaderInRange(std::uint32_t shader) { return shader < ShaderTraits.size() ? shader : 0; }

}  // namespace

// Every acceptance test is written so that a non-number fails it: a face without area gives 0 / 0 and is never hit.

bool IntersectTriangle(const Part& part, std::uint32_t index, const RayRecord& ray, TriangleHit& hit)
{
    const Triangle& triangle = part.triangles[index];
    const Vector    p0       = part.positions[triangle.i0];
    const Vector    e1       = part.positions[triangle.i1] - p0;
    const Vector    e2       = part.positions[triangle.i2] - p0;
    const Vector    n        = Cross(e1, e2);
    const Vector    w        = p0 - ray.origin;
    hit.denominator          = Dot(n, ray.direction);
    hit.t                    = Dot(n, w) / hit.denominator;
    if (!(hit.t >= kRayEpsilon && hit.t <= ray.distance - kRayEpsilon)) return false;

    const Vector q = (hit.t * ray.direction - w) / Dot(n, n);
    hit.b1         = Dot(q, Cross(e2, n));
    hit.b2         = Dot(q, Cross(n, e1));
    hit.b0         = 1.0f - hit.b1 - hit.b2;
    if (!(hit.b1 >= 0.0f && hit.b2 >= 0.0f && hit.b0 >= 0.0f)) return false;  // which keeps b1 and b2 below 1, too

    hit.shader = ShaderInRange(triangle.shader);
    return IsVisible(ray, hit.shader);
}

bool IntersectTetragon(const Part& part, std::uint32_t index, const RayRecord& ray, TetragonHit& hit)
{
    const Tetragon& face = part.tetragons[index];
    const Vector    a    = part.positions[face.i0] - ray.origin;
    const Vector    b    = part.positions[face.i1] - ray.origin;
    const Vector    c    = part.positions[face.i2] - ray.origin;
    const Vector    d    = part.positions[face.i3] - ray.origin;
    const Vector    n    = Cross(part.positions[face.i2] - part.positions[face.i0],  //
                                 part.positions[face.i3] - part.positions[face.i1]);
    hit.denominator      = Dot(n, ray.direction);
    hit.t                = Dot(n, a) / hit.denominator;
    if (!(hit.t >= kRayEpsilon && hit.t <= ray.distance - kRayEpsilon)) return false;

    const float e0 = Dot(ray.direction, Cross(a, b));
    const float e1 = Dot(ray.direction, Cross(b, c));
    const float e2 = Dot(ray.direction, Cross(c, d));
    const float e3 = Dot(ray.direction, Cross(d, a));

    const bool inside_back  = hit.denominator > 0.0f && e0 >= 0.0f && e1 >= 0.0f && e2 >= 0.0f && e3 >= 0.0f;
    const bool inside_front = hit.denominator < 0.0f && e0 <= 0.0f && e1 <= 0.0f && e2 <= 0.0f && e3 <= 0.0f;
    if (!inside_back && !inside_front) return false;

    hit.u      = EdgeRatio(e0, e2);
    hit.v      = EdgeRatio(e3, e1);
    hit.shader = ShaderInRange(face.shader);
    return IsVisible(ray, hit.shader);
}

namespace {

/// The nearer of two sphere crossings inside the limits. Meant: the far limit lies an epsilon beyond `distance`.
bool TakeNearer(float near, float far, float distance, float& t)
{
    const auto counts = [&](float x) { return x > kRayEpsilon && x < kRayEpsilon + distance; };
    t                 = counts(near) ? near : far;
    return counts(t);
}

struct SphereLine {
    Vector to_center;     ///< from the origin
    float  along;         ///< distance to the point nearest to the centre
    float  discriminant;  ///< square of half the chord
};

SphereLine LineThroughSphere(const Part& part, std::uint32_t index, const RayRecord& ray)
{
    const std::uint32_t vertex    = part.particles[index];
    const float         radius    = RadiusAt(part, vertex);
    const Vector        to_center = part.positions[vertex] - ray.origin;
    const float         along     = Dot(to_center, ray.direction);
    return {to_center, along, along * along - Dot(to_center, to_center) + radius * radius};
}

/// A ray reflected off a particle cannot meet it again; a refracted one meets it from inside.
bool WasReflectedOff(const RayRecord& ray, std::uint32_t index)
{
    return ray.from_kind == static_cast<std::uint8_t>(PrimitiveKind::Particle) && ray.from_primitive == index &&
           (ray.element == ElementCode::Lambertian || ray.element == ElementCode::GlossyReflection ||
            ray.element == ElementCode::SpecularReflection);
}

}  // namespace

bool IntersectParticle(const Part& part, std::uint32_t index, RayRecord& ray)
{
    if (WasReflectedOff(ray, index) || !IsVisible(ray, part.shaderID)) return false;
    const SphereLine line = LineThroughSphere(part, index, ray);
    if (!(line.discriminant >= 0.0f)) return false;
    const float half = SafeRoot(line.discriminant);
    float       t;
    if (!TakeNearer(line.along - half, line.along + half, ray.distance, t)) return false;

    const Vector outward = t * ray.direction - line.to_center;
    ray.distance         = t;
    ray.hit_primitive    = index;
    ray.hit_part         = &part;
    ray.hit_shader       = ShaderInRange(part.shaderID);
    ray.hit_kind         = static_cast<std::uint8_t>(PrimitiveKind::Particle);
    ray.front_side       = 1;
    ray.hit_u            = outward.x;
    ray.hit_v            = outward.y;
    ray.hit_w            = outward.z;
    return true;
}

bool OccludeParticle(const Part& part, std::uint32_t index, const RayRecord& ray, float& t)
{
    if (!IsVisible(ray, part.shaderID)) return false;
    const SphereLine line = LineThroughSphere(part, index, ray);
    if (!(line.discriminant >= 0.0f)) return false;
    // Meant: shadow rays use the discriminant, not its root.
    return TakeNearer(line.along - line.discriminant, line.along + line.discriminant, ray.distance, t);
}

bool IntersectCylinder(const Part& part, std::uint32_t index, const RayRecord& ray, CylinderHit& hit)
{
    const auto splat = [](Vector v) { return Vector8{Splat8(v.x), Splat8(v.y), Splat8(v.z)}; };
    CurveHit   found;
    if (!IsVisible(ray, part.shaderID)) return false;
    if (!MeetCurve(CurveOf(part, part.cylinders[index]), splat(ray.origin), splat(ray.direction), ray.distance, found))
        return false;
    hit = {found.denominator, found.t,     ShaderInRange(part.shaderID),
           found.across,      found.along, ray.origin + found.t * ray.direction};
    return true;
}

}  // namespace hv
