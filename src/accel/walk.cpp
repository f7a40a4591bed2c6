#include "accel/accel.h"
#include "accel/walk_steps.h"
#include "session/settings.h"

namespace hv {

namespace {

/// A lane that waits on the stack: the bits of its entry distance above 8 * node + lane. Distances are positive, so the
/// order of these numbers is that of the distances; of equals the lower lane comes first.
using WaitingLane = std::uint64_t;

WaitingLane MakeWaiting(float distance, std::uint32_t node, unsigned lane)
{
    return std::uint64_t{std::bit_cast<std::uint32_t>(distance)} << 32 | (node << 3 | lane);
}

/// Most lanes that ever wait at once: seven at each level, and all eight of the last while they are sorted.
constexpr std::size_t WaitingRoom(std::uint32_t depth) { return 7 * (std::size_t{depth} + 1) + 1; }

float DistanceOf(WaitingLane waiting) { return std::bit_cast<float>(static_cast<std::uint32_t>(waiting >> 32)); }

/// Where a walk stands: a node, or a leaf range when count is not 0.
struct Place {
    std::uint32_t first, count;
};

HV_INLINE Place PlaceOf(const WideNode* nodes, std::uint32_t node_and_lane)
{
    const WideNode& node = nodes[node_and_lane >> 3];
    return {node.first[node_and_lane & 7], node.count[node_and_lane & 7]};
}

/// Sorts two so that the nearer comes first; without a branch, as the outcome cannot be foretold.
HV_INLINE void Order(WaitingLane& a, WaitingLane& b)
{
    const WaitingLane nearer = std::min(a, b), farther = std::max(a, b);
    a = nearer;
    b = farther;
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
HV_INLINE WaitingLane PushFarther(unsigned lanes, Float8 near, std::uint32_t node, WaitingLane*& top)
{
    alignas(32) float distances[8];
    Store8(distances, near);
    const auto take = [&] {
        const unsigned lane = static_cast<unsigned>(std::countr_zero(lanes));
        lanes &= lanes - 1;
        return MakeWaiting(distances[lane], node, lane);
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

/// A hit on a packed face; goes into the record when the walk of its object ends.
struct FaceHit {
    const LeafBlock* block       = nullptr;
    unsigned         lane        = 0;
    std::uint32_t    shader      = 0;
    float            denominator = 0, u = 0, v = 0, w = 0;
};

/// Nearest distance so far, and the same as the limits of box and face tests.
struct Limits {
    float  distance;
    Float8 box;
    Float4 face;

    HV_INLINE void Set(float to)
    {
        distance = to;
        box      = Splat8(to);
        face     = Splat4(to - kRayEpsilon);
    }
};

/// Takes the lanes that pass in reference order, each against the limit that the one before it left.
template <PrimitiveKind kKind>
HV_INLINE void AcceptLanes(const Object& object, const LeafBlock& block, unsigned lanes, const LaneResults& results,
                           std::uint8_t visibility, Limits& limits, FaceHit& hit)
{
    for (; lanes != 0; lanes &= lanes - 1) {
        const auto lane = static_cast<unsigned>(std::countr_zero(lanes));
        if (!(results.t[lane] <= limits.distance - kRayEpsilon)) continue;
        const std::uint32_t shader = StampedShader(object, block, lane);
        if ((TraitsAt(shader) & visibility) == 0) continue;
        limits.Set(results.t[lane]);
        hit.block       = &block;
        hit.lane        = lane;
        hit.shader      = shader;
        hit.denominator = results.denominator[lane];
        if constexpr (kKind == PrimitiveKind::Triangle) {
            hit.u = results.c[lane];
            hit.v = results.a[lane];
            hit.w = results.b[lane];
        } else {
            hit.u = EdgeRatio(results.a[lane], results.c[lane]);
            hit.v = EdgeRatio(results.d[lane], results.b[lane]);
            hit.w = 0.0f;
        }
    }
}

void WriteHit(const Object& object, const FaceHit& hit, float distance, RayRecord& ray)
{
    ray.distance           = distance;
    ray.hit_part           = &object.parts[hit.block->part[hit.lane]];
    ray.hit_primitive      = hit.block->index[hit.lane];
    ray.hit_kind           = hit.block->kind;
    ray.hit_shader         = hit.shader < ShaderTraits.size() ? hit.shader : 0;
    ray.hit_u              = hit.u;
    ray.hit_v              = hit.v;
    ray.hit_w              = hit.w;
    ray.front_side         = hit.denominator < 0.0f;
    ray.hit_instance_depth = ray.instance_depth;
    ray.has_density        = object.depth == 0;
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
__attribute__((noinline)) bool TestLooseBlock(Object& object, std::size_t block, RayRecord& ray)
{
    bool any = false;
    for (std::size_t n = 0; n < object.leafBlocks[block].used; ++n)
        any |= TestLoose<kProbe>(object, object.wideRefs[4 * block + n], ray);
    return any;
}

/// The walk itself; `stack` has room for WaitingRoom(object.wideDepth) lanes.
template <bool kProbe>
HV_INLINE bool WalkNodes(Object& object, RayRecord& ray, WaitingLane* stack)
{
    const WideNode* const  nodes      = object.wideNodes.data();
    const LeafBlock* const blocks     = object.leafBlocks.data();
    const SlabRay          slab       = MakeSlabRay(ray.origin, ray.inverse_direction);
    const std::uint8_t     visibility = VisibilityNeeded(ray);
    // Meant: a probe may meet the triangle that it starts on, though not the tetragon.
    const LeafRay leaf{SplatVector4(ray.origin), SplatVector4(ray.direction),
                       kProbe ? kNone : SkippedIndex(PrimitiveKind::Triangle, ray.from_kind, ray.from_primitive),
                       SkippedIndex(PrimitiveKind::Tetragon, ray.from_kind, ray.from_primitive)};
    WaitingLane*  top = stack;
    Limits        limits;
    FaceHit       hit;
    bool          any = false;
    Place         place{0, 0};
    limits.Set(ray.distance);

    while (true) {
        if (place.count == 0) {
            Float8         near;
            const unsigned lanes = SlabTest8(nodes[place.first], slab, limits.box, near);
            if (lanes != 0) {
                const std::uint32_t node = place.first;
                const bool          one  = (lanes & (lanes - 1)) == 0;
                const auto          next = one ? node << 3 | static_cast<unsigned>(std::countr_zero(lanes))
                                               : static_cast<std::uint32_t>(PushFarther(lanes, near, node, top));
                place                    = PlaceOf(nodes, next);
                continue;
            }
        } else {
            std::size_t block_index = place.first / 4;
            for (std::uint32_t left = place.count;; ++block_index) {
                const LeafBlock& block = blocks[block_index];
                LaneResults      results;
                if (HasKind(block, PrimitiveKind::Triangle)) {
                    unsigned lanes = TestTriangles(block, leaf, limits.face, results);
                    if (lanes != 0) {
                        lanes &= UsedLanes(block) & ~EqualBits4(block.index, leaf.skipped_triangle);
                        AcceptLanes<PrimitiveKind::Triangle>(object, block, lanes, results, visibility, limits, hit);
                    }
                } else if (HasKind(block, PrimitiveKind::Tetragon)) {
                    unsigned lanes = TestTetragons(block, leaf, limits.face, results);
                    if (lanes != 0) {
                        lanes &= UsedLanes(block) & ~EqualBits4(block.index, leaf.skipped_tetragon);
                        AcceptLanes<PrimitiveKind::Tetragon>(object, block, lanes, results, visibility, limits, hit);
                    }
                } else {
                    ray.distance = limits.distance;
                    if (TestLooseBlock<kProbe>(object, block_index, ray)) {
                        any       = true;
                        hit.block = nullptr;  // what the record holds now is nearer
                        limits.Set(ray.distance);
                    }
                }
                if (left <= block.used) break;
                left -= block.used;
            }
        }
        do {
            if (top == stack) {
                if (hit.block != nullptr) WriteHit(object, hit, limits.distance, ray);
                return any || hit.block != nullptr;
            }
            --top;
        } while (!(DistanceOf(*top) < limits.distance));
        place = PlaceOf(nodes, static_cast<std::uint32_t>(*top));
    }
}

/// Trees deeper than any that geometry gives without malice.
template <bool kProbe>
__attribute__((noinline)) bool WalkDeep(Object& object, RayRecord& ray)
{
    std::vector<WaitingLane> stack(WaitingRoom(object.wideDepth));
    return WalkNodes<kProbe>(object, ray, stack.data());
}

template <bool kProbe>
bool Walk(Object& object, RayRecord& ray)
{
    if constexpr (!kProbe) ray.direction = Normalized(ray.direction);
    if (object.wideNodes.empty()) return false;
    if (object.wideDepth > kUsualDepth) return WalkDeep<kProbe>(object, ray);
    WaitingLane stack[WaitingRoom(kUsualDepth)];
    return WalkNodes<kProbe>(object, ray, stack);
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
