#pragma once

#include "base/per_thread.h"
#include "base/vector.h"

#include <cstdint>

namespace hv {

/// Settings of the renderer. Set by the hvSetRenderer... exports and the `render` sections of scene files; frozen while
/// rays fly. The initialisers are what the library holds when it is loaded.
struct RendererSettings {
    int   RayDepth       = 8;     ///< longest path, in vertices
    int   PhotonDepth    = 16;    ///< longest photon path; 8 after start-up
    int   RendererSample = 64;    ///< branches of a first vertex over the whole render
    int   MisSample      = 64;    ///< copy of RendererSample made when the render starts
    int   Bounce         = 1;     ///< diffuse plus glossy bounces
    float Distance       = 1.0f;  ///< metres after which a diffuse path may end at a density cell
    float Resolution     = 1.0f;  ///< area of a density cell, square metres
    float Radius         = 1.0f;  ///< metres, gathering radius of photons
    float RadiusSquare   = 1.0f;
    float RadiusCube     = 1.0f;
    Color Clamp          = {kFarAway, kFarAway, kFarAway};
    float DisplayGamma   = 2.2f;  ///< read by nothing: the preview is linear
    float Exposure       = 0.0f;  ///< read by nothing
    bool  PreviewWindow  = false;
    bool  FinalGathering = false;  ///< set when the renderer is prepared, cleared by start-up and finalize
};

extern RendererSettings Settings;

/// Sets RayDepth, PhotonDepth, RendererSample and FinalGathering as start-up and finalize do.
void ResetRendererSettings();

/// Brings every setting into its range: Clamp at least 0, depths 1 to 255 (photons 254), Bounce at least 1.
void LimitSettings();

/// Sets the gathering radius together with its square and cube.
void SetRadius(float radius);

/// Frames finished in this render; written by the frame loop alone.
extern std::uint32_t FrameCounter;

/// The frame under way, which the kernels read; written before the pixel loop, constant inside it.
extern int CurrentFrame;

/// Rays traced and pixel under way, one slot a thread.
extern PerThread<std::uint64_t> PrimaryRayCounters;
extern PerThread<std::uint64_t> OcclusionRayCounters;
extern PerThread<std::uint32_t> PixelSlot;

/// Sums all slots of a counter and zeroes them.
std::uint64_t TakeSum(PerThread<std::uint64_t>& counters);

}  // namespace hv
