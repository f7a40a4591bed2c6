#include "lights/emitter_points.h"
#include "lights/lights.h"
#include "lights/links.h"

#include "geometry/object.h"
#include "session/console.h"

namespace hv {

namespace {

/// Photons carry equal shares of what all emitters send out, at a radiance of 1.
void PreparePower()
{
    GeometryLight.area = RootObject < Objects.size() ? Objects[RootObject].emitterArea : 0.0f;
    if (!(GeometryLight.area > 0.0f))
        GeometryLight.photon = 0;
    else if (GeometryLight.photon > 0)
        GeometryLight.power_scale = kWhite * (GeometryLight.area / static_cast<float>(GeometryLight.photon));
}

}  // namespace

void GeometryLightDefaults() { GeometryLight = {}; }

void PrepareGeometryLight()
{
    ResolveLinks(GeometryLight.link_names, GeometryLight.link_shaders);
    PreparePower();
    BuildEmitterPoints();
    PrepareLightAOVs(GeometryLightAOVs);
    ReportValue("geometry light area  ", GeometryLight.area, "m x m");
    ReportCount("geometry light sample", GeometryLight.sample, "n/a");
    PrintRule();
}

void FinalizeGeometryLight()
{
    ReleaseEmitterPoints();
    CloseLightAOVs(GeometryLightAOVs);
    GeometryLightDefaults();
}

}  // namespace hv
