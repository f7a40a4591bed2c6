#pragma once

#include "geometry/object.h"
#include "lights/lights.h"
#include "output/camera.h"
#include "scene/scene.h"
#include "session/settings.h"
#include "shading/shader.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace hv {

/// A folder of its own for the files of one test, removed at its end.
class TempFolder {
public:
    TempFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "hv-test-XXXXXX").string();
        path_            = mkdtemp(name.data());
    }
    ~TempFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    std::string Path() const { return path_.string(); }

    /// Writes a file, with the folders on the way to it, and returns its path.
    std::string Write(const std::string& name, std::string_view text) const
    {
        const std::filesystem::path file = path_ / name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << text;
        return file.string();
    }

private:
    std::filesystem::path path_;
};

/// Empties what scene files and construction calls fill.
inline void ClearScene()
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

inline int CountOf(std::string_view text, std::string_view part)
{
    int count = 0;
    for (auto at = text.find(part); at != std::string_view::npos; at = text.find(part, at + part.size())) ++count;
    return count;
}

}  // namespace hv
