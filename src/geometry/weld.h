#pragma once

#include "base/vector.h"

#include <bit>
#include <cstdint>
#include <vector>

namespace hv {

inline constexpr std::uint32_t kWeldBuckets = 262144;  ///< smallest table; large meshes grow it

/// Chains of vertex numbers by position: `head` of a bucket, then `next` of each vertex; kNone ends a chain.
struct WeldTable {
    std::vector<std::uint32_t> head = std::vector<std::uint32_t>(kWeldBuckets, kNone);
    std::vector<std::uint32_t> next;  ///< parallel to the part's positions; vertices that were not welded in stay kNone
};

}  // namespace hv
