#pragma once

#include "accel/bbvh.h"
#include "accel/slab.h"
#include "base/float8.h"
#include "geometry/corners.h"

/// The test of one segment of a strand, which is a cubic curve, and the bound by which the segments of a leaf block are
/// turned down together.
namespace hv {

/// A segment of a strand: a cubic Hermite curve. The tangents are unit vectors or zero and are used as they are.
struct Curve {
    Vector p0, p1, t0, t1;
    float  radius0, radius1;
};

struct CurveHit {
    float denominator;  ///< facing normal of the ribbon . direction
    float t;
    float across;  ///< signed distance from the axis over the half width
    float along;   ///< middle of the piece that was hit, 0 to 1
};

Curve CurveOf(const Part& part, std::uint32_t vertex);

/// Tests the curve's eight pieces, one a lane, as flat ribbons that face the ray.
bool MeetCurve(const Curve& curve, Vector8 origin, Vector8 direction, float distance, CurveHit& hit);

/// How far from the chord p0 p1 hits of a curve can lie: 0 when there are none, infinite when nothing bounds them.
float CurveReach(const Curve& curve);

/// Rows of eight floats of LeafBlock::values in a block of cylinders; what the bound needs comes first, and is all that
/// CurveBundle::values hold. The last coordinate of t1 is in `square`, and `shader` holds the vertices.
enum CurveRow { kP0Row = 0, kP1Row = 3, kReachRow = 6, kT0Row = 7, kT1Row = 10 };

/// Three rows of packed values from `row` on.
HV_INLINE Vector8 PackedRows(const float* values, int row)
{
    const float* p = values + 8 * row;
    return {Load8(p), Load8(p + 8), Load8(p + 16)};
}

/// |x| + |y| + |z|: no less than the length, and sooner found.
HV_INLINE Float8 SumOfSizes(Vector8 v) { return Absolute(v.x) + Absolute(v.y) + Absolute(v.z); }

/// Those of `lanes` whose curve of packed values the ray may meet before `limit`; pace: SumOfSizes(direction).
/// Whatever MeetCurve accepts is among them: rounding is allowed for, and a non-number turns no curve down.
///
/// With the chord e, w from the origin to p0 and n = direction x e, ray and chord pass each other at the distance
/// |n . w| / |n|, on the chord at (w x direction) . n / n . n and on the ray at (w x e) . n / n . n. Whatever lies
/// within the reach of both is no farther from there than the reach over the sine of the angle between them.
HV_INLINE unsigned NearCurves(const float* values, unsigned lanes, Vector8 origin, Vector8 direction, Float8 pace,
                              Float8 limit)
{
    const Vector8 p0       = PackedRows(values, kP0Row);
    const Vector8 w        = p0 - origin;
    const Vector8 e        = PackedRows(values, kP1Row) - p0;
    const Vector8 n        = FusedCross(direction, e);
    const Float8  square   = FusedDot(n, n);
    const Float8  length   = square * FastReciprocalRoot(square);
    const Float8  chord    = SumOfSizes(e);
    const Float8  rounding = Splat8(1e-5f) * SumOfSizes(w);
    const Float8  reach    = Load8(values + 8 * kReachRow) + rounding;
    const Float8  apart    = Absolute(FusedDot(n, w));
    lanes &= ~Bits(Less(FusedAdd(reach, length, rounding * chord * pace), apart));
    if (lanes == 0) return 0;

    const Float8 zero = Splat8(0.0f), slack = reach * length;
    const Float8 chord_slack = slack * pace, ray_slack = slack * chord;
    const Float8 on_chord = FusedDot(FusedCross(w, direction), n), on_ray = FusedDot(FusedCross(w, e), n);
    return lanes & ~Bits(Less(on_chord + chord_slack, zero) | Less(square + chord_slack, on_chord) |
                         Less(on_ray + ray_slack, zero) | Less(FusedAdd(limit, square, ray_slack), on_ray));
}

/// Curve of a lane of a packed block. Its radii stay in the part.
HV_INLINE Curve PackedCurve(const LeafBlock& block, unsigned lane, const Part& part)
{
    const auto packed = [&block, lane](int row) {
        const float* p = block.values + 8 * row + lane;
        return Vector{p[0], p[8], p[16]};
    };
    const std::uint32_t vertex = block.shader[lane];
    return {packed(kP0Row),
            packed(kP1Row),
            packed(kT0Row),
            {block.values[8 * kT1Row + lane], block.values[8 * kT1Row + 8 + lane], block.square[lane]},
            RadiusAt(part, vertex),
            RadiusAt(part, vertex + 1)};
}

}  // namespace hv
