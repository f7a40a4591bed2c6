#pragma once

#include "geometry/object.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <vector>

namespace hv {

/// Chains of vertices that agree in the hash of all that they are welded by: `head` of a bucket, then `next` of each
/// vertex; kNone ends a chain.
struct WeldTable {
    std::vector<std::uint32_t> head;  ///< a power of two of buckets
    std::vector<std::uint32_t> next;  ///< parallel to the part's positions; vertices that were not welded in stay kNone
};

// ---- A hash over bits, mixed well: a table takes the low bits of what EndHash gives ----

inline constexpr std::uint64_t kHashFactor = 0x9e3779b97f4a7c15u;

inline std::uint64_t MixHash(std::uint64_t hash, std::uint64_t word)
{
    return std::rotl((hash ^ word) * kHashFactor, 31);
}
inline std::uint64_t EndHash(std::uint64_t hash) { return hash * kHashFactor >> 32; }

inline std::uint64_t HashPair(float low, float high)
{
    return std::bit_cast<std::uint32_t>(low) | std::uint64_t{std::bit_cast<std::uint32_t>(high)} << 32;
}

inline float Unsigned(float x) { return x + 0.0f; }  // one of both zeros

/// Whether the bits are equal: a non-number equals itself. Both zeros are one.
inline bool IsSame(float a, float b)
{
    return std::bit_cast<std::uint32_t>(Unsigned(a)) == std::bit_cast<std::uint32_t>(Unsigned(b));
}
inline bool IsSame(Vector2 a, Vector2 b) { return IsSame(a.u, b.u) && IsSame(a.v, b.v); }
inline bool IsSame(Vector a, Vector b) { return IsSame(a.x, b.x) && IsSame(a.y, b.y) && IsSame(a.z, b.z); }

inline std::uint32_t HashWord(PackedDirection packed)
{
    return std::uint32_t{static_cast<std::uint8_t>(packed.x)} |
           std::uint32_t{static_cast<std::uint8_t>(packed.y)} << 8 |
           std::uint32_t{static_cast<std::uint8_t>(packed.z)} << 16;
}

/// For each of `count` items the lowest-numbered one that equals it, which may be itself. hash(i) ends in EndHash;
/// equal(i, k) must be an equivalence, non-numbers included, lest chains grow long.
template <class Hash, class Equal>
std::vector<std::uint32_t> FirstEqual(std::size_t count, const Hash& hash, const Equal& equal)
{
    constexpr std::size_t      kFewestBuckets = 256, kMostBuckets = std::size_t{1} << 28;
    std::vector<std::uint32_t> first(count);
    WeldTable                  table;
    table.head.assign(std::bit_ceil(std::clamp(count, kFewestBuckets, kMostBuckets)), kNone);
    table.next.assign(count, kNone);
    for (std::uint32_t i = 0; i < count; ++i) {
        std::uint32_t& head  = table.head[hash(i) & (table.head.size() - 1)];
        std::uint32_t  found = head;
        while (found != kNone && !equal(found, i)) found = table.next[found];
        first[i] = found != kNone ? found : i;
        if (found != kNone) continue;
        table.next[i] = head;
        head          = i;
    }
    return first;
}

}  // namespace hv
