#include "geometry/geometry.h"
#include "scene/array_textures.h"
#include "scene/obj_import.h"
#include "scene/sections.h"
#include "session/console.h"
#include "shading/shading.h"

namespace hv {

namespace {

/// What an `object` block fills.
struct ObjectBlock {
    Object&       object;
    ArrayTextures textures;  ///< apply to the next keyword that makes a part
};

// Each starts from an empty part, and leaves the pictures for the keywords that follow.
void ReadTriangleTexture(SceneReader& reader, ObjectBlock& block)
{
    block.textures.triangle = reader.Quoted();
    Part       part;
    StagedMesh staged;
    FinishArrayPart(part, staged, block.textures);
    block.object.parts.push_back(std::move(part));
}

using Importer = void (*)(Part& part, StagedMesh& staged, const std::string& path);

// A part of its own for the file that the keyword names; the pictures named so far are used up.
template <Importer import_file>
void ReadPartFile(SceneReader& reader, ObjectBlock& block)
{
    Part&      part = block.object.parts.emplace_back();
    StagedMesh staged;
    import_file(part, staged, reader.Quoted());
    FinishArrayPart(part, staged, block.textures);
    block.textures = {};
}

void ImportObj(Part&, StagedMesh& staged, const std::string& path) { ReadObjFile(staged, path); }
void ImportParticles(Part& part, StagedMesh&, const std::string& path) { AppendParticleTexture(part, path); }

void WarnUnread(std::string_view kind, const std::string& path)
{
    if (!path.empty()) PrintWarning("object - " + std::string(kind) + " are not read yet: " + path);
}

void ImportHair(Part&, StagedMesh&, const std::string& path) { WarnUnread("hair files", path); }
void ImportFur(Part&, StagedMesh&, const std::string& path) { WarnUnread("fur files", path); }

template <auto texture>
void ArrayTexture(SceneReader& reader, ObjectBlock& block)
{
    block.textures.*texture = reader.Quoted();
}

void ReadMatrix(SceneReader& reader, Instance& instance) { reader.Read(instance.matrix.m); }

void ReadInstanceShader(SceneReader& reader, Instance& instance)
{
    instance.shaderName = reader.Quoted();
    instance.shader     = FindOrAddShader(instance.shaderName);
}

constexpr Keyword<Instance> kInstance[] = {
    {"matrix", ReadMatrix},
    {"object", Word<&Instance::objectName>},
    {"shader", ReadInstanceShader},
};

void ReadInstance(SceneReader& reader, Instance& instance) { ReadBlock(reader, instance, kInstance); }

constexpr Keyword<ObjectBlock> kObject[] = {
    {"name", [](SceneReader& reader, ObjectBlock& block) { reader.ReadWord(block.object.name); }},
    {"instance",
     [](SceneReader& reader, ObjectBlock& block) { AppendAndRead(reader, block.object.instances, ReadInstance); }},
    {"uv_texture", ArrayTexture<&ArrayTextures::uv>},
    {"position_texture", ArrayTexture<&ArrayTextures::position>},
    {"normal_texture", ArrayTexture<&ArrayTextures::normal>},
    {"tangent_texture", ArrayTexture<&ArrayTextures::tangent>},
    {"triangle_texture", ReadTriangleTexture},
    {"particle_texture", ReadPartFile<ImportParticles>},
    {"shader",
     [](SceneReader& reader, ObjectBlock& block) { block.object.shaderID = FindOrAddShader(reader.Quoted()); }},
    {"hair", ReadPartFile<ImportHair>},
    {"fur", ReadPartFile<ImportFur>},
    {"obj", ReadPartFile<ImportObj>},
};

}  // namespace

void ReadObject(SceneReader& reader, Object& object)
{
    ObjectBlock block{object, {}};
    ReadBlock(reader, block, kObject);
}

}  // namespace hv
