#pragma once

#include "base/vector.h"

#include <bit>
#include <cstdint>
#include <vector>

namespace hv {

inline constexpr std::uint32_t kWeldBuckets = 262144;

/// Bucket of a position by the bits of its coordinates: -0 and 0 land in different buckets and never meet.
inline std::uint32_t WeldBucket(Vector p)
{
    return (std::bit_cast<std::uint32_t>(p.x) * 15485843u + std::bit_cast<std::uint32_t>(p.y) * 15485849u +
            std::bit_cast<std::uint32_t>(p.z) * 15485857u) &
           (kWeldBuckets - 1);
}

/// Chains of vertex numbers by position: `head` of a bucket, then `next` of each vertex; kNone ends a chain.
struct WeldTable {
    std::vector<std::uint32_t> head = std::vector<std::uint32_t>(kWeldBuckets, kNone);
    std::vector<std::uint32_t> next;  ///< parallel to the part's positions; vertices that were not welded in stay kNone
};

}  // namespace hv
