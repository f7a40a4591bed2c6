#include "geometry/geometry.h"
#include "hv.h"
#include "lights/lights.h"
#include "scene/scene.h"
#include "session/guard.h"
#include "session/preview.h"
#include "session/session.h"
#include "session/stages.h"
#include "shading/shading.h"

#include <string>

using namespace hv;

namespace {

void RunScene(const char* folder)
{
    Startup();
    PrintBanner();
    if (!PreparePreview()) return;  // large scenes take long to read
    LoadScene(folder ? folder : "");
    Initialize();
    if (!Render()) return;
    PrintTitle("         click to close the preview window. happy rendering. thank you!         ");
    PrintRule();
}

}  // namespace

extern "C" {

void hvStartup() { Guarded(Startup); }

void hvGo(const char* folder)
{
    Guarded([&] { RunScene(folder); });
    // Also after a failure: the pictures are written as far as they came, and the next session starts clean.
    Guarded(FinalizeSession);
    Guarded(Shutdown);
}

void hvInitialize() { Guarded(Initialize); }
void hvRender() { Guarded(Render); }
void hvFinalize() { Guarded(FinalizeSession); }
void hvShutdown() { Guarded(Shutdown); }

void hvRenderPixels(int count, float* out, int frame)
{
    Guarded([&] { RenderPixelsTo(count, out, frame); });
}

void hvInitializeCameras() { Guarded(InitializeCameras); }
void hvInitializeShaders() { Guarded(PrepareShaders); }
void hvInitializeAccelerator() { Guarded(InitializeAccelerator); }
void hvInitializeSkyLight() { Guarded(PrepareSkyLight); }
void hvInitializeGaffer() { Guarded(PrepareGaffer); }
void hvInitializeRenderer() { Guarded(PrepareRenderer); }

void hvFinalizeCameras() { Guarded(FinalizeCameras); }
void hvFinalizeShaders() { Guarded(FinalizeShaders); }
void hvFinalizeAccelerator() { Guarded(DestroyObjects); }
void hvFinalizeSkyLight() { Guarded(FinalizeSkyLight); }
void hvFinalizeGaffer() { Guarded(FinalizeGaffer); }
void hvFinalizeRenderer() { Guarded(FinalizeRenderer); }

// Meant: one function under two names. The geometry light is prepared and finalized by the whole stages only.
HV_API void hvInitializeGeometryLight() __attribute__((alias("hvInitializeSkyLight")));
HV_API void hvFinalizeGeometryLight() __attribute__((alias("hvFinalizeSkyLight")));

}  // extern "C"
