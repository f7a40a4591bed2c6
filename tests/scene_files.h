#pragma once

#include "geometry/object.h"
#include "lights/lights.h"
#include "output/camera.h"
#include "scene/scene.h"
#include "session/search_paths.h"
#include "session/settings.h"
#include "shading/shader.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace hv {

/// A test that starts and ends with an empty scene and has a folder of its own, removed at its end.
struct SceneTest : testing::Test {
    SceneTest() { ClearScene(); }
    ~SceneTest() override
    {
        ClearScene();
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }

    /// Empties what scene files and construction calls fill.
    static void ClearScene()
    {
        Cameras.clear();
        Shaders.clear();
        Objects.clear();
        PointLights.clear();
        ParallelLights.clear();
        SkyLightAOVs.clear();
        GeometryLightAOVs.clear();
        ImageSearchPaths.clear();
        SkyLight      = {};
        GeometryLight = {};
        Settings      = {};
    }

    /// Writes a file, with the folders on the way to it, and returns its path.
    std::string Write(const std::string& name, std::string_view text) const
    {
        const std::filesystem::path file = folder / name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << text;
        return file.string();
    }

    std::string           pattern = (std::filesystem::temp_directory_path() / "hv-test-XXXXXX").string();
    std::filesystem::path folder  = mkdtemp(pattern.data());
};

}  // namespace hv
