#include "geometry/geometry.h"
#include "scene/array_textures.h"
#include "scene/hair_import.h"
#include "scene/obj_import.h"
#include "scene/sections.h"
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
    block.textures.triangle = reader.Quoted(Meaning::DataPicture);
    Part       part;
    StagedMesh staged;
    if (reader.LoadsFiles()) FinishArrayPart(part, staged, block.textures);
    block.object.parts.push_back(std::move(part));
}

using Importer = void (*)(Part& part, StagedMesh& staged, const std::string& path);

// A part of its own for the file that the keyword names; the pictures named so far are used up.
template <Importer import_file, Meaning meaning>
void ReadPartFile(SceneReader& reader, ObjectBlock& block)
{
    Part&             part = block.object.parts.emplace_back();
    StagedMesh        staged;
    const std::string path = reader.Quoted(meaning);
    if (reader.LoadsFiles()) {
        import_file(part, staged, path);
        FinishArrayPart(part, staged, block.textures);
    }
    block.textures = {};
}

void ImportObj(Part&, StagedMesh& staged, const std::string& path) { ReadObjFile(staged, path); }
void ImportParticles(Part& part, StagedMesh&, const std::string& path) { AppendParticleTexture(part, path); }

void ImportHair(Part& part, StagedMesh&, const std::string& path) { ReadHairFile(part, path); }
void ImportFur(Part& part, StagedMesh&, const std::string& path) { ReadFurFile(part, path); }

template <auto texture>
void ArrayTexture(SceneReader& reader, ObjectBlock& block)
{
    block.textures.*texture = reader.Quoted(Meaning::DataPicture);
}

void ReadMatrix(SceneReader& reader, Instance& instance) { reader.Read(instance.matrix.m); }

void ReadInstanceShader(SceneReader& reader, Instance& instance)
{
    instance.shaderName = reader.Quoted(Meaning::ShaderUse);
    instance.shader     = FindOrAddShader(instance.shaderName);
}

constexpr Keyword<Instance> kInstance[] = {
    {"object", Word<&Instance::objectName, Meaning::ObjectUse>, {"chair", "", "name of the object to place"}},
    {"matrix", ReadMatrix, {"1 0 0 2  0 1 0 0  0 0 1 0  0 0 0 1", "m", "object to parent, row by row"}},
    {"shader", ReadInstanceShader, {"\"undefined\"", "", "replaces all shaders of the placed object"}},
};

void ReadInstance(SceneReader& reader, Instance& instance) { ReadBlock(reader, instance, kInstance); }

void ReadObjectName(SceneReader& reader, ObjectBlock& block)
{
    reader.ReadWord(block.object.name, Meaning::ObjectName);
}
void ReadObjectInstance(SceneReader& reader, ObjectBlock& block)
{
    AppendAndRead(reader, block.object.instances, ReadInstance);
}
void ReadObjectShader(SceneReader& reader, ObjectBlock& block)
{
    block.object.shaderID = FindOrAddShader(reader.Quoted(Meaning::ShaderUse, "undefined"));
}

constexpr Keyword<ObjectBlock> kObject[] = {
    {"name", ReadObjectName, {"table", "", "one word, by which instances name the object"}},
    {"instance", ReadObjectInstance, {"", "", "places another object in this one", Effect::Adds}},
    {"uv_texture",
     ArrayTexture<&ArrayTextures::uv>,
     {"\"uv.exr\"", "", "texture coordinates, from two floats a pixel"}},
    {"position_texture",
     ArrayTexture<&ArrayTextures::position>,
     {"\"p.exr\"", "m", "vertices, from three floats a pixel"}},
    {"normal_texture", ArrayTexture<&ArrayTextures::normal>, {"\"n.exr\"", "", "normals, from three floats a pixel"}},
    {"tangent_texture",
     ArrayTexture<&ArrayTextures::tangent>,
     {"\"t.exr\"", "", "tangents, from three floats a pixel"}},
    {"triangle_texture",
     ReadTriangleTexture,
     {"\"f.exr\"", "", "a part: triangles, from the bits of three integers a pixel", Effect::Adds}},
    {"particle_texture",
     ReadPartFile<ImportParticles, Meaning::DataPicture>,
     {"\"b.exr\"", "m", "a part: balls, from position and radius a pixel", Effect::Adds}},
    {"shader", ReadObjectShader, {"\"undefined\"", "", "shader of all that has none of its own"}},
    {"hair",
     ReadPartFile<ImportHair, Meaning::StrandFile>,
     {"\"a.hair\"", "", "a part: strands of a HAIR file", Effect::Adds}},
    {"fur",
     ReadPartFile<ImportFur, Meaning::StrandFile>,
     {"\"a.fur\"", "", "a part: strands of a text file", Effect::Adds}},
    {"obj", ReadPartFile<ImportObj, Meaning::ObjFile>, {"\"table.obj\"", "", "a part: an OBJ model", Effect::Adds}},
};

}  // namespace

void ReadObject(SceneReader& reader, Object& object)
{
    ObjectBlock block{object, {}};
    ReadBlock(reader, block, kObject);
}

}  // namespace hv
