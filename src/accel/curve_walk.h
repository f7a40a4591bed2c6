#pragma once

#include "accel/curve_tree.h"
#include "accel/walk_stack.h"
#include "geometry/object.h"

/// The walk over the curve tree, which closest hits and shadow rays share; private to this folder.
namespace hv {

/// Asks for the first bundles of some leaf lanes, all of them before the first is tested.
HV_INLINE void FetchBundles(const CurveBundle* bundles, const CurveNode& node, unsigned leaves)
{
    for (; leaves != 0; leaves &= leaves - 1) {
        const auto& ends = bundles[node.first[std::countr_zero(leaves)]].ends;
        __builtin_prefetch(ends[0]);
        __builtin_prefetch(ends[4]);
    }
}

/// Asks for the nodes behind some inner lanes, all of them before the first is entered.
HV_INLINE void FetchNodes(const CurveNode* nodes, const CurveNode& node, unsigned lanes)
{
    for (; lanes != 0; lanes &= lanes - 1) {
        const auto* const child = reinterpret_cast<const char*>(&nodes[node.first[std::countr_zero(lanes)]]);
        for (std::size_t line = 0; line < sizeof(CurveNode); line += 64) __builtin_prefetch(child + line);
    }
}

/// Those of the first `count` curves of a bundle of lane k that the ray may meet before `limit`.
HV_INLINE unsigned NearBundled(const CurveBundle& bundle, const CurveNode& node, int k, std::uint32_t count,
                               const LeafRay& ray, Float8 limit)
{
    const Vector8 begin{Splat8(node.minX[k]), Splat8(node.minY[k]), Splat8(node.minZ[k])};
    const Vector8 end{Splat8(node.maxX[k]), Splat8(node.maxY[k]), Splat8(node.maxZ[k])};
    const Vector8 step = Splat8(kEndStep) * (end - begin);
    const Vector8 q0{LoadWords8(bundle.ends[0]), LoadWords8(bundle.ends[1]), LoadWords8(bundle.ends[2])};
    const Vector8 q1{LoadWords8(bundle.ends[3]), LoadWords8(bundle.ends[4]), LoadWords8(bundle.ends[5])};
    const Vector8 from = begin - ray.origin, q = q1 - q0;
    const Vector8 w{FusedAdd(q0.x, step.x, from.x), FusedAdd(q0.y, step.y, from.y), FusedAdd(q0.z, step.z, from.z)};
    const Vector8 e{q.x * step.x, q.y * step.y, q.z * step.z};
    return NearCurves(w, e, LoadHalves8(bundle.reach), (1u << count) - 1u, ray.direction, ray.pace, limit);
}

/// Calls `test` with those curves of some leaf lanes that the ray may meet before `distance`, which may change
/// meanwhile, and may see. True as soon as `test` returns true.
template <class Test>
HV_INLINE bool TestBundles(const CurveBundle* bundles, const PlacedCurve* curves, const CurveNode& node,
                           unsigned leaves, const LeafRay& ray, const float& distance, const Test& test)
{
    for (; leaves != 0; leaves &= leaves - 1) {
        const int          k      = std::countr_zero(leaves);
        const CurveBundle* bundle = bundles + node.first[k];
        for (std::uint32_t left = node.count[k]; left > 0; ++bundle) {
            const std::uint32_t own  = std::min(left, kBlockLength);
            unsigned            near = NearBundled(*bundle, node, k, own, ray, Splat8(distance));
            for (left -= own; near != 0; near &= near - 1) {
                const PlacedCurve& placed = curves[bundle->first + static_cast<unsigned>(std::countr_zero(near))];
                if (placed.index == ray.skipped_cylinders[0] || placed.index == ray.skipped_cylinders[1]) continue;
                if (test(placed)) return true;
            }
        }
    }
    return false;
}

/// Calls `test` with the curves that a ray may meet before `distance`, which `test` may lessen, in about the order of
/// distance. True as soon as `test` returns true. `stack` has room for WaitingRoom(object.curveDepth) lanes.
///
/// Few rays that come near a bundle meet a curve of it, so bundles are tested where they come up: that costs less than
/// to let them wait.
template <bool kFinite, class Test>
HV_INLINE bool WalkCurves(const Object& object, const SlabRay& slab, const LeafRay& ray, const float& distance,
                          WaitingLane* stack, const Test& test)
{
    const CurveNode* const   nodes    = object.curveNodes.data();
    const CurveBundle* const bundles  = object.curveBundles.data();
    const Float8             rounding = TubeRounding(ray, object.curveSize);
    WaitingLane*             top      = stack;
    std::uint32_t            target   = 0;
    while (true) {
        const CurveNode& node = nodes[target];
        Float8           near;
        unsigned         lanes = SlabTest8<kFinite>(node, slab, Splat8(distance), near);
        if (lanes != 0 && node.usesTubes) lanes = NearTubes(node, lanes, ray, rounding);
        const unsigned leaves = lanes & NonZeroBits16(node.count);
        lanes &= ~leaves;
        FetchNodes(nodes, node, lanes);
        if (leaves != 0) {
            FetchBundles(bundles, node, leaves);
            const float before = distance;
            if (TestBundles(bundles, object.curves.data(), node, leaves, ray, distance, test)) return true;
            if (distance < before) lanes &= Bits(Less(near, Splat8(distance)));
        }
        if (lanes != 0) {
            const auto target_of = [&node](unsigned lane) { return node.first[lane]; };
            target = (lanes & (lanes - 1)) == 0 ? target_of(static_cast<unsigned>(std::countr_zero(lanes)))
                                                : static_cast<std::uint32_t>(PushFarther(lanes, near, top, target_of));
            continue;
        }
        do {
            if (top == stack) return false;
            --top;
        } while (!(DistanceOf(*top) < distance));
        target = static_cast<std::uint32_t>(*top);
    }
}

}  // namespace hv
