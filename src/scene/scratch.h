#pragma once

#include "geometry/object.h"
#include "lights/light.h"
#include "output/camera.h"
#include "session/settings.h"
#include "shading/shader.h"

#include <string>
#include <vector>

namespace hv {

/// While one of these lives, all that scene files fill stands as after start-up: empty registries, default settings.
/// What the session held comes back when it goes.
class ScratchSession {
public:
    ScratchSession();
    ~ScratchSession() { Swap(); }
    ScratchSession(const ScratchSession&)            = delete;
    ScratchSession& operator=(const ScratchSession&) = delete;

private:
    void Swap();

    std::vector<Camera>        cameras_;
    std::vector<Shader>        shaders_;
    std::vector<Object>        objects_;
    std::vector<PointLight>    point_lights_;
    std::vector<ParallelLight> parallel_lights_;
    SkyLightState              sky_light_;
    GeometryLightState         geometry_light_;
    std::vector<CameraAOV>     sky_aovs_, geometry_aovs_;
    RendererSettings           settings_;
    std::vector<std::string>   image_paths_, geometry_paths_;
    std::string                scene_folder_;
};

}  // namespace hv
