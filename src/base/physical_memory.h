#pragma once

#include <unistd.h>

#include <cstdint>
#include <limits>

namespace hv {

/// Bytes of memory of the machine. What claims more would be granted, and end the process when it is touched.
inline std::uint64_t PhysicalMemory()
{
    const long pages = sysconf(_SC_PHYS_PAGES);
    const long size  = sysconf(_SC_PAGESIZE);
    if (pages <= 0 || size <= 0) return std::numeric_limits<std::uint64_t>::max();
    return static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(size);
}

}  // namespace hv
