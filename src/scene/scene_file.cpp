#include "output/output.h"
#include "scene/scene.h"
#include "scene/sections.h"
#include "shading/shading.h"

namespace hv {

namespace {

/// Sections fill the registries, which are global.
struct FileLevel {};

// Read on the side, so that the registry holds whole cameras only.
void AddCamera(SceneReader& reader, FileLevel&)
{
    Camera camera;
    CameraDefaults(camera);
    ReadCamera(reader, camera);
    Cameras.push_back(std::move(camera));
}

// The record replaces whatever a reference or an earlier section of the same name has left in the registry.
void PlaceShader(SceneReader& reader, FileLevel&)
{
    Shader shader;
    ReadShader(reader, shader);
    const std::uint32_t index = FindOrAddShader(shader.name);
    Shaders[index]            = std::move(shader);
}

// Lights and objects are read where they stand in their registries, as nothing in their blocks adds another.
void ReadRender(SceneReader& reader, FileLevel&) { ReadRenderSection(reader, Settings); }
void ReadSky(SceneReader& reader, FileLevel&) { ReadSkyLight(reader, SkyLight); }
void ReadEmitters(SceneReader& reader, FileLevel&) { ReadGeometryLight(reader, GeometryLight); }
void AddPointLight(SceneReader& reader, FileLevel&) { AppendAndRead(reader, PointLights, ReadPointLight); }
void AddParallelLight(SceneReader& reader, FileLevel&) { AppendAndRead(reader, ParallelLights, ReadParallelLight); }
void AddObject(SceneReader& reader, FileLevel&) { AppendAndRead(reader, Objects, ReadObject); }

constexpr Keyword<FileLevel> kSections[] = {
    {"render", ReadRender, {"", "", "settings"}},
    {"sky_light", ReadSky, {"", "", "what lies around the scene"}},
    {"geometry_light", ReadEmitters, {"", "", "all glowing surfaces"}},
    {"camera", AddCamera, {"", "", "a camera; the first one renders", Effect::Adds}},
    {"point_light", AddPointLight, {"", "", "a lamp or spot", Effect::Adds}},
    {"parallel_light", AddParallelLight, {"", "", "a sun", Effect::Adds}},
    {"object", AddObject, {"", "", "geometry, from files and other objects", Effect::Adds}},
    {"shader", PlaceShader, {"", "", "a material", Effect::Adds}},
};

void ReadSections(SceneReader& reader)
{
    FileLevel file;
    reader.ListSections(kSections);
    while (reader.NextLine()) ReadLine(reader, file, kSections);
}

}  // namespace

bool ReadSceneFile(const std::string& path)
{
    SceneReader reader(path);
    if (reader.IsOpen()) ReadSections(reader);
    return reader.IsOpen();
}

bool ReadSceneFile(const std::string& path, Transcript& transcript)
{
    SceneReader reader(path, transcript);
    if (reader.IsOpen()) ReadSections(reader);
    return reader.IsOpen();
}

void ReadSceneLines(std::unique_ptr<LineSource> lines, Transcript& transcript)
{
    SceneReader reader(std::move(lines), transcript);
    ReadSections(reader);
}

}  // namespace hv
