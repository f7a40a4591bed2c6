#include "accel/accel.h"
#include "accel/curve_walk.h"
#include "accel/walk_steps.h"
#include "session/settings.h"

namespace hv {

namespace {

/// What lies behind a lane: a node, or with this bit set the leaf of a lane, 8 * node + lane.
constexpr std::uint32_t kLeafBit = 1u << 31;

HV_INLINE std::uint32_t TargetOf(const WideNode& node, std::uint32_t node_index, unsigned lane)
{
    const std::uint32_t leaf = kLeafBit | node_index << 3 | lane;
    return node.count[lane] != 0 ? leaf : node.first[lane];
}

/// A hit on a packed face; goes into the record when the walk of its object ends.
struct FaceHit {
    const LeafBlock* block       = nullptr;
    unsigned         lane        = 0;
    float            denominator = 0;
    Vector           parameters;
};

/// Nearest distance so far, and the same as the limits of box and face tests.
struct Limits {
    float  distance;
    Float8 box;
    Float8 face;

    HV_INLINE void Set(float to)
    {
        distance = to;
        box      = Splat8(to);
        face     = Splat8(to - kRayEpsilon);
    }
};

/// Takes the lanes that pass in reference order, each against the limit that the one before it left.
HV_INLINE void AcceptLanes(const LeafBlock& block, unsigned lanes, const LaneResults& results, std::uint8_t visibility,
                           Limits& limits, FaceHit& hit)
{
    for (; lanes != 0; lanes &= lanes - 1) {
        const auto lane = static_cast<unsigned>(std::countr_zero(lanes));
        if (!(results.t[lane] <= limits.distance - kRayEpsilon)) continue;
        if ((TraitsAt(block.shader[lane]) & visibility) == 0) continue;
        limits.Set(results.t[lane]);
        hit = {&block, lane, results.denominator[lane], FaceParameters(block, results, lane)};
    }
}

unsigned NearestOf(unsigned lanes, const float* distances)
{
    auto best = static_cast<unsigned>(std::countr_zero(lanes));
    for (lanes &= lanes - 1; lanes != 0; lanes &= lanes - 1) {
        const auto lane = static_cast<unsigned>(std::countr_zero(lanes));
        if (distances[lane] < distances[best]) best = lane;
    }
    return best;
}

/// Leaves to test: lanes of a node. Several of them share the node's blocks and were entered at `distances`.
struct Leaves {
    const WideNode* node;
    unsigned        lanes;
    alignas(32) float distances[8];
};

/// Tests leaves that lie in the shared blocks of their node: all of a block at once, then leaf by leaf what passed, as
/// if each had been visited by itself, the nearest first. That one is visited in any case; the others had to wait, and
/// are dropped when a hit lies before them.
HV_INLINE void TestSharedLeaves(const LeafBlock* blocks, const Leaves& leaves, const LeafRay& ray,
                                std::uint8_t visibility, Limits& limits, FaceHit& hit)
{
    const WideNode& node        = *leaves.node;
    const unsigned  in_first    = EighthEqualBits8(node.first, node.block) & leaves.lanes;
    const unsigned  in_block[2] = {in_first, leaves.lanes & ~in_first};
    unsigned        passes[2]   = {0, 0};
    LaneResults     results[2];
    for (int b = 0; b < 2; ++b)
        if (in_block[b] != 0) passes[b] = TestFaces(blocks[node.block + b], ray, limits.face, results[b]);
    if ((passes[0] | passes[1]) == 0) return;

    unsigned lanes = leaves.lanes;
    for (bool waited = false; lanes != 0; waited = true) {
        const unsigned lane = NearestOf(lanes, leaves.distances);
        if (waited && !(leaves.distances[lane] < limits.distance)) return;
        lanes &= ~(1u << lane);
        const int b = (in_first >> lane & 1) != 0 ? 0 : 1;
        AcceptLanes(blocks[node.block + b], passes[b] & node.blockLanes[lane], results[b], visibility, limits, hit);
    }
}

/// What the records of all hits on packed primitives have in common.
void WriteHit(const Object& object, const Part& part, PrimitiveKind kind, std::uint32_t primitive, std::uint32_t shader,
              float distance, RayRecord& ray)
{
    ray.distance           = distance;
    ray.hit_part           = &part;
    ray.hit_primitive      = primitive;
    ray.hit_kind           = static_cast<std::uint8_t>(kind);
    ray.hit_shader         = shader < ShaderTraits.size() ? shader : 0;
    ray.hit_instance_depth = ray.instance_depth;
    ray.has_density        = object.depth == 0;
}

void WriteFaceHit(const Object& object, const FaceHit& hit, float distance, RayRecord& ray)
{
    const LeafBlock& block = *hit.block;
    WriteHit(object, object.parts[block.part[hit.lane]], static_cast<PrimitiveKind>(block.kind), block.index[hit.lane],
             block.shader[hit.lane], distance, ray);
    ray.hit_u      = hit.parameters.x;
    ray.hit_v      = hit.parameters.y;
    ray.hit_w      = hit.parameters.z;
    ray.front_side = hit.denominator < 0.0f;
}

/// A hit on a curve of the curve tree.
struct PlacedHit {
    const PlacedCurve* placed = nullptr;
    CurveHit           curve;
};

void WriteCurveHit(const Object& object, const PlacedHit& hit, RayRecord& ray)
{
    const Part& part = object.parts[hit.placed->part];
    WriteHit(object, part, PrimitiveKind::Cylinder, hit.placed->index, part.shaderID, hit.curve.t, ray);
    ray.hit_u      = hit.curve.across;
    ray.hit_v      = -hit.curve.denominator;  // cosine of the hair point, which the evaluator could not find again
    ray.hit_w      = hit.curve.along;
    ray.front_side = 1;
}

/// Looks for a hit on a curve before `distance`.
template <bool kFinite>
__attribute__((noinline)) PlacedHit NearestCurve(const Object& object, const SlabRay& slab, const LeafRay& ray,
                                                 std::uint8_t visibility, float distance, WaitingLane* stack)
{
    PlacedHit hit;
    WalkCurves<kFinite>(object, slab, ray, distance, stack, [&](const PlacedCurve& placed) {
        CurveHit found;
        if (!MeetCurve(placed.curve, ray.origin, ray.direction, distance, found)) return false;
        if ((TraitsAt(object.parts[placed.part].shaderID) & visibility) == 0) return false;
        distance = found.t;
        hit      = {&placed, found};
        return false;
    });
    return hit;
}

template <bool kProbe>
bool Walk(Object& object, RayRecord& ray);

/// Walks what an instance places. The outermost instance that names a shader has the last word on the hit's.
template <bool kProbe>
bool WalkInstance(const Instance& instance, RayRecord& ray)
{
    Object* const placed = PlacedObject(instance, ray);
    if (placed == nullptr) return false;
    const InstanceEntry entry(ray, instance, kInfinity);
    if (!IsWalkable(ray.origin, ray.direction) || !Walk<kProbe>(*placed, ray)) return false;
    InstanceNormalMatrices[ray.thread].matrices[ray.instance_depth - 1] = instance.normalMatrix;
    if (instance.shader < Shaders.size()) ray.hit_shader = instance.shader;
    return true;
}

/// Tests a reference of the kinds that are neither packed nor in the curve tree. On a hit the record is written,
/// `distance` included.
template <bool kProbe>
bool TestLoose(Object& object, const PrimitiveRef& ref, RayRecord& ray)
{
    if (static_cast<PrimitiveKind>(ref.kind) == PrimitiveKind::Instance)
        return WalkInstance<kProbe>(object.instances[ref.index], ray);
    if (kProbe || static_cast<PrimitiveKind>(ref.kind) != PrimitiveKind::Particle) return false;
    if (!IntersectParticle(object.parts[ref.part], ref.index, ray)) return false;
    ray.hit_instance_depth = ray.instance_depth;
    ray.has_density        = object.depth == 0;
    return true;
}

template <bool kProbe>
__attribute__((noinline)) bool TestLooseBlock(Object& object, std::size_t block, unsigned lanes, RayRecord& ray)
{
    bool any = false;
    for (; lanes != 0; lanes &= lanes - 1)
        any |= TestLoose<kProbe>(object, object.wideRefs[kBlockLength * block + std::countr_zero(lanes)], ray);
    return any;
}

/// Goes down from `target` and on to the lanes that wait, the nearest first, until leaves come up. False when none
/// waits any more. A loop of its own, so that the ray stays in registers.
/// kCurves: there is a curve tree, and lanes that are left to it.
template <bool kFinite, bool kCurves>
HV_INLINE bool FindLeaves(const WideNode* nodes, const SlabRay& slab, const Limits& limits, const WaitingLane* stack,
                          WaitingLane*& top, std::uint32_t target, Leaves& leaves)
{
    while (true) {
        while ((target & kLeafBit) == 0) {
            const WideNode& node = nodes[target];
            Float8          near;
            unsigned        lanes = SlabTest8<kFinite>(node, slab, limits.box, near);
            if constexpr (kCurves) lanes &= ~EqualByteBits8(node.blockLanes, kCurveLane);
            if (lanes == 0) {
                target = kNone;
            } else if ((lanes & ~NonZeroBits8(node.blockLanes)) == 0) {
                Store8(leaves.distances, near);
                leaves.node  = &node;
                leaves.lanes = lanes;
                return true;
            } else if ((lanes & (lanes - 1)) == 0) {
                target = TargetOf(node, target, static_cast<unsigned>(std::countr_zero(lanes)));
            } else {
                const auto target_of = [&node, target](unsigned lane) { return TargetOf(node, target, lane); };
                target               = static_cast<std::uint32_t>(PushFarther(lanes, near, top, target_of));
            }
        }
        if (target != kNone) {
            leaves.node  = &nodes[(target & ~kLeafBit) >> 3];
            leaves.lanes = 1u << (target & 7);
            return true;
        }
        do {
            if (top == stack) return false;
            --top;
        } while (!(DistanceOf(*top) < limits.distance));
        target = static_cast<std::uint32_t>(*top);
    }
}

/// Tests the leaf of one lane block by block: one that shares no block, or of kinds that are not packed.
template <bool kProbe>
__attribute__((noinline)) bool TestLongLeaf(Object& object, const Leaves& leaves, const LeafRay& leaf_ray,
                                            std::uint8_t visibility, Limits& limits, FaceHit& hit, RayRecord& ray)
{
    const auto  lane  = static_cast<unsigned>(std::countr_zero(leaves.lanes));
    bool        any   = false;
    std::size_t b     = leaves.node->first[lane] / kBlockLength;
    unsigned    start = leaves.node->first[lane] % kBlockLength;
    for (std::uint32_t left = leaves.node->count[lane];; ++b) {
        const LeafBlock& block = object.leafBlocks[b];
        const unsigned   own   = LeafLanes(block, start, left);
        if (IsFaces(block)) {
            LaneResults    results;
            const unsigned passes = TestFaces(block, leaf_ray, limits.face, results) & own;
            AcceptLanes(block, passes, results, visibility, limits, hit);
        } else {
            ray.distance = limits.distance;
            if (TestLooseBlock<kProbe>(object, b, own, ray)) {
                any       = true;
                hit.block = nullptr;  // what the record holds now is nearer
                limits.Set(ray.distance);
            }
        }
        if (left <= block.used - start) return any;
        left -= block.used - start;
        start = 0;
    }
}

/// The primitives that the ray does not see. Meant: a probe may meet the triangle that it starts on, though not the
/// tetragon.
template <bool kProbe>
LeafRay MakeLeafRay(const RayRecord& ray)
{
    const std::uint32_t triangle  = SkippedIndex(PrimitiveKind::Triangle, ray.from_kind, ray.from_primitive);
    const std::uint32_t tetragon  = SkippedIndex(PrimitiveKind::Tetragon, ray.from_kind, ray.from_primitive);
    const std::uint32_t cylinder  = SkippedIndex(PrimitiveKind::Cylinder, ray.from_kind, ray.from_primitive);
    const Vector8       direction = SplatVector8(ray.direction);
    return {SplatVector8(ray.origin),           direction,         SumOfSizes(direction),
            {kProbe ? kNone : triangle, kNone}, {tetragon, kNone}, {cylinder, kNone}};
}

/// The walk itself; `stack` has room for WaitingRoom(DepthOf(object)) lanes.
template <bool kProbe, bool kFinite, bool kCurves>
__attribute__((noinline)) bool WalkNodes(Object& object, RayRecord& ray, WaitingLane* stack)
{
    const WideNode* const nodes      = object.wideNodes.data();
    const SlabRay         slab       = MakeSlabRay(ray.origin, ray.inverse_direction);
    const LeafRay         leaf_ray   = MakeLeafRay<kProbe>(ray);
    const std::uint8_t    visibility = VisibilityNeeded(ray);
    WaitingLane*          top        = stack;
    bool                  any        = false;
    Limits                limits;
    FaceHit               hit;
    Leaves                leaves;
    limits.Set(ray.distance);

    std::uint32_t target = 0;
    while (FindLeaves<kFinite, kCurves>(nodes, slab, limits, stack, top, target, leaves)) {
        target = kNone;
        if (leaves.node->blockLanes[std::countr_zero(leaves.lanes)] != 0) {
            TestSharedLeaves(object.leafBlocks.data(), leaves, leaf_ray, visibility, limits, hit);
        } else {
            Limits local = limits;  // not its address, which would keep the limits out of registers
            any |= TestLongLeaf<kProbe>(object, leaves, leaf_ray, visibility, local, hit, ray);
            limits.Set(local.distance);
        }
    }
    if (hit.block != nullptr) WriteFaceHit(object, hit, limits.distance, ray);
    any |= hit.block != nullptr;
    if constexpr (kCurves && !kProbe) {
        const PlacedHit curve = NearestCurve<kFinite>(object, slab, leaf_ray, visibility, limits.distance, stack);
        if (curve.placed != nullptr) WriteCurveHit(object, curve, ray);
        any |= curve.placed != nullptr;
    }
    return any;
}

/// A walk with finite inverses takes the shorter box test.
template <bool kProbe>
bool WalkWith(Object& object, RayRecord& ray, WaitingLane* stack)
{
    const bool is_finite = IsFinite(ray.inverse_direction);
    if (HasCurves(object))
        return is_finite ? WalkNodes<kProbe, true, true>(object, ray, stack)
                         : WalkNodes<kProbe, false, true>(object, ray, stack);
    return is_finite ? WalkNodes<kProbe, true, false>(object, ray, stack)
                     : WalkNodes<kProbe, false, false>(object, ray, stack);
}

/// Trees deeper than any that geometry gives without malice.
template <bool kProbe>
__attribute__((noinline)) bool WalkDeep(Object& object, RayRecord& ray)
{
    std::vector<WaitingLane> stack(WaitingRoom(DepthOf(object)));
    return WalkWith<kProbe>(object, ray, stack.data());
}

template <bool kProbe>
bool Walk(Object& object, RayRecord& ray)
{
    if constexpr (!kProbe) ray.direction = Normalized(ray.direction);
    if (object.wideNodes.empty()) return false;
    if (DepthOf(object) > kUsualDepth) return WalkDeep<kProbe>(object, ray);
    WaitingLane stack[WaitingRoom(kUsualDepth)];
    return WalkWith<kProbe>(object, ray, stack);
}

template <bool kProbe>
bool TraceFromRoot(RayRecord& ray)
{
    ray.instance_depth = 0;
    ++PrimaryRayCounters[ray.thread];
    if (RootObject >= Objects.size()) return false;
    ray.inverse_direction = Reciprocal(ray.direction, kInfinity);
    if constexpr (!kProbe) ray.distance = kFarAway;
    return IsWalkable(ray.origin, ray.direction) && Walk<kProbe>(Objects[RootObject], ray);
}

}  // namespace

bool TraceClosest(RayRecord& ray) { return TraceFromRoot<false>(ray); }

bool TraceProbe(RayRecord& ray) { return TraceFromRoot<true>(ray); }

}  // namespace hv
