#include "output/output.h"
#include "scene/scene.h"
#include "scene/sections.h"
#include "shading/shading.h"

#include <algorithm>
#include <iterator>

namespace hv {

namespace {

// Read on the side, so that the registry holds whole cameras only.
void AddCamera(SceneReader& reader)
{
    Camera camera;
    CameraDefaults(camera);
    ReadCamera(reader, camera);
    Cameras.push_back(std::move(camera));
}

// The record replaces whatever a reference or an earlier section of the same name has left in the registry.
void PlaceShader(SceneReader& reader)
{
    Shader shader;
    ReadShader(reader, shader);
    const std::uint32_t index = FindOrAddShader(shader.name);
    Shaders[index]            = std::move(shader);
}

struct Section {
    std::string_view word;
    void (*read)(SceneReader& reader);
};

// Lights and objects are read where they stand in their registries, as nothing in their blocks adds another.
constexpr Section kSections[] = {
    {"render", [](SceneReader& reader) { ReadRenderSection(reader, Settings); }},
    {"sky_light", [](SceneReader& reader) { ReadSkyLight(reader, SkyLight); }},
    {"geometry_light", [](SceneReader& reader) { ReadGeometryLight(reader, GeometryLight); }},
    {"camera", AddCamera},
    {"point_light", [](SceneReader& reader) { AppendAndRead(reader, PointLights, ReadPointLight); }},
    {"parallel_light", [](SceneReader& reader) { AppendAndRead(reader, ParallelLights, ReadParallelLight); }},
    {"object", [](SceneReader& reader) { AppendAndRead(reader, Objects, ReadObject); }},
    {"shader", PlaceShader},
};

}  // namespace

bool ReadSceneFile(const std::string& path)
{
    SceneReader reader(path);
    if (!reader.IsOpen()) return false;
    while (reader.NextLine()) {
        const auto section = std::find_if(std::begin(kSections), std::end(kSections),
                                          [&](const Section& known) { return known.word == reader.Keyword(); });
        if (section != std::end(kSections)) section->read(reader);
    }
    return true;
}

}  // namespace hv
