#include "hv.h"
#include "session/settings.h"

using hv::Settings;

void hvSetRendererSample(int count) { Settings.RendererSample = count; }
void hvSetRendererBounce(int count) { Settings.Bounce = count; }
void hvSetRendererRayDepth(int depth) { Settings.RayDepth = depth; }
void hvSetRendererPhotonDepth(int depth) { Settings.PhotonDepth = depth; }
void hvSetRendererDistance(float metres) { Settings.Distance = metres; }
void hvSetRendererResolution(float resolution) { Settings.Resolution = resolution; }
void hvSetRendererRadius(float metres) { hv::SetRadius(metres); }
void hvSetRendererClamp(float r, float g, float b) { Settings.Clamp = {r, g, b}; }
void hvSetDisplayGamma(float gamma) { Settings.DisplayGamma = gamma; }
void hvSetPreviewWindow(bool on) { Settings.PreviewWindow = on; }
