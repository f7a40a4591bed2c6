#pragma once

#include "base/constants.h"

#include <omp.h>

#include <algorithm>

namespace hv {

/// One value for each thread number, each on cache lines of its own.
template <class T>
class PerThread {
public:
    T&       operator[](int thread) { return slots_[thread].value; }
    const T& operator[](int thread) const { return slots_[thread].value; }

private:
    struct alignas(128) Slot {  // two lines: the processor fetches them in pairs
        T value{};
    };
    Slot slots_[kMaxThreads];
};

/// Threads that every parallel region asks for: those available, at most 256. Pass it to num_threads(...).
inline int TeamSize() { return std::clamp(omp_get_max_threads(), 1, kMaxThreads); }

}  // namespace hv
