#pragma once

#include "accel/bbvh.h"
#include "accel/slab.h"
#include "base/float8.h"
#include "geometry/corners.h"

/// The test of one segment of a strand, which is a cubic curve, and the bound by which eight are turned down at once.
namespace hv {

struct CurveHit {
    float denominator;  ///< facing normal of the ribbon . direction
    float t;
    float across;  ///< signed distance from the axis over the half width
    float along;   ///< middle of the piece that was hit, 0 to 1
};

Curve CurveOf(const Part& part, std::uint32_t vertex);

/// Tests the curve's eight pieces, one a lane, as flat ribbons that face the ray.
bool MeetCurve(const Curve& curve, const Vector8& origin, const Vector8& direction, float distance, CurveHit& hit);

/// How far from the chord p0 p1 hits of a curve can lie: 0 when there are none, infinite when nothing bounds them.
float CurveReach(const Curve& curve);

/// |x| + |y| + |z|: no less than the length, and sooner found.
HV_INLINE Float8 SumOfSizes(Vector8 v) { return Absolute(v.x) + Absolute(v.y) + Absolute(v.z); }

/// Those of `lanes` whose curve the ray may meet before `limit`. Its chord is e, beginning w from the origin, its reach
/// `curve_reach`; pace: SumOfSizes(direction). Whatever MeetCurve accepts is among them: rounding is allowed for, and a
/// non-number turns no curve down.
///
/// With n = direction x e, ray and chord pass each other at the distance |n . w| / |n|, on the chord at
/// (w x direction) . n / n . n and on the ray at (w x e) . n / n . n. Whatever lies within the reach of both is no
/// farther from there than the reach over the sine of the angle between them.
HV_INLINE unsigned NearCurves(Vector8 w, Vector8 e, Float8 curve_reach, unsigned lanes, Vector8 direction, Float8 pace,
                              Float8 limit)
{
    const Vector8 n        = FusedCross(direction, e);
    const Float8  square   = FusedDot(n, n);
    const Float8  length   = square * FastReciprocalRoot(square);
    const Float8  chord    = SumOfSizes(e);
    const Float8  rounding = Splat8(1e-5f) * SumOfSizes(w);
    const Float8  reach    = curve_reach + rounding;
    const Float8  apart    = Absolute(FusedDot(n, w));
    lanes &= ~Bits(Less(FusedAdd(reach, length, rounding * chord * pace), apart));

    const Float8 zero = Splat8(0.0f), slack = reach * length;
    const Float8 chord_slack = slack * pace, ray_slack = slack * chord;
    const Float8 on_chord = FusedDot(FusedCross(w, direction), n), on_ray = FusedDot(FusedCross(w, e), n);
    return lanes & ~Bits(Less(on_chord + chord_slack, zero) | Less(square + chord_slack, on_chord) |
                         Less(on_ray + ray_slack, zero) | Less(FusedAdd(limit, square, ray_slack), on_ray));
}

}  // namespace hv
