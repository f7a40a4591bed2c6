#pragma once

#include "geometry/object.h"
#include "lights/light.h"
#include "output/camera.h"
#include "scene/grammar.h"
#include "session/settings.h"
#include "shading/shader.h"

#include <string>
#include <vector>

/// The blocks of a scene file: each function reads the lines behind a block's opener, up to its `end`, into a record.
namespace hv {

// Sections.
void ReadRenderSection(SceneReader& reader, RendererSettings& settings);
void ReadCamera(SceneReader& reader, Camera& camera);
void ReadPointLight(SceneReader& reader, PointLight& light);
void ReadParallelLight(SceneReader& reader, ParallelLight& light);
void ReadSkyLight(SceneReader& reader, SkyLightState& sky);
void ReadGeometryLight(SceneReader& reader, GeometryLightState& light);
void ReadObject(SceneReader& reader, Object& object);
void ReadShader(SceneReader& reader, Shader& shader);

// Blocks inside several sections.
void ReadAov(SceneReader& reader, CameraAOV& aov);
void ReadLink(SceneReader& reader, std::vector<std::string>& names);
void ReadVolumeShader(SceneReader& reader, VolumeShader& volume);

/// Appends a default element to a list and reads the block into it: a block that the file cuts off leaves a valid one.
template <class Element>
void AppendAndRead(SceneReader& reader, std::vector<Element>& list, void (*read)(SceneReader&, Element&))
{
    read(reader, list.emplace_back());
}

}  // namespace hv
