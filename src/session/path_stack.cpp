#include "session/path_stack.h"

#include "base/per_thread.h"

#include <pthread.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace hv {
namespace {

// Bounds on what the kernel takes, several times what was measured. Sanitizers put red zones around every local.
#if defined(__has_feature)
#define HV_HAS_FEATURE(name) __has_feature(name)
#else
#define HV_HAS_FEATURE(name) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || HV_HAS_FEATURE(address_sanitizer) || \
    HV_HAS_FEATURE(thread_sanitizer)
constexpr std::size_t kVertexBytes = 16384;
#else
constexpr std::size_t kVertexBytes = 4096;
#endif
constexpr std::size_t kWalkBytes = 512 * 1024;  ///< one walk through all instance levels, and what runs above the loop

/// Bytes between here and the end of the calling thread's stack; very many when the system does not tell.
std::size_t StackLeft()
{
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) return SIZE_MAX;
    void*       lowest = nullptr;
    std::size_t size   = 0;
    const int   failed = pthread_attr_getstack(&attributes, &lowest, &size);
    pthread_attr_destroy(&attributes);

    const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    const auto end  = reinterpret_cast<std::uintptr_t>(lowest);
    return failed == 0 && here > end ? here - end : SIZE_MAX;
}

}  // namespace

int DeepestPath()
{
    std::size_t smallest = SIZE_MAX;
#pragma omp parallel num_threads(TeamSize()) reduction(min : smallest)
    smallest = StackLeft();

    const std::size_t vertices = smallest > kWalkBytes ? (smallest - kWalkBytes) / kVertexBytes : 0;
    return static_cast<int>(std::clamp<std::size_t>(vertices, 1, 255));
}

}  // namespace hv
