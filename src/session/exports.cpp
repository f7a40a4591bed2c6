#include "geometry/geometry.h"
#include "hv.h"
#include "lights/lights.h"
#include "scene/scene.h"
#include "session/border.h"
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
    LoadScene(folder ? folder : "");
    Initialize();
    Render();
}

}  // namespace

extern "C" {

void hvStartup() { AtBorder(Startup); }

void hvGo(const char* folder)
{
    AtBorder([&] { RunScene(folder); });
    // Also after a failure: the pictures are written as far as they came, and the next session starts clean.
    AtBorder(FinalizeSession);
    AtBorder(Shutdown);
}

void hvInitialize() { AtBorder(Initialize); }
void hvRender() { AtBorder(Render); }
void hvFinalize() { AtBorder(FinalizeSession); }
void hvShutdown() { AtBorder(Shutdown); }

void hvRenderPixels(int count, float* out, int frame)
{
    AtBorder([&] { RenderPixelsTo(count, out, frame); });
}

void hvInitializeCameras() { AtBorder(InitializeCameras); }
void hvInitializeShaders() { AtBorder(PrepareShaders); }
void hvInitializeAccelerator() { AtBorder(InitializeAccelerator); }
void hvInitializeSkyLight() { AtBorder(PrepareSkyLight); }
void hvInitializeGaffer() { AtBorder(PrepareGaffer); }
void hvInitializeRenderer() { AtBorder(PrepareRenderer); }

void hvFinalizeCameras() { AtBorder(FinalizeCameras); }
void hvFinalizeShaders() { AtBorder(FinalizeShaders); }
void hvFinalizeAccelerator() { AtBorder(DestroyObjects); }
void hvFinalizeSkyLight() { AtBorder(FinalizeSkyLight); }
void hvFinalizeGaffer() { AtBorder(FinalizeGaffer); }
void hvFinalizeRenderer() { AtBorder(FinalizeRenderer); }

// Meant: one function under two names. The geometry light is prepared and finalized by the whole stages only.
HV_API void hvInitializeGeometryLight() __attribute__((alias("hvInitializeSkyLight")));
HV_API void hvFinalizeGeometryLight() __attribute__((alias("hvFinalizeSkyLight")));

}  // extern "C"
