#pragma once

#include "accel/slab.h"

#include <bit>
#include <cstdint>

/// The stack of walks that visit the nearest lane first; private to this folder.
namespace hv {

/// A lane that waits on the stack: the bits of its entry distance above what lies behind it. Distances are positive, so
/// the order of these numbers is that of the distances.
using WaitingLane = std::uint64_t;

/// Most lanes that ever wait at once: seven at each level, and all eight of the last while they are sorted.
constexpr std::size_t WaitingRoom(std::uint32_t depth) { return 7 * (std::size_t{depth} + 1) + 1; }

HV_INLINE float DistanceOf(WaitingLane waiting)
{
    return std::bit_cast<float>(static_cast<std::uint32_t>(waiting >> 32));
}

/// Sorts two so that the nearer comes first; of equals the order stays. Spelt out in bits, as the outcome cannot be
/// foretold and compilers make a branch of anything else.
HV_INLINE void Order(WaitingLane& a, WaitingLane& b)
{
    const WaitingLane swapped = (a ^ b) & (WaitingLane{0} - static_cast<WaitingLane>(b >> 32 < a >> 32));
    a ^= swapped;
    b ^= swapped;
}

/// Sorts lanes that were pushed to [begin, end), the nearest last.
inline void SortNearestLast(WaitingLane* begin, WaitingLane* end)
{
    for (WaitingLane* next = begin + 1; next < end; ++next) {
        const WaitingLane moved = *next;
        WaitingLane*      place = next;
        for (; place > begin && place[-1] < moved; --place) *place = place[-1];
        *place = moved;
    }
}

/// One step down from a node: pushes the lanes that the ray enters, at least two, but for the nearest, which is
/// returned. `target_of` tells what lies behind a lane.
template <class TargetOf>
HV_INLINE WaitingLane PushFarther(unsigned lanes, Float8 near, WaitingLane*& top, const TargetOf& target_of)
{
    alignas(32) float distances[8];
    Store8(distances, near);
    const auto take = [&] {
        const unsigned lane = static_cast<unsigned>(std::countr_zero(lanes));
        lanes &= lanes - 1;
        return std::uint64_t{std::bit_cast<std::uint32_t>(distances[lane])} << 32 | target_of(lane);
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

}  // namespace hv
