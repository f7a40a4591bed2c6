#pragma once

#include "accel/primitives.h"
#include "accel/slab.h"

/// The lane tests over packed leaf blocks. Operation for operation those of primitives.cpp, without contraction and with
/// true divisions, so that a lane and its scalar twin agree to the bit.
namespace hv {

/// A ray splat over four lanes, with the primitive to skip for each packed kind (kNone: none).
struct LeafRay {
    Vector4       origin, direction;
    std::uint32_t skipped_triangle, skipped_tetragon;
};

/// What the lanes of a block found; written only when a lane passes. a, b, c: b1, b2, b0 of triangles; of tetragons the
/// edge measures e0 to e3.
struct LaneResults {
    alignas(16) float t[4], denominator[4], a[4], b[4], c[4], d[4];
};

HV_INLINE std::uint32_t SkippedIndex(PrimitiveKind kind, std::uint8_t from_kind, std::uint32_t from_primitive)
{
    return from_kind == static_cast<std::uint8_t>(kind) ? from_primitive : kNone;
}

HV_INLINE Vector4 SplatVector4(Vector v) { return {Splat4(v.x), Splat4(v.y), Splat4(v.z)}; }

HV_INLINE Vector4 LoadVector4(const float* p) { return {Load4(p), Load4(p + 4), Load4(p + 8)}; }

/// Three lanes and one harmless value of what follows.
HV_INLINE Vector4 LoadVector3(const float* p)
{
    return {LoadUnaligned4(p), LoadUnaligned4(p + 3), LoadUnaligned4(p + 6)};
}

HV_INLINE unsigned UsedLanes(const LeafBlock& block) { return (1u << block.used) - 1u; }

/// Bit i: lane i is hit no farther than `limit` = distance - 1e-6. Unused lanes are not masked out.
HV_INLINE unsigned TestTriangles(const LeafBlock& block, const LeafRay& ray, Float4 limit, LaneResults& results)
{
    const Vector4 e1          = LoadVector4(block.values + 12);
    const Vector4 e2          = LoadVector4(block.values + 24);
    const Vector4 n           = Cross(e1, e2);
    const Vector4 w           = LoadVector4(block.values) - ray.origin;
    const Float4  denominator = Dot(n, ray.direction);
    const Float4  t           = Dot(n, w) / denominator;
    const Float4  in_range    = LessEqual(Splat4(kRayEpsilon), t) & LessEqual(t, limit);
    if (Bits(in_range) == 0) return 0;

    const Vector4 q  = (t * ray.direction - w) / Dot(n, n);
    const Float4  b1 = Dot(q, Cross(e2, n));
    const Float4  b2 = Dot(q, Cross(n, e1));
    const Float4  b0 = Splat4(1.0f) - b1 - b2;
    // b0 last: it is no number whenever b1 or b2 is none, and then the minimum is none.
    const Float4   smallest = Min(Min(b1, b2), b0);
    const unsigned lanes    = Bits(in_range & LessEqual(Splat4(0.0f), smallest));
    if (lanes == 0) return 0;

    Store4(results.t, t);
    Store4(results.denominator, denominator);
    Store4(results.a, b1);
    Store4(results.b, b2);
    Store4(results.c, b0);
    return lanes;
}

HV_INLINE unsigned TestTetragons(const LeafBlock& block, const LeafRay& ray, Float4 limit, LaneResults& results)
{
    const Vector4 p0 = LoadVector3(block.values), p1 = LoadVector3(block.values + 9);
    const Vector4 p2 = LoadVector3(block.values + 18), p3 = LoadVector3(block.values + 27);
    const Vector4 n           = Cross(p2 - p0, p3 - p1);
    const Vector4 a           = p0 - ray.origin;
    const Float4  denominator = Dot(n, ray.direction);
    const Float4  t           = Dot(n, a) / denominator;
    const Float4  in_range    = LessEqual(Splat4(kRayEpsilon), t) & LessEqual(t, limit);
    if ((Bits(in_range) & 7u) == 0) return 0;

    const Vector4 b = p1 - ray.origin, c = p2 - ray.origin, d = p3 - ray.origin;
    const Float4  e0   = Dot(ray.direction, Cross(a, b));
    const Float4  e1   = Dot(ray.direction, Cross(b, c));
    const Float4  e2   = Dot(ray.direction, Cross(c, d));
    const Float4  e3   = Dot(ray.direction, Cross(d, a));
    const Float4  zero = Splat4(0.0f);
    const Float4  back =
        Less(zero, denominator) & LessEqual(zero, e0) & LessEqual(zero, e1) & LessEqual(zero, e2) & LessEqual(zero, e3);
    const Float4 front =
        Less(denominator, zero) & LessEqual(e0, zero) & LessEqual(e1, zero) & LessEqual(e2, zero) & LessEqual(e3, zero);
    const unsigned lanes = Bits(in_range & (back | front)) & 7u;
    if (lanes == 0) return 0;

    Store4(results.t, t);
    Store4(results.denominator, denominator);
    Store4(results.a, e0);
    Store4(results.b, e1);
    Store4(results.c, e2);
    Store4(results.d, e3);
    return lanes;
}

}  // namespace hv
