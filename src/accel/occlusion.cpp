#include "accel/accel.h"
#include "accel/curve_walk.h"
#include "accel/evaluate.h"
#include "accel/walk_steps.h"
#include "session/settings.h"
#include "shading/shading.h"

#include <atomic>

namespace hv {

namespace {

/// A node with the lanes of it that are still to be visited, lowest first: 256 * node + lanes. One entry a level does
/// for all lanes, as lane 0 and all below it come before lane 1.
using WaitingNode = std::uint64_t;

/// Shadow rays see neither the light that they go to, which is the hit of their record, nor the primitive they leave.
LeafRay MakeLeafRay(const RayRecord& ray)
{
    const auto skipped = [&ray](PrimitiveKind kind, int n) {
        return n == 0 ? SkippedIndex(kind, ray.hit_kind, ray.hit_primitive)
                      : SkippedIndex(kind, ray.from_kind, ray.from_primitive);
    };
    const Vector8 direction = SplatVector8(ray.direction);
    return {SplatVector8(ray.origin),
            direction,
            SumOfSizes(direction),
            {skipped(PrimitiveKind::Triangle, 0), skipped(PrimitiveKind::Triangle, 1)},
            {skipped(PrimitiveKind::Tetragon, 0), skipped(PrimitiveKind::Tetragon, 1)},
            {skipped(PrimitiveKind::Cylinder, 0), skipped(PrimitiveKind::Cylinder, 1)}};
}

bool IsExempt(const RayRecord& ray, const PrimitiveRef& ref)
{
    return (ray.hit_kind == ref.kind && ray.hit_primitive == ref.index) ||
           (ray.from_kind == ref.kind && ray.from_primitive == ref.index);
}

/// Multiplies what a surface lets through into the throughput; true when nothing present is left. A surface that is
/// opaque at every point needs no point.
bool Attenuate(RayRecord& ray, std::uint32_t shader, const SurfaceHit& hit)
{
    const std::uint8_t opaque = hit.front ? shader_traits::kFrontOpaque : shader_traits::kBackOpaque;
    if ((TraitsAt(shader) & opaque) != 0) {
        ray.throughput = kBlack;
        return true;
    }
    SurfacePoint point;
    EvaluateShadow(hit, ray.direction, point);
    ray.throughput *= Transparency(ShaderAt(shader), hit.front, point);
    return !IsPresent(ray.throughput);
}

/// The lanes that pass, in reference order. True when one of them ended the ray.
__attribute__((noinline)) bool AttenuateLanes(const Object& object, const LeafBlock& block, unsigned lanes,
                                              const LaneResults& results, RayRecord& ray)
{
    for (; lanes != 0; lanes &= lanes - 1) {
        const auto          lane   = static_cast<unsigned>(std::countr_zero(lanes));
        const std::uint32_t shader = block.shader[lane];
        if (!IsVisible(ray, shader)) continue;
        const Vector     parameters = FaceParameters(block, results, lane);
        const SurfaceHit hit{&object.parts[block.part[lane]],
                             block.index[lane],
                             static_cast<PrimitiveKind>(block.kind),
                             results.denominator[lane] < 0.0f,
                             parameters.x,
                             parameters.y,
                             parameters.z};
        if (Attenuate(ray, shader, hit)) return true;
    }
    return false;
}

constexpr unsigned kNoLane = 8;

/// Walks the curve tree. True when a curve ended the ray.
template <bool kFinite>
__attribute__((noinline)) bool OccludeByCurves(const Object& object, const SlabRay& slab, const LeafRay& leaf_ray,
                                               WaitingLane* stack, RayRecord& ray)
{
    return WalkCurves<kFinite>(object, slab, leaf_ray, ray.distance, stack, [&](const PlacedCurve& placed) {
        CurveHit hit;
        if (!MeetCurve(placed.curve, leaf_ray.origin, leaf_ray.direction, ray.distance, hit)) return false;
        const Part& part = object.parts[placed.part];
        if (!IsVisible(ray, part.shaderID)) return false;
        return Attenuate(ray, part.shaderID,
                         {&part, placed.index, PrimitiveKind::Cylinder, true, hit.across, -hit.denominator, hit.along});
    });
}

template <bool kLog>
bool Walk(Object& object, RayRecord& ray);

template <bool kLog>
bool OccludeInstance(const Instance& instance, RayRecord& ray)
{
    Object* const placed = PlacedObject(instance, ray);
    if (placed == nullptr) return false;
    const InstanceEntry entry(ray, instance, -kInfinity);
    return IsWalkable(ray.origin, ray.direction) && Walk<kLog>(*placed, ray);
}

bool OccludeByParticle(const Part& part, std::uint32_t index, RayRecord& ray)
{
    float t;
    if (!OccludeParticle(part, index, ray, t)) return false;
    const Vector outward = t * ray.direction - (part.positions[part.particles[index]] - ray.origin);
    return Attenuate(ray, part.shaderID,
                     {&part, index, PrimitiveKind::Particle, true, outward.x, outward.y, outward.z});
}

bool OccludeByCylinder(const Part& part, std::uint32_t index, RayRecord& ray)
{
    CylinderHit hit;
    if (!IntersectCylinder(part, index, ray, hit)) return false;
    return Attenuate(ray, part.shaderID,
                     {&part, index, PrimitiveKind::Cylinder, true, hit.across, -hit.denominator, hit.along});
}

/// A reference of the kinds that are not packed. Only the first frame's rays meet curves here.
template <bool kLog>
bool OccludeByLoose(Object& object, const PrimitiveRef& ref, RayRecord& ray)
{
    const auto kind = static_cast<PrimitiveKind>(ref.kind);
    if (kind == PrimitiveKind::Instance) return OccludeInstance<kLog>(object.instances[ref.index], ray);
    if (IsExempt(ray, ref)) return false;
    switch (kind) {
    case PrimitiveKind::Particle:
        return OccludeByParticle(object.parts[ref.part], ref.index, ray);
    case PrimitiveKind::Cylinder:
        return kLog && OccludeByCylinder(object.parts[ref.part], ref.index, ray);
    default:
        return false;
    }
}

template <bool kLog>
__attribute__((noinline)) bool OccludeByLooseBlock(Object& object, std::size_t block, unsigned lanes, RayRecord& ray)
{
    for (; lanes != 0; lanes &= lanes - 1)
        if (OccludeByLoose<kLog>(object, object.wideRefs[kBlockLength * block + std::countr_zero(lanes)], ray))
            return true;
    return false;
}

/// Tests the leaf of one lane block by block: one that shares no block, or of kinds that are not packed. True when the
/// ray was stopped.
template <bool kLog>
__attribute__((noinline)) bool OccludeByLongLeaf(Object& object, const WideNode& node, unsigned lane,
                                                 const LeafRay& leaf_ray, Float8 limit, RayRecord& ray)
{
    std::size_t   b     = node.first[lane] / kBlockLength;
    unsigned      start = node.first[lane] % kBlockLength;
    std::uint32_t left  = node.count[lane];
    for (;; ++b) {
        const LeafBlock& block = object.leafBlocks[b];
        const unsigned   own   = LeafLanes(block, start, left);
        if (IsFaces(block)) {
            LaneResults    results;
            const unsigned passes = TestFaces(block, leaf_ray, limit, results) & own;
            if (passes != 0 && AttenuateLanes(object, block, passes, results, ray)) return true;
        } else if (OccludeByLooseBlock<kLog>(object, b, own, ray)) {
            return true;
        }
        if (left <= block.used - start) return false;
        left -= block.used - start;
        start = 0;
    }
}

/// Attenuates by what passed in the leaves `lanes` of a node. Returns the lane that stopped the ray, or kNoLane.
__attribute__((noinline)) unsigned AttenuateLeaves(const Object& object, const WideNode& node, unsigned lanes,
                                                   const LeafBlock& block, unsigned passes, const LaneResults& results,
                                                   RayRecord& ray)
{
    for (; lanes != 0; lanes &= lanes - 1) {
        const auto lane = static_cast<unsigned>(std::countr_zero(lanes));
        if (AttenuateLanes(object, block, passes & node.blockLanes[lane], results, ray)) return lane;
    }
    return kNoLane;
}

/// Tests leaves that lie in the shared blocks of their node, all of a block at once.
HV_INLINE unsigned OccludeBySharedLeaves(const Object& object, const WideNode& node, unsigned lanes,
                                         const LeafRay& leaf_ray, Float8 limit, RayRecord& ray)
{
    const unsigned in_first    = EighthEqualBits8(node.first, node.block) & lanes;
    const unsigned in_block[2] = {in_first, lanes & ~in_first};
    for (int b = 0; b < 2; ++b) {
        if (in_block[b] == 0) continue;
        const LeafBlock& block = object.leafBlocks.data()[node.block + b];
        LaneResults      results;
        const unsigned   passes = TestFaces(block, leaf_ray, limit, results);
        if (passes == 0) continue;
        const unsigned lane = AttenuateLeaves(object, node, in_block[b], block, passes, results, ray);
        if (lane != kNoLane) return lane;
    }
    return kNoLane;
}

/// Where an occlusion walk stands: a node and the lanes of it that are still to be visited.
struct Standing {
    std::uint32_t node;
    unsigned      lanes;
};

/// Goes on until leaves come up: those of a node that share blocks, when it is entered, or one long leaf. False when
/// nothing is left. A loop of its own, so that the ray stays in registers.
/// kCurves: there is a curve tree, and lanes that are left to it.
template <bool kFinite, bool kCurves, bool kLog>
HV_INLINE bool FindLeaves(const WideNode* nodes, const SlabRay& slab, Float8 limit, bool enters,
                          const WaitingNode* stack, WaitingNode*& top, Standing& standing, unsigned& leaves)
{
    std::uint32_t node  = standing.node;
    unsigned      lanes = standing.lanes;
    while (true) {
        if (enters) {
            Float8 near;
            lanes                 = SlabTest8<kFinite>(nodes[node], slab, limit, near);
            const unsigned curves = kCurves ? EqualByteBits8(nodes[node].blockLanes, kCurveLane) : 0;
            if constexpr (!kLog) lanes &= ~curves;
            const unsigned shared = lanes & NonZeroBits8(nodes[node].blockLanes) & ~curves;
            if (shared != 0) {
                standing = {node, lanes & ~shared};
                leaves   = shared;
                return true;
            }
        }
        if (lanes == 0) {
            if (top == stack) return false;
            --top;
            node  = static_cast<std::uint32_t>(*top >> 8);
            lanes = static_cast<unsigned>(*top & 255);
        }
        const auto lane = static_cast<unsigned>(std::countr_zero(lanes));
        lanes &= lanes - 1;
        if (nodes[node].count[lane] != 0) {
            standing = {node, lanes};
            leaves   = 1u << lane;
            return true;
        }
        *top = std::uint64_t{node} << 8 | lanes;
        top += lanes != 0;
        node   = nodes[node].first[lane];
        enters = true;
    }
}

/// The walk itself; `stack` has room for WaitingRoom(DepthOf(object)) entries, more than one a level. The rays of the
/// first frame count their visits by the leaf, so they walk down to all of them.
template <bool kLog, bool kFinite, bool kCurves>
__attribute__((noinline)) bool WalkNodes(Object& object, RayRecord& ray, WaitingNode* stack)
{
    const WideNode* const nodes      = object.wideNodes.data();
    const SlabRay         slab       = MakeSlabRay(ray.origin, ray.inverse_direction);
    const LeafRay         leaf_ray   = MakeLeafRay(ray);
    const Float8          box_limit  = Splat8(ray.distance);
    const Float8          face_limit = Splat8(ray.distance - kRayEpsilon);
    WaitingNode*          top        = stack;
    Standing              standing{0, 0};
    unsigned              leaves;

    for (bool enters = true;
         FindLeaves<kFinite, kCurves, kLog>(nodes, slab, box_limit, enters, stack, top, standing, leaves);
         enters = false) {
        const WideNode& node  = nodes[standing.node];
        unsigned        lane  = static_cast<unsigned>(std::countr_zero(leaves));
        const auto      block = node.blockLanes[lane];
        if (block != 0 && block != kCurveLane)
            lane = OccludeBySharedLeaves(object, node, leaves, leaf_ray, face_limit, ray);
        else if (!OccludeByLongLeaf<kLog>(object, node, lane, leaf_ray, face_limit, ray))
            lane = kNoLane;
        if (lane == kNoLane) continue;
        if constexpr (kLog)
            std::atomic_ref(object.wideVisits[standing.node][lane]).fetch_add(1, std::memory_order_relaxed);
        return true;
    }
    if constexpr (kCurves && !kLog) return OccludeByCurves<kFinite>(object, slab, leaf_ray, stack, ray);
    return false;
}

template <bool kLog>
bool WalkWith(Object& object, RayRecord& ray, WaitingNode* stack)
{
    const bool is_finite = IsFinite(ray.inverse_direction);
    if (HasCurves(object))
        return is_finite ? WalkNodes<kLog, true, true>(object, ray, stack)
                         : WalkNodes<kLog, false, true>(object, ray, stack);
    return is_finite ? WalkNodes<kLog, true, false>(object, ray, stack)
                     : WalkNodes<kLog, false, false>(object, ray, stack);
}

template <bool kLog>
__attribute__((noinline)) bool WalkDeep(Object& object, RayRecord& ray)
{
    std::vector<WaitingNode> stack(WaitingRoom(DepthOf(object)));
    return WalkWith<kLog>(object, ray, stack.data());
}

/// No normalisation on the way into instances: `distance` stays in units of the ray as it was cast.
template <bool kLog>
bool Walk(Object& object, RayRecord& ray)
{
    if (object.wideNodes.empty()) return false;
    ray.inverse_direction = Reciprocal(ray.direction, -kInfinity);
    if (DepthOf(object) > kUsualDepth) return WalkDeep<kLog>(object, ray);
    WaitingNode stack[WaitingRoom(kUsualDepth)];
    return WalkWith<kLog>(object, ray, stack);
}

}  // namespace

bool TraceOcclusion(RayRecord& ray)
{
    ray.instance_depth = 0;
    ++OcclusionRayCounters[ray.thread];
    ray.throughput = kWhite;
    if (RootObject >= Objects.size() || !IsWalkable(ray.origin, ray.direction)) return false;
    return CurrentFrame == 0 ? Walk<true>(Objects[RootObject], ray) : Walk<false>(Objects[RootObject], ray);
}

}  // namespace hv
