#pragma once

#include "accel/leaf_tests.h"

#include <bit>

/// Second bounds for curves. Tubes around what lies below the lanes of wide nodes turn down most rays that enter the
/// box of a single curve. Bundles hold the bounds of the few curves below a lane side by side: the small nodes that
/// would lead to them, often of two or three curves each, are walked by shadow rays of the first frame alone. Both
/// together take 35 to 83 bytes a segment.
namespace hv {

struct Object;

/// Those of `lanes` of a node whose tube the ray comes near, as an endless line. Rounding is allowed for as in
/// NearCurves, and rays along the axis pass: n = 0 gives a length that is no number.
///
/// With n = direction x axis and w from the origin to a point of the axis, the lines pass each other at |n . w| / |n|.
/// All in doubled lengths, which saves halving the sum of the box's corners.
HV_INLINE unsigned NearTubes(const WideNode& node, const LaneTubes& tubes, unsigned lanes, const LeafRay& ray)
{
    const Vector8 axis{LoadHalves8(tubes.axis[0]), LoadHalves8(tubes.axis[1]), LoadHalves8(tubes.axis[2])};
    const Vector8 corners{Load8(node.minX) + Load8(node.maxX), Load8(node.minY) + Load8(node.maxY),
                          Load8(node.minZ) + Load8(node.maxZ)};
    const Vector8 w        = corners - (ray.origin + ray.origin);
    const Vector8 n        = FusedCross(ray.direction, axis);
    const Float8  square   = FusedDot(n, n);
    const Float8  length   = square * FastReciprocalRoot(square);
    const Float8  rounding = Splat8(1e-5f) * SumOfSizes(w) * ray.pace;
    const Float8  apart    = Absolute(FusedDot(n, w));
    return lanes & ~Bits(Less(FusedAdd(LoadHalves8(tubes.diameter), length, rounding), apart));
}

/// Lanes with more curves below them have no tube: it would be hardly tighter than the box, and making it is work.
inline constexpr std::uint32_t kMostTubeCurves = 128;

/// Inner lanes with at most this many curves below get a bundle, unless they lie below another.
inline constexpr std::uint32_t kMostBundleCurves = 16;

/// Calls `test` with the blocks and lanes of those curves of the bundles of some lanes that the ray may meet before
/// `distance`, which may change meanwhile, and may see.
template <class Test>
HV_INLINE void ForNearBundled(const CurveBundle* bundles, const LeafBlock* blocks, const LaneTubes& tubes,
                              unsigned lanes, const LeafRay& ray, const float& distance, const Test& test)
{
    for (; lanes != 0; lanes &= lanes - 1) {
        const int          lane   = std::countr_zero(lanes);
        const CurveBundle* bundle = bundles + tubes.bundle[lane];
        for (unsigned left = tubes.curves[lane]; left > 0; ++bundle) {
            const unsigned own = std::min(left, kBlockLength);
            left -= own;
            unsigned near =
                NearCurves(bundle->values, (1u << own) - 1u, ray.origin, ray.direction, ray.pace, Splat8(distance));
            for (; near != 0; near &= near - 1) {
                const std::uint32_t place = bundle->place[std::countr_zero(near)];
                const LeafBlock&    block = blocks[place / kBlockLength];
                test(block, WithoutSkipped(block, 1u << place % kBlockLength, ray.skipped_cylinders));
            }
        }
    }
}

/// Makes the tubes and bundles of an object whose leaf blocks are packed and whose leaves of curves are marked.
void MakeTubes(Object& object);

}  // namespace hv
