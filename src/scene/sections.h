#pragma once

#include "geometry/object.h"
#include "output/aov.h"
#include "scene/grammar.h"
#include "shading/shader.h"

#include <string>
#include <vector>

/// The blocks of a scene file. Each function reads the lines behind a block's opener up to its `end`.
namespace hv {

// Top level: these fill the registries and settings.
void ReadRenderSection(SceneReader& reader);
void ReadCameraSection(SceneReader& reader);
void ReadPointLightSection(SceneReader& reader);
void ReadParallelLightSection(SceneReader& reader);
void ReadSkyLightSection(SceneReader& reader);
void ReadGeometryLightSection(SceneReader& reader);
void ReadObjectSection(SceneReader& reader);
void ReadShaderSection(SceneReader& reader);

// Blocks that several sections share.
void ReadAov(SceneReader& reader, CameraAOV& aov);
void ReadLink(SceneReader& reader, std::vector<std::string>& names);
void ReadVolumeShader(SceneReader& reader, VolumeShader& volume);

/// Appends a default element to a list and reads the block into it.
template <class Element>
void AppendAndRead(SceneReader& reader, std::vector<Element>& list, void (*read)(SceneReader&, Element&))
{
    read(reader, list.emplace_back());
}

}  // namespace hv
