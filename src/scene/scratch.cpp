#include "scene/scratch.h"

#include "scene/scene.h"
#include "session/search_paths.h"
#include "shading/shading.h"

#include <utility>

namespace hv {

ScratchSession::ScratchSession()
{
    Swap();
    ResetRendererSettings();
    EnsureDefaultShader();
}

void ScratchSession::Swap()
{
    std::swap(Cameras, cameras_);
    std::swap(Shaders, shaders_);
    std::swap(Objects, objects_);
    std::swap(PointLights, point_lights_);
    std::swap(ParallelLights, parallel_lights_);
    std::swap(SkyLight, sky_light_);
    std::swap(GeometryLight, geometry_light_);
    std::swap(SkyLightAOVs, sky_aovs_);
    std::swap(GeometryLightAOVs, geometry_aovs_);
    std::swap(Settings, settings_);
    std::swap(ImageSearchPaths, image_paths_);
    std::swap(GeometrySearchPaths, geometry_paths_);
    std::swap(SceneFolder, scene_folder_);
}

}  // namespace hv
