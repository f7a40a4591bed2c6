#pragma once

#include "accel/leaf_tests.h"

/// The curve tree: the cylinders of an Object once more, in a hierarchy of their own that all rays walk but the shadow
/// rays of the first frame. It is made from the same binary tree as the wide nodes; free of their leaves, it fills its
/// nodes and has room for bounds that suit curves.
namespace hv {

struct Object;

/// Makes the curve tree of an object from its binary tree, which has boxes and sums. Objects without cylinders get
/// none.
void MakeCurveTree(Object& object);

/// Gives lane k of a node its tube: around some curves, whose reaches stand parallel. Returns half the surface of what
/// the lane's box cuts out of it, to be held against the half area of the box; infinite when there is no tube.
float MakeTube(const PlacedCurve* curves, const float* reaches, std::uint32_t count, int k, CurveNode& node);

/// Steps in which bundles tell the ends of curves, as shares of a box.
inline constexpr float kEndStep = 1.0f / 65535.0f;

/// What rounding can take from n . w in NearTubes: six half units in the last place of |direction| |w| at most, with
/// room to spare. `size`: largest |x| + |y| + |z| of the curves.
HV_INLINE Float8 TubeRounding(const LeafRay& ray, float size)
{
    return Splat8(2e-6f) * ray.pace * (SumOfSizes(ray.origin) + Splat8(size));
}

/// Those of `lanes` of a node whose tube the ray comes near, as an endless line. Rays along the axis pass: n = 0 gives
/// a length that is no number.
///
/// With n = direction x axis and w from the origin to a point of the axis, the lines pass each other at |n . w| / |n|.
/// All in doubled lengths, which saves halving the sum of the box's corners.
HV_INLINE unsigned NearTubes(const CurveNode& node, unsigned lanes, const LeafRay& ray, Float8 rounding)
{
    const Vector8 axis{LoadHalves8(node.axis[0]), LoadHalves8(node.axis[1]), LoadHalves8(node.axis[2])};
    const Vector8 corners{Load8(node.minX) + Load8(node.maxX), Load8(node.minY) + Load8(node.maxY),
                          Load8(node.minZ) + Load8(node.maxZ)};
    const Vector8 w      = corners - (ray.origin + ray.origin);
    const Vector8 n      = FusedCross(ray.direction, axis);
    const Float8  square = FusedDot(n, n);
    const Float8  length = square * FastReciprocalRoot(square);
    const Float8  apart  = Absolute(FusedDot(n, w));
    return lanes & ~Bits(Less(FusedAdd(LoadHalves8(node.diameter), length, rounding), apart));
}

}  // namespace hv
