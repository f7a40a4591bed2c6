#include "lights/lights.h"
#include "lights/links.h"

#include "base/constants.h"
#include "geometry/object.h"
#include "output/output.h"
#include "session/console.h"

#include <cmath>

namespace hv {

namespace {

/// e1, e2, axis: a right-handed basis about a unit axis.
void SetBasis(Light& light, Vector axis)
{
    light.axis = axis;
    light.e2   = PerpendicularTo(axis);
    light.e1   = Cross(light.e2, axis);
}

/// Whether the scene lies in a medium, through which light reaches it from all around.
bool HasGlobalMedium() { return IsPresent(SkyLight.volume_shader.albedo); }

void PreparePointLight(PointLight& light)
{
    ResolveLinks(light.link_names, light.link_shaders);
    light.direction      = Normalized(light.direction);
    const Vector towards = SceneCenter - light.position;
    const float  away    = Length(towards);
    light.outside        = SceneRadius > away || HasGlobalMedium();
    if (!light.outside) {
        const float sine = SceneRadius / away;
        light.opening    = sine * sine / (1.0f + std::sqrt(1.0f - sine * sine));
        light.cone       = 1.0f - light.opening;
        SetBasis(light, Normalized(towards));
    }
    // Photons of a light outside the scene's sphere go into the cone that holds it, others all around.
    const float solid_angle = light.outside ? 4.0f * kPi : kTwoPi * light.opening;
    if (light.photon > 0) light.photon_power = light.color * solid_angle;
    PrepareLightAOVs(light.aovs);
    light.inner_radians = light.inner_angle * kRadians;
    light.outer_radians = light.outer_angle * kRadians;
}

void PrepareParallelLight(ParallelLight& light)
{
    ResolveLinks(light.link_names, light.link_shaders);
    SetBasis(light, Normalized(light.axis));
    if (light.photon > 0) light.photon_power = light.color * (SceneRadius * SceneRadius * kPi);
    const float sine = std::sin(0.5f * light.blur * kRadians);
    light.opening    = 2.0f * sine * sine;
    light.cone       = 1.0f - light.opening;
    PrepareLightAOVs(light.aovs);
}

template <class LightType>
float Megabytes(const std::vector<LightType>& lights)
{
    return static_cast<float>(lights.size() * sizeof(LightType)) * 9.536743e-7f;
}

template <class LightType>
void Release(std::vector<LightType>& lights)
{
    for (LightType& light : lights) CloseLightAOVs(light.aovs);
    lights.clear();
}

}  // namespace

void PrepareGaffer()
{
    for (PointLight& light : PointLights) PreparePointLight(light);
    for (ParallelLight& light : ParallelLights) PrepareParallelLight(light);
    ReportCount("parallel lights", static_cast<std::int64_t>(ParallelLights.size()), "n/a");
    ReportCount("point    lights", static_cast<std::int64_t>(PointLights.size()), "n/a");
    ReportValue("parallel lights", Megabytes(ParallelLights), "M bytes");
    ReportValue("point    lights", Megabytes(PointLights), "M bytes");
    PrintRule();
}

void FinalizeGaffer()
{
    Release(PointLights);
    Release(ParallelLights);
}

}  // namespace hv
