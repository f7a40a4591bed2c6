#pragma once

#include "accel/curve.h"
#include "accel/primitives.h"
#include "accel/slab.h"

#include <algorithm>

/// The lane tests over packed leaf blocks. Operation for operation those of primitives.cpp, without contraction and
/// with true divisions, so that a lane and its scalar twin agree to the bit.
namespace hv {

/// A ray splat over eight lanes, with the primitives that it does not see for each packed kind (kNone: none).
struct LeafRay {
    Vector8       origin, direction;
    Float8        pace;  ///< SumOfSizes(direction)
    std::uint32_t skipped_triangles[2], skipped_tetragons[2], skipped_cylinders[2];
};

/// What the lanes of a block found; written only when a lane passes. a, b, c: b1, b2, b0 of triangles; of tetragons the
/// edge measures e0 to e3.
struct LaneResults {
    alignas(32) float t[8], denominator[8], a[8], b[8], c[8], d[8];
};

HV_INLINE std::uint32_t SkippedIndex(PrimitiveKind kind, std::uint8_t from_kind, std::uint32_t from_primitive)
{
    return from_kind == static_cast<std::uint8_t>(kind) ? from_primitive : kNone;
}

HV_INLINE Vector8 SplatVector8(Vector v) { return {Splat8(v.x), Splat8(v.y), Splat8(v.z)}; }

/// Vector n of all lanes of a block.
HV_INLINE Vector8 PackedVector(const LeafBlock& block, int n)
{
    const float* p = block.values + 24 * n;
    return {Load8(p), Load8(p + 8), Load8(p + 16)};
}

/// Bit i: lane i is hit no farther than `limit` = distance - 1e-6. Unused lanes hold zeroes, which never pass.
HV_INLINE unsigned TestTriangles(const LeafBlock& block, const LeafRay& ray, Float8 limit, LaneResults& results)
{
    const Vector8 n           = PackedVector(block, 1);
    const Vector8 w           = PackedVector(block, 0) - ray.origin;
    const Float8  denominator = Dot(n, ray.direction);
    const Float8  t           = Dot(n, w) / denominator;
    const Float8  in_range    = LessEqual(Splat8(kRayEpsilon), t) & LessEqual(t, limit);
    if (Bits(in_range) == 0) return 0;

    const Vector8 q  = (t * ray.direction - w) / Load8(block.square);
    const Float8  b1 = Dot(q, PackedVector(block, 2));
    const Float8  b2 = Dot(q, PackedVector(block, 3));
    const Float8  b0 = Splat8(1.0f) - b1 - b2;
    // b0 last: it is no number whenever b1 or b2 is none, and then the minimum is none.
    const Float8   smallest = Min(Min(b1, b2), b0);
    const unsigned lanes    = Bits(in_range & LessEqual(Splat8(0.0f), smallest));
    if (lanes == 0) return 0;

    Store8(results.t, t);
    Store8(results.denominator, denominator);
    Store8(results.a, b1);
    Store8(results.b, b2);
    Store8(results.c, b0);
    return lanes;
}

HV_INLINE unsigned TestTetragons(const LeafBlock& block, const LeafRay& ray, Float8 limit, LaneResults& results)
{
    const Vector8 p0 = PackedVector(block, 0), p1 = PackedVector(block, 1);
    const Vector8 p2 = PackedVector(block, 2), p3 = PackedVector(block, 3);
    const Vector8 n           = Cross(p2 - p0, p3 - p1);
    const Vector8 a           = p0 - ray.origin;
    const Float8  denominator = Dot(n, ray.direction);
    const Float8  t           = Dot(n, a) / denominator;
    const Float8  in_range    = LessEqual(Splat8(kRayEpsilon), t) & LessEqual(t, limit);
    if (Bits(in_range) == 0) return 0;

    const Vector8 b = p1 - ray.origin, c = p2 - ray.origin, d = p3 - ray.origin;
    const Float8  e0   = Dot(ray.direction, Cross(a, b));
    const Float8  e1   = Dot(ray.direction, Cross(b, c));
    const Float8  e2   = Dot(ray.direction, Cross(c, d));
    const Float8  e3   = Dot(ray.direction, Cross(d, a));
    const Float8  zero = Splat8(0.0f);
    const Float8  back =
        Less(zero, denominator) & LessEqual(zero, e0) & LessEqual(zero, e1) & LessEqual(zero, e2) & LessEqual(zero, e3);
    const Float8 front =
        Less(denominator, zero) & LessEqual(e0, zero) & LessEqual(e1, zero) & LessEqual(e2, zero) & LessEqual(e3, zero);
    const unsigned lanes = Bits(in_range & (back | front));
    if (lanes == 0) return 0;

    Store8(results.t, t);
    Store8(results.denominator, denominator);
    Store8(results.a, e0);
    Store8(results.b, e1);
    Store8(results.c, e2);
    Store8(results.d, e3);
    return lanes;
}

HV_INLINE bool HasKind(const LeafBlock& block, PrimitiveKind kind)
{
    return block.kind == static_cast<std::uint8_t>(kind);
}

HV_INLINE bool IsFaces(const LeafBlock& block)
{
    return HasKind(block, PrimitiveKind::Triangle) || HasKind(block, PrimitiveKind::Tetragon);
}

HV_INLINE unsigned WithoutSkipped(const LeafBlock& block, unsigned lanes, const std::uint32_t (&skipped)[2])
{
    return lanes & ~EqualBits8(block.index, skipped[0]) & ~EqualBits8(block.index, skipped[1]);
}

/// Tests a block of faces: the lanes that the ray meets and may see.
HV_INLINE unsigned TestFaces(const LeafBlock& block, const LeafRay& ray, Float8 limit, LaneResults& results)
{
    if (HasKind(block, PrimitiveKind::Triangle)) {
        const unsigned lanes = TestTriangles(block, ray, limit, results);
        return lanes == 0 ? 0 : WithoutSkipped(block, lanes, ray.skipped_triangles);
    }
    const unsigned lanes = TestTetragons(block, ray, limit, results);
    return lanes == 0 ? 0 : WithoutSkipped(block, lanes, ray.skipped_tetragons);
}

/// The surface parameters of a lane that passed, as RayRecord holds them.
inline Vector FaceParameters(const LeafBlock& block, const LaneResults& results, unsigned lane)
{
    if (HasKind(block, PrimitiveKind::Triangle)) return {results.c[lane], results.a[lane], results.b[lane]};
    return {EdgeRatio(results.a[lane], results.c[lane]), EdgeRatio(results.d[lane], results.b[lane]), 0.0f};
}

/// The lanes of a block that belong to a leaf with `left` references from lane `start` on.
HV_INLINE unsigned LeafLanes(const LeafBlock& block, unsigned start, std::uint32_t left)
{
    const unsigned end = std::min<unsigned>(block.used, start + left);
    return (1u << end) - (1u << start);
}

}  // namespace hv
