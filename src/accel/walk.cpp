#include "accel/accel.h"
#include "accel/tube.h"
#include "accel/walk_steps.h"
#include "session/settings.h"

namespace hv {

namespace {

/// A lane that waits on the stack: the bits of its entry distance above what lies behind it. Distances are positive, so
/// the order of these numbers is that of the distances.
using WaitingLane = std::uint64_t;

/// What lies behind a lane: a node, or with this bit set the leaf of a lane, 8 * node + lane.
constexpr std::uint32_t kLeafBit = 1u << 31;

HV_INLINE std::uint32_t TargetOf(const WideNode& node, std::uint32_t node_index, unsigned lane)
{
    const std::uint32_t leaf = kLeafBit | node_index << 3 | lane;
    return node.count[lane] != 0 ? leaf : node.first[lane];
}

/// Most lanes that ever wait at once: seven at each level, and all eight of the last while they are sorted.
constexpr std::size_t WaitingRoom(std::uint32_t depth) { return 7 * (std::size_t{depth} + 1) + 1; }

float DistanceOf(WaitingLane waiting) { return std::bit_cast<float>(static_cast<std::uint32_t>(waiting >> 32)); }

/// Sorts two so that the nearer comes first; of equals the order stays. Spelt out in bits, as the outcome cannot be
/// foretold and compilers make a branch of anything else.
HV_INLINE void Order(WaitingLane& a, WaitingLane& b)
{
    const WaitingLane swapped = (a ^ b) & (WaitingLane{0} - static_cast<WaitingLane>(b >> 32 < a >> 32));
    a ^= swapped;
    b ^= swapped;
}

/// Sorts lanes that were pushed to [begin, end), the nearest last.
void SortNearestLast(WaitingLane* begin, WaitingLane* end)
{
    for (WaitingLane* next = begin + 1; next < end; ++next) {
        const WaitingLane moved = *next;
        WaitingLane*      place = next;
        for (; place > begin && place[-1] < moved; --place) *place = place[-1];
        *place = moved;
    }
}

/// One step down from a node: pushes the lanes that the ray enters but for the nearest, which is returned.
HV_INLINE WaitingLane PushFarther(const WideNode& node, std::uint32_t node_index, unsigned lanes, Float8 near,
                                  WaitingLane*& top)
{
    alignas(32) float distances[8];
    Store8(distances, near);
    const auto take = [&] {
        const unsigned lane = static_cast<unsigned>(std::countr_zero(lanes));
        lanes &= lanes - 1;
        return std::uint64_t{std::bit_cast<std::uint32_t>(distances[lane])} << 32 | TargetOf(node, node_index, lane);
    };

    WaitingLane a = take(), b = take();
    Order(a, b);
    if (lanes == 0) {
        *top++ = b;
        return a;
    }
    WaitingLane c = take();
    if (lanes == 0) {
        Order(b, c);
        Order(a, b);
        top[0] = c;
        top[1] = b;
        top += 2;
        return a;
    }
    WaitingLane d = take();
    Order(c, d);
    Order(a, c);
    Order(b, d);
    Order(b, c);
    top[0]                   = d;
    top[1]                   = c;
    top[2]                   = b;
    top[3]                   = a;
    WaitingLane* const begin = top;
    top += 4;
    if (lanes != 0) {
        while (lanes != 0) *top++ = take();
        SortNearestLast(begin, top);
    }
    return *--top;
}

constexpr float kFrontFacing = -1.0f;  ///< denominator of the hits that have one side only

/// A hit on a packed face or curve; goes into the record when the walk of its object ends.
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

/// The same for curves, each of which is tested now. Returns the distance that is left.
HV_INLINE float AcceptCurves(const Object& object, const LeafBlock& block, unsigned lanes, const LeafRay& ray,
                             std::uint8_t visibility, float distance, FaceHit& hit)
{
    for (; lanes != 0; lanes &= lanes - 1) {
        const auto  lane = static_cast<unsigned>(std::countr_zero(lanes));
        const Part& part = object.parts[block.part[lane]];
        CurveHit    found;
        if ((TraitsAt(part.shaderID) & visibility) == 0) continue;
        if (!MeetCurve(PackedCurve(block, lane, part), ray.origin, ray.direction, distance, found)) continue;
        distance = found.t;
        // The cosine of the hair point is kept, as the evaluator could not find it again.
        hit = {&block, lane, kFrontFacing, {found.across, -found.denominator, found.along}};
    }
    return distance;
}

/// Tests the leaves of curves in `lanes` of a node.
__attribute__((noinline)) float TestCurveLeaves(const Object& object, const WideNode& node, unsigned lanes,
                                                const LeafRay& ray, std::uint8_t visibility, float distance,
                                                FaceHit& hit)
{
    const auto test = [&](const LeafBlock& block, unsigned own) __attribute__((always_inline))
    {
        const unsigned passes = TestCurves(block, own, ray, Splat8(distance));
        distance              = AcceptCurves(object, block, passes, ray, visibility, distance, hit);
    };
    while (lanes != 0) {
        const CurveGroup group = GroupCurves(node, lanes);
        lanes &= ~group.leaves;
        if (group.goes_on)
            ForCurveLeaves(object.leafBlocks.data(), node, group.leaves, test);
        else
            test(object.leafBlocks[group.block], group.own);
    }
    return distance;
}

/// Tests the bundles of `lanes` of a node.
__attribute__((noinline)) float TestBundles(const Object& object, const LaneTubes& tubes, unsigned lanes,
                                            const LeafRay& ray, std::uint8_t visibility, float distance, FaceHit& hit)
{
    ForNearBundled(
        object.curveBundles.data(), object.leafBlocks.data(), tubes, lanes, ray,
        distance, [&](const LeafBlock& block, unsigned own) __attribute__((always_inline)) {
            distance = AcceptCurves(object, block, own, ray, visibility, distance, hit);
        });
    return distance;
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

void WriteHit(const Object& object, const FaceHit& hit, float distance, RayRecord& ray)
{
    const Part&         part   = object.parts[hit.block->part[hit.lane]];
    const bool          curve  = HasKind(*hit.block, PrimitiveKind::Cylinder);
    const std::uint32_t shader = curve ? part.shaderID : hit.block->shader[hit.lane];
    ray.distance               = distance;
    ray.hit_part               = &part;
    ray.hit_primitive          = hit.block->index[hit.lane];
    ray.hit_kind               = hit.block->kind;
    ray.hit_shader             = shader < ShaderTraits.size() ? shader : 0;
    ray.hit_u                  = hit.parameters.x;
    ray.hit_v                  = hit.parameters.y;
    ray.hit_w                  = hit.parameters.z;
    ray.front_side             = hit.denominator < 0.0f;
    ray.hit_instance_depth     = ray.instance_depth;
    ray.has_density            = object.depth == 0;
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

bool TestCylinder(const Part& part, std::uint32_t index, RayRecord& ray)
{
    const auto kind = static_cast<std::uint8_t>(PrimitiveKind::Cylinder);
    if (ray.from_kind == kind && ray.from_primitive == index) return false;
    CylinderHit hit;
    if (!IntersectCylinder(part, index, ray, hit)) return false;
    ray.distance      = hit.t;
    ray.hit_part      = &part;
    ray.hit_shader    = hit.shader;
    ray.hit_primitive = index;
    ray.hit_kind      = kind;
    ray.front_side    = 1;
    ray.hit_u         = hit.across;
    ray.hit_v         = -hit.denominator;  // the cosine of the hair point, which the evaluator could not find again
    ray.hit_w         = hit.along;
    return true;
}

/// Tests a reference of the kinds that are not packed. On a hit the record is written, `distance` included.
template <bool kProbe>
bool TestLoose(Object& object, const PrimitiveRef& ref, RayRecord& ray)
{
    if (static_cast<PrimitiveKind>(ref.kind) == PrimitiveKind::Instance)
        return WalkInstance<kProbe>(object.instances[ref.index], ray);
    if constexpr (kProbe) return false;
    bool hit = false;
    switch (static_cast<PrimitiveKind>(ref.kind)) {
    case PrimitiveKind::Particle:
        hit = IntersectParticle(object.parts[ref.part], ref.index, ray);
        break;
    case PrimitiveKind::Cylinder:
        hit = TestCylinder(object.parts[ref.part], ref.index, ray);
        break;
    default:
        break;
    }
    if (!hit) return false;
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
/// `test_curves` takes the lanes of curves out and tests them at once.
template <bool kFinite, class TestCurves>
HV_INLINE bool FindLeaves(const WideNode* nodes, const SlabRay& slab, Limits& limits, const WaitingLane* stack,
                          WaitingLane*& top, std::uint32_t target, Leaves& leaves, const TestCurves& test_curves)
{
    while (true) {
        while ((target & kLeafBit) == 0) {
            const WideNode& node = nodes[target];
            Float8          near;
            unsigned        lanes = SlabTest8<kFinite>(node, slab, limits.box, near);
            test_curves(node, near, lanes, limits);
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
                target = static_cast<std::uint32_t>(PushFarther(node, target, lanes, near, top));
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

/// The walk itself; `stack` has room for WaitingRoom(object.wideDepth) lanes. kCurves: there are leaves of curves.
template <bool kProbe, bool kFinite, bool kCurves>
__attribute__((noinline)) bool WalkNodes(Object& object, RayRecord& ray, WaitingLane* stack)
{
    const WideNode* const  nodes      = object.wideNodes.data();
    const LaneTubes* const tubes      = object.wideTubes.data();
    const SlabRay          slab       = MakeSlabRay(ray.origin, ray.inverse_direction);
    const LeafRay          leaf_ray   = MakeLeafRay<kProbe>(ray);
    const std::uint8_t     visibility = VisibilityNeeded(ray);
    WaitingLane*           top        = stack;
    bool                   any        = false;
    Limits                 limits;
    FaceHit                hit;
    Leaves                 leaves;
    limits.Set(ray.distance);

    // Few rays that enter the box of a curve come near it, so curves are tested where they come up: that costs less
    // than to let them wait. Tubes of other lanes turn down few and are tested along with those of curves only.
    const auto test_curves = [&](const WideNode& node, Float8 near, unsigned& lanes, Limits& ahead) {
        if constexpr (!kCurves) return;
        if ((lanes & NonZeroBits8(node.blockLanes)) == 0) return;
        const LaneTubes& lane_tubes = tubes[&node - nodes];
        lanes                       = NearTubes(node, lane_tubes, lanes, leaf_ray);
        const unsigned leaf_lanes   = lanes & EqualByteBits8(node.blockLanes, kCurveLeaf);
        const unsigned bundle_lanes = lanes & EqualByteBits8(node.blockLanes, kCurveBundle);
        lanes &= ~(leaf_lanes | bundle_lanes);
        if constexpr (kProbe) return;
        if ((leaf_lanes | bundle_lanes) == 0) return;
        FetchNodes(nodes, tubes, node, lanes);
        float distance = ahead.distance;
        if (leaf_lanes != 0) distance = TestCurveLeaves(object, node, leaf_lanes, leaf_ray, visibility, distance, hit);
        if (bundle_lanes != 0)
            distance = TestBundles(object, lane_tubes, bundle_lanes, leaf_ray, visibility, distance, hit);
        if (!(distance < ahead.distance)) return;
        ahead.Set(distance);
        lanes &= Bits(Less(near, ahead.box));
    };

    std::uint32_t target = 0;
    while (FindLeaves<kFinite>(nodes, slab, limits, stack, top, target, leaves, test_curves)) {
        target = kNone;
        if (leaves.node->blockLanes[std::countr_zero(leaves.lanes)] != 0) {
            TestSharedLeaves(object.leafBlocks.data(), leaves, leaf_ray, visibility, limits, hit);
        } else {
            Limits local = limits;  // not its address, which would keep the limits out of registers
            any |= TestLongLeaf<kProbe>(object, leaves, leaf_ray, visibility, local, hit, ray);
            limits.Set(local.distance);
        }
    }
    if (hit.block != nullptr) WriteHit(object, hit, limits.distance, ray);
    return any || hit.block != nullptr;
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
    std::vector<WaitingLane> stack(WaitingRoom(object.wideDepth));
    return WalkWith<kProbe>(object, ray, stack.data());
}

template <bool kProbe>
bool Walk(Object& object, RayRecord& ray)
{
    if constexpr (!kProbe) ray.direction = Normalized(ray.direction);
    if (object.wideNodes.empty()) return false;
    if (object.wideDepth > kUsualDepth) return WalkDeep<kProbe>(object, ray);
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
