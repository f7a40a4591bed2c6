#include "lights/links.h"

#include "lights/lights.h"
#include "output/output.h"
#include "shading/shading.h"

#include <algorithm>

namespace hv {

void ResolveLinks(const std::vector<std::string>& names, std::vector<std::uint32_t>& shaders)
{
    for (const std::string& name : names) {
        const std::uint32_t shader = FindShader(name);
        if (shader != kNone) shaders.push_back(shader);
    }
}

bool IsLinked(const std::vector<std::uint32_t>& link_shaders, std::uint32_t shader)
{
    return link_shaders.empty() || std::find(link_shaders.begin(), link_shaders.end(), shader) != link_shaders.end();
}

bool CollectsLightShares()
{
    const auto collects   = [](const CameraAOV& aov) { return aov.is_share; };
    const auto any        = [&](const std::vector<CameraAOV>& aovs) { return std::ranges::any_of(aovs, collects); };
    const auto any_of_its = [&](const Light& light) { return any(light.aovs); };
    return any(SkyLightAOVs) || any(GeometryLightAOVs) || std::ranges::any_of(PointLights, any_of_its) ||
           std::ranges::any_of(ParallelLights, any_of_its);
}

void PrepareLightAOVs(std::vector<CameraAOV>& aovs)
{
    const Camera* camera = ActiveCamera();
    if (!camera) return;
    for (CameraAOV& aov : aovs) PrepareAOV(aov, camera->width, camera->height);
}

void CloseLightAOVs(std::vector<CameraAOV>& aovs)
{
    WriteAOVs(aovs);
    std::erase_if(aovs, [](const CameraAOV& aov) { return aov.is_share; });
}

}  // namespace hv
