#include "lights/lights.h"

namespace hv {

std::vector<PointLight>    PointLights;
std::vector<ParallelLight> ParallelLights;
SkyLightState              SkyLight;
std::vector<CameraAOV>     SkyLightAOVs;
GeometryLightState         GeometryLight;
std::vector<CameraAOV>     GeometryLightAOVs;

void PointLight::Reset()
{
    direction   = {0.0f, 1.0f, 0.0f};
    inner_angle = 0.0f;
    outer_angle = 180.0f;
    photon      = 0;
}

void ParallelLight::Reset() { cone = 1.0f; }

}  // namespace hv
