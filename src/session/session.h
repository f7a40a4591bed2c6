#pragma once

#include <cstdint>

/// The driver: stage order, frames and pixels. Knows every other folder; nothing below calls it.
namespace hv {

void Startup();
void Initialize();
void PrepareRenderer();
void FinalizeSession();
void Shutdown();
void PrintBanner();

/// Resets FrameCounter and runs all frames of the active camera, in the preview window if that is set. Returns whether
/// a window was shown, which is closed by now.
bool Render();

/// One frame: pixels, tuning after frame 0, motion, the performance line, and after the last frame CloseRender; then
/// the preview is refreshed. Nothing but that once all frames are done.
void RenderFrame();

/// Whether all frames are done, or the render was stopped.
bool IsRenderOver();

/// The end of a render: statistics, pictures, lights released.
void CloseRender();

/// Renders the active camera's region once, folding each sample into the running mean of its first AOV. `frame` is the
/// number of samples in that mean. Sets RenderTime, RayTotal and OcclusionTotal.
void RenderPixels(std::uint16_t frame);

/// The same for a caller's array: `out` takes count RGB triples.
void RenderPixelsTo(int count, float* out, int frame);

/// Microseconds and rays of the frame under way; written by the pixel loop, read by the performance line.
extern std::int64_t  RenderTime;
extern std::uint64_t RayTotal, OcclusionTotal;

/// Called after each frame with the finished and all frames; returning false ends the render. Null: none.
using FrameObserver = bool (*)(int finished, int total, void* user);
void SetFrameObserver(FrameObserver observer, void* user);

}  // namespace hv
