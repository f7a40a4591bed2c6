#include "session/session.h"

#include "base/release.h"
#include "geometry/geometry.h"
#include "lights/lights.h"
#include "output/output.h"
#include "scene/scene.h"
#include "session/console.h"
#include "session/path_stack.h"
#include "session/preview.h"
#include "session/sampling.h"
#include "session/search_paths.h"
#include "session/settings.h"
#include "session/stages.h"
#include "shading/image_store.h"
#include "shading/shading.h"
#include "transport/transport.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <string>

namespace hv {
namespace {

constexpr std::size_t  kBannerWidth    = 80;
constexpr std::int64_t kTicksPerSecond = 10000000;

/// Recursion follows the path, so its depth is bounded by the smallest stack of the rendering threads.
void LimitDepthToStack()
{
    const int deepest = DeepestPath();
    if (Settings.RayDepth <= deepest && Settings.PhotonDepth <= deepest) return;
    PrintWarning("renderer - the stack of the threads holds paths of " + std::to_string(deepest) + " vertices");
    PrintRule();
    Settings.RayDepth    = std::min(Settings.RayDepth, deepest);
    Settings.PhotonDepth = std::min(Settings.PhotonDepth, deepest);
}

void ChooseTransport()
{
    if (Settings.Distance > 0.0f && Settings.Resolution > 0.0f) {
        Settings.FinalGathering = true;  // and never cleared here: start-up and finalize do
        PrintTitle("progressive final gathering");
    } else {
        PrintTitle("unidirectional path tracing");
    }
    PrintRule();
}

void RunPhotons()
{
    const std::int64_t start = Ticks();
    CastPhotons();
    const std::int64_t whole_seconds = (Ticks() - start) / kTicksPerSecond;

    ReportValue("photon cast   ", static_cast<float>(whole_seconds), "seconds");
    ReportValue("photon radius ", Settings.Radius, "m");
    PrintRule();
    BuildPhotonTree();
}

}  // namespace

void Startup()
{
    FillSamplingTables();
    StartImageLibrary();
    AddImageSearchPath("");
    std::srand(static_cast<unsigned>(std::time(nullptr)));  // for hosts; nothing of ours draws from it
    GeometryLightDefaults();
    SkyLightDefaults();
    ResetRendererSettings();
    EnsureDefaultShader();
}

void PrintBanner()
{
    std::string line(12, ' ');
    line += "halvorne " __DATE__ "   offline physically based renderer " HV_VERSION;
    line.resize(kBannerWidth, ' ');
    PrintRule();
    PrintTitle(line);
    PrintRule();
}

void InitializeCameras()
{
    for (Camera& camera : Cameras) PrepareCamera(camera);
}

void InitializeAccelerator() { PrepareScene(PrepareDensity); }

void Initialize()
{
    if (!PreparePreview()) return;
    InitializeCameras();
    ReportTextures();
    PrepareShaders();
    InitializeAccelerator();
    PrepareSkyLight();
    PrepareGeometryLight();
    PrepareGaffer();
    PrepareRenderer();
}

void PrepareRenderer()
{
    if (!ActiveCamera()) {
        PrintError("camera - there is no camera, nothing is rendered");
        PrintRule();
        return;
    }
    LimitSettings();
    LimitDepthToStack();
    TakeSum(PrimaryRayCounters);
    TakeSum(OcclusionRayCounters);
    ChooseTransport();
    RunPhotons();

    // Photons do not count as rendering.
    TakeSum(PrimaryRayCounters);
    TakeSum(OcclusionRayCounters);
    Settings.MisSample = std::max(Settings.RendererSample, 0);
    ReportCount("renderer sample", Settings.RendererSample, "n/a");
    PrintRule();
}

void FinalizeCameras()
{
    for (auto camera = Cameras.rbegin(); camera != Cameras.rend(); ++camera) WriteCameraAOVs(*camera);
    Release(Cameras);
}

void FinalizeShaders()
{
    Release(Shaders);
    Release(ShaderTraits);
}

void FinalizeRenderer()
{
    ReleasePhotons();
    SetRadius(1.0f);
    ResetRendererSettings();
}

void FinalizeSession()
{
    FinalizeRenderer();
    FinalizeGaffer();
    FinalizeGeometryLight();
    FinalizeSkyLight();
    DestroyObjects();
    FinalizeCameras();
    FinalizeShaders();
    ReleaseImages();
}

void Shutdown()
{
    ClearSamplingTables();
    StopImageLibrary();
}

}  // namespace hv
