#pragma once

#include "base/release.h"

#include <sys/mman.h>

#include <cstdint>
#include <vector>

/// Arrays of many megabytes, in large pages where the system has them: fewer faults while they are filled, fewer misses
/// of the page table while rays walk them. Private to this folder.
namespace hv {

inline constexpr std::size_t kLargePage = std::size_t{1} << 21;

/// Asks for large pages under memory that has not been touched yet. A refusal changes nothing but speed.
inline void AskForLargePages(void* memory, std::size_t size)
{
    const auto begin   = reinterpret_cast<std::uintptr_t>(memory);
    const auto aligned = (begin + kLargePage - 1) / kLargePage * kLargePage;
    if (aligned + kLargePage > begin + size) return;
    madvise(reinterpret_cast<void*>(aligned), begin + size - aligned, MADV_HUGEPAGE);
}

/// Empties an array and makes room for `count` elements.
template <class T>
void ReserveLarge(std::vector<T>& array, std::size_t count)
{
    Release(array);
    array.reserve(count);
    AskForLargePages(array.data(), count * sizeof(T));
}

/// Gives an array `count` new elements.
template <class T>
void RenewLarge(std::vector<T>& array, std::size_t count)
{
    ReserveLarge(array, count);
    array.resize(count);
}

}  // namespace hv
