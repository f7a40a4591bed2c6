#pragma once

#include "accel/leaf_tests.h"
#include "accel/slab.h"
#include "base/float8.h"

#include <algorithm>
#include <bit>
#include <cstdint>

/// The steps that the closest-hit walks and the occlusion walk share; private to this folder.
namespace hv {

/// Depth of the trees that are walked with a stack in the walk's own frame.
inline constexpr std::uint32_t kUsualDepth = 63;

/// A ray brought into the space of an instance for as long as this lives; the record is restored at the end.
class InstanceEntry {
public:
    InstanceEntry(RayRecord& ray, const Instance& instance, float inverse_at_zero)
        : ray_(ray), origin_(ray.origin), direction_(ray.direction), inverse_direction_(ray.inverse_direction)
    {
        ray.origin = TransformPoint(instance.inverse, ray.origin);
        // The same numbers as directionMatrix, without another cache line.
        ray.direction         = UpperLeft(instance.inverse) * ray.direction;
        ray.inverse_direction = Reciprocal(ray.direction, inverse_at_zero);
        ++ray.instance_depth;
    }
    ~InstanceEntry()
    {
        --ray_.instance_depth;
        ray_.origin            = origin_;
        ray_.direction         = direction_;
        ray_.inverse_direction = inverse_direction_;
    }
    InstanceEntry(const InstanceEntry&)            = delete;
    InstanceEntry& operator=(const InstanceEntry&) = delete;

private:
    RayRecord&   ray_;
    const Vector origin_, direction_, inverse_direction_;
};

/// Whether there are leaves of curves, which have walks of their own.
inline bool HasCurves(const Object& object) { return object.wideNodes[0].reserved != 0; }

/// Asks for the nodes behind some lanes, while curves are tested before they are entered.
HV_INLINE void FetchNodes(const WideNode* nodes, const LaneTubes* tubes, const WideNode& node, unsigned lanes)
{
    for (; lanes != 0; lanes &= lanes - 1) {
        const int lane = std::countr_zero(lanes);
        if (node.count[lane] != 0) continue;
        const float* const planes = nodes[node.first[lane]].minX;
        for (int line = 0; line < 4; ++line) __builtin_prefetch(planes + 16 * line);
        __builtin_prefetch(&tubes[node.first[lane]]);
    }
}

/// Calls `test` with the blocks of each of some leaves of curves and the lanes in them that are the leaf's. All blocks
/// of a leaf but the last are full, so that nothing need be read to know the lanes.
template <class Test>
HV_INLINE void ForCurveLeaves(const LeafBlock* blocks, const WideNode& node, unsigned leaves, const Test& test)
{
    for (; leaves != 0; leaves &= leaves - 1) {
        const int     lane  = std::countr_zero(leaves);
        std::uint32_t place = node.first[lane];
        for (std::uint32_t left = node.count[lane]; left > 0;) {
            const unsigned      start = place % kBlockLength;
            const std::uint32_t own   = std::min(left, kBlockLength - start);
            test(blocks[place / kBlockLength], ((1u << own) - 1u) << start);
            place += own;
            left -= own;
        }
    }
}

/// Lanes of curves in one block: the leaves that begin there, and their lanes in it.
struct CurveGroup {
    std::size_t block;
    unsigned    leaves, own;
    bool        goes_on;  ///< the last of the leaves has more in the blocks behind
};

/// The leaves among `lanes` that begin in the same block as the first: what lies in a block is tested at once.
HV_INLINE CurveGroup GroupCurves(const WideNode& node, unsigned lanes)
{
    const std::uint32_t block = node.first[std::countr_zero(lanes)] / kBlockLength;
    CurveGroup          group{block, EighthEqualBits8(node.first, block) & lanes, 0, false};
    for (unsigned left = group.leaves; left != 0; left &= left - 1) {
        const int      lane  = std::countr_zero(left);
        const unsigned start = node.first[lane] % kBlockLength, count = node.count[lane];
        group.own |= (1u << std::min(start + count, kBlockLength)) - (1u << start);
        group.goes_on |= start + count > kBlockLength;
    }
    return group;
}

/// The Object that an instance places, null when the ray may not enter it: nothing placed, or nested too deep.
inline Object* PlacedObject(const Instance& instance, const RayRecord& ray)
{
    const bool enters = ray.instance_depth < kMaxInstanceDepth && instance.object < Objects.size();
    return enters ? &Objects[instance.object] : nullptr;
}

}  // namespace hv
