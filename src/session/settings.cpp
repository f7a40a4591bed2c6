#include "session/settings.h"

namespace hv {

RendererSettings Settings;

std::uint32_t FrameCounter = 0;
int           CurrentFrame = 0;

PerThread<std::uint64_t> PrimaryRayCounters;
PerThread<std::uint64_t> OcclusionRayCounters;
PerThread<std::uint32_t> PixelSlot;

void ResetRendererSettings()
{
    Settings.RayDepth       = 8;
    Settings.PhotonDepth    = 8;
    Settings.RendererSample = 64;
    Settings.FinalGathering = false;
}

void SetRadius(float radius)
{
    Settings.Radius       = radius;
    Settings.RadiusSquare = radius * radius;
    Settings.RadiusCube   = radius * radius * radius;
}

std::uint64_t TakeSum(PerThread<std::uint64_t>& counters)
{
    std::uint64_t sum = 0;
    for (int thread = 0; thread < kMaxThreads; ++thread) {
        sum += counters[thread];
        counters[thread] = 0;
    }
    return sum;
}

}  // namespace hv
