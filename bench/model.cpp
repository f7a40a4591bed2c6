#include "model.h"

#include "accel/accel.h"
#include "scene/obj_import.h"
#include "shading/shading.h"

namespace {

void AddTriangle(hv::Part& part, std::uint32_t i0, std::uint32_t i1, std::uint32_t i2)
{
    const std::size_t count = part.positions.size();
    // A face with a bad index keeps its number, but is never hit.
    if (i0 >= count || i1 >= count || i2 >= count) i0 = i1 = i2 = 0;
    part.triangles.push_back({i0, i1, i2, 0});
}

}  // namespace

bool LoadModel(const std::string& path)
{
    hv::StagedMesh staged;
    hv::EnsureDefaultShader();
    hv::ReadObjFile(staged, path);
    hv::Shaders.clear();
    hv::EnsureDefaultShader();
    hv::PrepareShaders();

    hv::Objects.assign(1, {});
    hv::RootObject = 0;
    hv::Part& part = hv::Objects[0].parts.emplace_back();
    part.positions = std::move(staged.positions);
    for (const hv::StagedTriangle& face : staged.triangles)
        AddTriangle(part, face.corners[0].position, face.corners[1].position, face.corners[2].position);
    for (const hv::StagedTetragon& face : staged.tetragons) {
        AddTriangle(part, face.corners[0].position, face.corners[1].position, face.corners[2].position);
        AddTriangle(part, face.corners[0].position, face.corners[2].position, face.corners[3].position);
    }
    return !part.positions.empty() && !part.triangles.empty();
}

hv::Box UsedBounds(const hv::Part& part)
{
    hv::Box box;
    for (const hv::Triangle& face : part.triangles)
        for (const std::uint32_t vertex : {face.i0, face.i1, face.i2}) hv::Grow(box, part.positions[vertex]);
    return box;
}

void BuildModel()
{
    hv::Object& object = hv::Objects[0];
    hv::RefreshBounds(object);
    hv::Build(object);
    hv::Update(object, true, 1);
    hv::SortWideLanes(object);
}
