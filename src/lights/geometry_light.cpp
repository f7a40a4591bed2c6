#include "lights/lights.h"
#include "lights/links.h"

#include "geometry/object.h"
#include "output/output.h"
#include "session/console.h"

namespace hv {

void GeometryLightDefaults() { GeometryLight = {}; }

void PrepareGeometryLight()
{
    ResolveLinks(GeometryLight.link_names, GeometryLight.link_shaders);
    GeometryLight.area = RootObject < Objects.size() ? Objects[RootObject].emitterArea : 0.0f;
    if (!(GeometryLight.area > 0.0f)) GeometryLight.photon = 0;
    PrepareLightAOVs(GeometryLightAOVs);
    ReportValue("geometry light area  ", GeometryLight.area, "m x m");
    ReportCount("geometry light sample", GeometryLight.sample, "n/a");
    PrintRule();
}

// Built by preparation once direct lighting samples emissive surfaces. Until then their light is found by scattered rays,
// at full weight.
bool HasEmitterList() { return false; }

void FinalizeGeometryLight()
{
    WriteAOVs(GeometryLightAOVs);
    GeometryLightDefaults();
}

}  // namespace hv
