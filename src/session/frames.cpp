#include "accel/accel.h"
#include "geometry/geometry.h"
#include "lights/lights.h"
#include "output/output.h"
#include "session/console.h"
#include "session/preview.h"
#include "session/session.h"
#include "session/settings.h"

#include <algorithm>
#include <string>

namespace hv {

std::int64_t  RenderTime     = 0;
std::uint64_t RayTotal       = 0;
std::uint64_t OcclusionTotal = 0;

namespace {

constexpr std::uint32_t kMaxFrames = 65535;

FrameObserver frame_observer      = nullptr;
void*         frame_observer_data = nullptr;  // belongs to the line above

/// Frames of a render; a count below 1 has none, and setters may have changed it since preparation.
std::uint32_t FrameCount()
{
    const Camera* camera = ActiveCamera();
    if (!camera || camera->sample < 1) return 0;
    return std::min(static_cast<std::uint32_t>(camera->sample), kMaxFrames);
}

void StartFrame()
{
    CurrentFrame = static_cast<int>(FrameCounter);
    for (Object& object : Objects) ClearVisits(object);
    RenderTime = 0;
    RayTotal = OcclusionTotal = 0;
    TakeSum(PrimaryRayCounters);
    TakeSum(OcclusionRayCounters);
}

void ReportPerformance()
{
    const float microseconds = static_cast<float>(RenderTime);
    ReportPair("performance", static_cast<float>(RayTotal + OcclusionTotal) / microseconds, "M rays/second", "    ",
               1000000.0f / microseconds, "frames/second");
}

/// Whether the host wants the render to go on.
bool ObserverAgrees()
{
    if (!frame_observer) return true;
    return frame_observer(static_cast<int>(FrameCounter), static_cast<int>(FrameCount()), frame_observer_data);
}

void ReportStatistics()
{
    const Camera* camera = ActiveCamera();
    if (!camera || camera->aovs.empty() || !camera->aovs[0].image.loaded) return;
    const Image& image = camera->aovs[0].image;

    float mean[3], variance[3];
    ImageStatistics(image, mean, variance);
    ReportTriple("avgerage of " + image.path, mean, "n/a");
    ReportTriple("variance of " + image.path, variance, "n/a");
}

void RenderNextFrame()
{
    StartFrame();
    RenderPixels(static_cast<std::uint16_t>(FrameCounter));
    if (FrameCounter == 0)
        for (Object& object : Objects) TuneChildOrder(object);
    MoveObjects();
    ++FrameCounter;
    ReportPerformance();

    const bool goes_on = ObserverAgrees();
    if (goes_on && !IsRenderOver()) return;
    FrameCounter = FrameCount();  // a render that was stopped is over as well
    CloseRender();
}

}  // namespace

bool Render()
{
    FrameCounter         = 0;
    const Camera* camera = ActiveCamera();
    if (!camera) return false;  // told by the renderer stage
    if (!IsFilmPrepared(*camera)) {
        if (Settings.PreviewWindow && IsPreviewRefused()) return false;  // told when it was to be prepared
        PrintError("camera - the film is not prepared, nothing is rendered");
        PrintRule();
        return false;
    }
    if (Settings.PreviewWindow) {
        if (!PreparePreview()) return false;
        if (RunPreview()) return true;
    }
    while (!IsRenderOver()) RenderFrame();
    return false;
}

bool IsRenderOver() { return FrameCounter >= FrameCount(); }

void RenderFrame()
{
    if (!IsRenderOver()) RenderNextFrame();
    if (Settings.PreviewWindow) RefreshPreview();
}

void CloseRender()
{
    PrintRule();
    ReportStatistics();
    PrintRule();
    PrintTitle("            close the window to exit. happy rendering :) thank you!");
    PrintRule();

    if (const Camera* camera = ActiveCamera()) WriteCameraAOVs(*camera);
    FinalizeSkyLight();
    FinalizeGeometryLight();
    FinalizeGaffer();
}

void SetFrameObserver(FrameObserver observer, void* user)
{
    frame_observer      = observer;
    frame_observer_data = user;
}

}  // namespace hv
