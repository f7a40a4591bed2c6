#include "session/settings.h"

#include <algorithm>

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

void LimitSettings()
{
    // Path depths travel in one byte of the ray record, a photon's one step ahead of it.
    constexpr int kMaxRayDepth    = 255;
    constexpr int kMaxPhotonDepth = 254;

    for (int channel = 0; channel < 3; ++channel)
        if (!(Settings.Clamp[channel] > 0.0f)) Settings.Clamp[channel] = 0.0f;
    Settings.RayDepth    = std::clamp(Settings.RayDepth, 1, kMaxRayDepth);
    Settings.PhotonDepth = std::clamp(Settings.PhotonDepth, 1, kMaxPhotonDepth);
    Settings.Bounce      = std::max(Settings.Bounce, 1);
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
