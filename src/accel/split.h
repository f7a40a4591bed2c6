#pragma once

#include "accel/bbvh.h"

#include <array>
#include <bit>

/// Splitting of one range of references by binned surface area; private to the construction of the hierarchy.
namespace hv {

/// A reference with its box, in one vector register: min x y z, half of the reference, -max x y z, the other half.
/// With the maxima negated, one minimum of all lanes unites two boxes.
struct alignas(32) BuildEntry {
    float lanes[8];
};

inline BuildEntry MakeEntry(const Box& box, const PrimitiveRef& ref)
{
    const auto words = std::bit_cast<std::array<float, 2>>(ref);
    return {{box.min.x, box.min.y, box.min.z, words[0], -box.max.x, -box.max.y, -box.max.z, words[1]}};
}

inline PrimitiveRef RefOf(const BuildEntry& entry)
{
    return std::bit_cast<PrimitiveRef>(std::array{entry.lanes[3], entry.lanes[7]});
}

/// Where a range is to be split: boxes of the two sides, in the lanes of an entry.
struct SplitPlan {
    BuildEntry left{}, right{};
    bool       is_made     = false;  ///< the plan was worked out
    bool       is_found    = false;  ///< there is a split
    bool       shared_left = false;  ///< what lies in both boxes goes left
};

/// Finds the cheapest of the 7 planes on each of the 3 axes. `count` is at least 2.
SplitPlan PlanSplit(const BuildEntry* entries, std::uint32_t count);

/// The same plan, found by all threads together.
SplitPlan PlanSplitByTeam(const BuildEntry* entries, std::uint32_t count);

/// Reorders a range by a plan that was found and returns the number of references on the left.
std::uint32_t Partition(BuildEntry* entries, std::uint32_t count, const SplitPlan& plan);

}  // namespace hv
