#pragma once

#include "base/constants.h"

#include <cstdint>
#include <vector>

namespace hv {

/// Chains of vertices that agree in the hash of all that they are welded by: `head` of a bucket, then `next` of each
/// vertex; kNone ends a chain.
struct WeldTable {
    std::vector<std::uint32_t> head;  ///< a power of two of buckets
    std::vector<std::uint32_t> next;  ///< parallel to the part's positions; vertices that were not welded in stay kNone
};

}  // namespace hv
