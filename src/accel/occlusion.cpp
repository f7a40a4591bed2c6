#include "accel/accel.h"
#include "accel/evaluate.h"
#include "accel/walk_steps.h"
#include "session/settings.h"
#include "shading/shading.h"

#include <atomic>

namespace hv {

namespace {

/// A node with the lanes of it that are still to be visited, lowest first: 256 * node + lanes. One entry a level does for
/// all lanes, as lane 0 and all below it come before lane 1.
using WaitingNode = std::uint64_t;

/// The two primitives that a shadow ray does not see: the light that it goes to and the one that it leaves.
struct Exempt {
    std::uint32_t light_triangle, from_triangle, light_tetragon, from_tetragon;
};

Exempt ExemptFrom(const RayRecord& ray)
{
    return {SkippedIndex(PrimitiveKind::Triangle, ray.hit_kind, ray.hit_primitive),
            SkippedIndex(PrimitiveKind::Triangle, ray.from_kind, ray.from_primitive),
            SkippedIndex(PrimitiveKind::Tetragon, ray.hit_kind, ray.hit_primitive),
            SkippedIndex(PrimitiveKind::Tetragon, ray.from_kind, ray.from_primitive)};
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
        const std::uint32_t shader = StampedShader(object, block, lane);
        if (!IsVisible(ray, shader)) continue;
        SurfaceHit hit{&object.parts[block.part[lane]],
                       block.index[lane],
                       static_cast<PrimitiveKind>(block.kind),
                       results.denominator[lane] < 0.0f,
                       results.c[lane],
                       results.a[lane],
                       results.b[lane]};
        if (HasKind(block, PrimitiveKind::Tetragon)) {
            hit.u = EdgeRatio(results.a[lane], results.c[lane]);
            hit.v = EdgeRatio(results.d[lane], results.b[lane]);
        }
        if (Attenuate(ray, shader, hit)) return true;
    }
    return false;
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

/// A reference of the kinds that are not packed.
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
        return OccludeByCylinder(object.parts[ref.part], ref.index, ray);
    default:
        return false;
    }
}

template <bool kLog>
__attribute__((noinline)) bool OccludeByLooseBlock(Object& object, std::size_t block, RayRecord& ray)
{
    for (std::size_t n = 0; n < object.leafBlocks[block].used; ++n)
        if (OccludeByLoose<kLog>(object, object.wideRefs[4 * block + n], ray)) return true;
    return false;
}

/// The blocks of one leaf lane. True when the ray was stopped.
template <bool kLog>
HV_INLINE bool OccludeByLeaf(Object& object, std::size_t block_index, std::uint32_t count, const LeafRay& leaf,
                             const Exempt& exempt, Float4 limit, RayRecord& ray)
{
    for (;; ++block_index) {
        const LeafBlock& block = object.leafBlocks.data()[block_index];
        LaneResults      results;
        if (HasKind(block, PrimitiveKind::Triangle)) {
            unsigned lanes = TestTriangles(block, leaf, limit, results);
            if (lanes != 0) {
                lanes &= UsedLanes(block) & ~EqualBits4(block.index, exempt.light_triangle) &
                         ~EqualBits4(block.index, exempt.from_triangle);
                if (lanes != 0 && AttenuateLanes(object, block, lanes, results, ray)) return true;
            }
        } else if (HasKind(block, PrimitiveKind::Tetragon)) {
            unsigned lanes = TestTetragons(block, leaf, limit, results);
            if (lanes != 0) {
                lanes &= UsedLanes(block) & ~EqualBits4(block.index, exempt.light_tetragon) &
                         ~EqualBits4(block.index, exempt.from_tetragon);
                if (lanes != 0 && AttenuateLanes(object, block, lanes, results, ray)) return true;
            }
        } else if (OccludeByLooseBlock<kLog>(object, block_index, ray)) {
            return true;
        }
        if (count <= block.used) return false;
        count -= block.used;
    }
}

/// The walk itself; `stack` has room for an entry a level and one more.
template <bool kLog>
HV_INLINE bool WalkNodes(Object& object, RayRecord& ray, WaitingNode* stack)
{
    const WideNode* const nodes  = object.wideNodes.data();
    const SlabRay         slab   = MakeSlabRay(ray.origin, ray.inverse_direction);
    const Float8          limit  = Splat8(ray.distance);
    const Exempt          exempt = ExemptFrom(ray);
    const LeafRay         leaf{SplatVector4(ray.origin), SplatVector4(ray.direction), kNone, kNone};
    const Float4          leaf_limit = Splat4(ray.distance - kRayEpsilon);
    WaitingNode*          top        = stack;
    Float8                near;
    std::uint32_t         node  = 0;
    unsigned              lanes = SlabTest8(nodes[0], slab, limit, near);

    while (true) {
        if (lanes == 0) {
            if (top == stack) return false;
            --top;
            node  = static_cast<std::uint32_t>(*top >> 8);
            lanes = static_cast<unsigned>(*top & 255);
        }
        const auto          lane  = static_cast<unsigned>(std::countr_zero(lanes));
        const std::uint32_t first = nodes[node].first[lane], count = nodes[node].count[lane];
        lanes &= lanes - 1;
        if (count == 0) {
            *top = std::uint64_t{node} << 8 | lanes;
            top += lanes != 0;
            node  = first;
            lanes = SlabTest8(nodes[node], slab, limit, near);
        } else if (OccludeByLeaf<kLog>(object, first / 4, count, leaf, exempt, leaf_limit, ray)) {
            if constexpr (kLog) std::atomic_ref(object.wideVisits[node][lane]).fetch_add(1, std::memory_order_relaxed);
            return true;
        }
    }
}

constexpr std::size_t WaitingRoom(std::uint32_t depth) { return std::size_t{depth} + 2; }

template <bool kLog>
__attribute__((noinline)) bool WalkDeep(Object& object, RayRecord& ray)
{
    std::vector<WaitingNode> stack(WaitingRoom(object.wideDepth));
    return WalkNodes<kLog>(object, ray, stack.data());
}

/// No normalisation on the way into instances: `distance` stays in units of the ray as it was cast.
template <bool kLog>
bool Walk(Object& object, RayRecord& ray)
{
    if (object.wideNodes.empty()) return false;
    if (object.wideDepth > kUsualDepth) return WalkDeep<kLog>(object, ray);
    WaitingNode stack[WaitingRoom(kUsualDepth)];
    return WalkNodes<kLog>(object, ray, stack);
}

}  // namespace

bool TraceOcclusion(RayRecord& ray)
{
    ray.instance_depth = 0;
    ++OcclusionRayCounters[ray.thread];
    ray.throughput = kWhite;
    if (RootObject >= Objects.size() || !IsWalkable(ray.origin, ray.direction)) return false;
    ray.inverse_direction = Reciprocal(ray.direction, -kInfinity);
    return CurrentFrame == 0 ? Walk<true>(Objects[RootObject], ray) : Walk<false>(Objects[RootObject], ray);
}

}  // namespace hv
