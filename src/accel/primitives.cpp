#include "accel/primitives.h"

#include "base/float8.h"

#include <bit>
#include <cmath>

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

namespace {

inline constexpr int kPieces = 8;  ///< straight pieces of a cylinder's curve, one a lane

/// Weights of the cubic Hermite curve C(s) = P0 + step (P0 - P1) + leave T0 + arrive T1 at eight values of s.
struct alignas(32) HermiteTable {
    float s[kPieces], step[kPieces], leave[kPieces], arrive[kPieces];
};

constexpr HermiteTable MakeHermiteTable(int first)
{
    HermiteTable table{};
    for (int k = 0; k < kPieces; ++k) {
        const float s   = static_cast<float>(k + first) / kPieces;
        table.s[k]      = s;
        table.step[k]   = 2.0f * s * s * s - 3.0f * s * s;
        table.leave[k]  = s * (1.0f - s) * (1.0f - s);
        table.arrive[k] = s * s * (s - 1.0f);
    }
    return table;
}

constexpr HermiteTable kStarts = MakeHermiteTable(0);
constexpr HermiteTable kEnds   = MakeHermiteTable(1);

/// Shares of the two radii in each piece. Meant: steps of 1/7, though the curve steps by 1/8.
struct alignas(32) RadiusTable {
    float first[kPieces], second[kPieces];
};

constexpr RadiusTable MakeRadiusTable()
{
    RadiusTable table{};
    for (int k = 0; k < kPieces; ++k) {
        table.first[k]  = static_cast<float>(kPieces - 1 - k) / (kPieces - 1);
        table.second[k] = static_cast<float>(k) / (kPieces - 1);
    }
    return table;
}

constexpr RadiusTable kRadiusShares = MakeRadiusTable();

Vector8 Splat(Vector v) { return {Splat8(v.x), Splat8(v.y), Splat8(v.z)}; }

struct Strand {
    Vector p0, p1, t0, t1;
    float  radius0, radius1;
};

Strand StrandAt(const Part& part, std::uint32_t vertex)
{
    return {part.positions[vertex],      part.positions[vertex + 1], TangentAt(part, vertex),
            TangentAt(part, vertex + 1), RadiusAt(part, vertex),     RadiusAt(part, vertex + 1)};
}

Vector8 CurveAt(const Strand& strand, const HermiteTable& table)
{
    return Splat(strand.p0) + Load8(table.step) * Splat(strand.p0 - strand.p1) + Load8(table.leave) * Splat(strand.t0) +
           Load8(table.arrive) * Splat(strand.t1);
}

/// The tangent at the table's ends, mixed linearly, whose planes cut the pieces off each other.
Vector8 CutAt(const Strand& strand, const HermiteTable& table)
{
    return Splat(strand.t0) + Load8(table.s) * Splat(strand.t1 - strand.t0);
}

Vector8 FastNormalized(Vector8 v) { return FastReciprocalRoot(Dot(v, v)) * v; }

int NearestLane(const float* t, unsigned lanes)
{
    int best = std::countr_zero(lanes);
    for (lanes &= lanes - 1; lanes != 0; lanes &= lanes - 1) {
        const int lane = std::countr_zero(lanes);
        if (t[lane] < t[best]) best = lane;
    }
    return best;
}

}  // namespace

bool IntersectCylinder(const Part& part, std::uint32_t index, const RayRecord& ray, CylinderHit& hit)
{
    const Strand  strand    = StrandAt(part, part.cylinders[index]);
    const Vector8 direction = Splat(ray.direction), origin = Splat(ray.origin);
    const Vector8 start = CurveAt(strand, kStarts), end = CurveAt(strand, kEnds);
    const Vector8 edge     = end - start;
    const Vector8 to_start = start - origin;
    const Float8  half_width =
        Load8(kRadiusShares.first) * Splat8(strand.radius0) + Load8(kRadiusShares.second) * Splat8(strand.radius1);

    const Vector8 sideways = FastNormalized(Cross(direction, edge));
    const Float8  across   = Dot(sideways, to_start);
    Float8        passes   = Less(Absolute(across), half_width);
    if (Bits(passes) == 0 || !IsVisible(ray, part.shaderID)) return false;

    const Vector8 facing      = FastNormalized(Cross(edge, sideways));
    const Float8  denominator = Dot(facing, direction);
    const Float8  t           = Dot(facing, to_start) / denominator;
    const Float8  epsilon     = Splat8(kRayEpsilon);
    passes                    = passes & Less(epsilon, t) & Less(t + epsilon, Splat8(ray.distance));
    if (Bits(passes) == 0) return false;

    const Vector8  position = origin + t * direction;
    const Float8   zero     = Splat8(0.0f);
    const unsigned lanes    = Bits(passes & LessEqual(zero, Dot(CutAt(strand, kStarts), position - start)) &
                                   Less(Dot(CutAt(strand, kEnds), position - end), zero));
    if (lanes == 0) return false;

    alignas(32) float ts[8], denominators[8], offsets[8], widths[8];
    Store8(ts, t);
    Store8(denominators, denominator);
    Store8(offsets, across);
    Store8(widths, half_width);
    const int lane  = NearestLane(ts, lanes);
    hit.denominator = denominators[lane];
    hit.t           = ts[lane];
    hit.shader      = ShaderInRange(part.shaderID);
    hit.across      = offsets[lane] / widths[lane];
    hit.along       = (static_cast<float>(lane) + 0.5f) * 0.125f;
    hit.position    = ray.origin + hit.t * ray.direction;
    return true;
}

}  // namespace hv
