#include "accel/accel.h"
#include "geometry/assembly.h"
#include "geometry/weld.h"
#include "session/console.h"
#include "shading/shading.h"

#include <algorithm>

namespace hv {

namespace {

void ReportMixedTypes()
{
    PrintError("object - mixed types (ex. cylinders and triangles in the same group) ");
    PrintRule();
}

template <class T>
bool SizesDiffer(const std::vector<VertexData<T>>& arrays, std::size_t vertex_count)
{
    return std::any_of(arrays.begin(), arrays.end(), [vertex_count](const VertexData<T>& array) {
        return !array.values.empty() && array.values.size() != vertex_count;
    });
}

bool AnySizeDiffers(const Part& part)
{
    const std::size_t count = part.positions.size();
    return SizesDiffer(part.scalars, count) || SizesDiffer(part.uvs, count) || SizesDiffer(part.vectors, count) ||
           (!part.normals.empty() && part.normals.size() != count) ||
           (!part.tangents.empty() && part.tangents.size() != count);
}

/// An index outside the registry reads as shader 0.
std::uint32_t KnownShader(std::uint32_t shader) { return shader < Shaders.size() ? shader : 0; }

/// Faces stamped with "undefined" take the part's own shader, which may have been set after they were added.
template <class Face>
void RestampShaders(std::vector<Face>& faces, std::uint32_t part_shader)
{
    for (Face& face : faces) {
        face.shader = KnownShader(face.shader);
        if (ShaderAt(face.shader).name == "undefined") face.shader = part_shader;
    }
}

bool HasGoodVertices(const Part& part, std::initializer_list<std::uint32_t> vertices)
{
    return std::all_of(vertices.begin(), vertices.end(), [&part](std::uint32_t vertex) {
        return vertex < part.positions.size() && IsFinite(part.positions[vertex]);
    });
}

void FlipFaces(Part& part)
{
    for (Triangle& face : part.triangles)
        if (ShaderAt(face.shader).geometry_shader.flip_face) std::swap(face.i0, face.i1);
    for (Tetragon& face : part.tetragons)
        if (ShaderAt(face.shader).geometry_shader.flip_face) std::swap(face.i0, face.i2);
}

/// Steps of a motion that are no numbers would put their vertices nowhere: such vertices stand still.
bool PrepareMotion(Part& part)
{
    bool has_motion = false;
    for (VertexData<Vector>& array : part.vectors) {
        if (array.name != "motion") continue;
        has_motion = true;
        for (Vector& step : array.values)
            if (!IsFinite(step)) step = {};
    }
    return has_motion;
}

template <class T>
void ShrinkArrays(std::vector<VertexData<T>>& arrays)
{
    for (VertexData<T>& array : arrays) array.values.shrink_to_fit();
    arrays.shrink_to_fit();
}

void ShrinkToFit(Part& part)
{
    ShrinkArrays(part.uvs);
    ShrinkArrays(part.scalars);
    ShrinkArrays(part.vectors);
    part.positions.shrink_to_fit();
    part.normals.shrink_to_fit();
    part.tangents.shrink_to_fit();
    part.particles.shrink_to_fit();
    part.cylinders.shrink_to_fit();
    part.triangles.shrink_to_fit();
    part.tetragons.shrink_to_fit();
    part.strandSizes.shrink_to_fit();
}

}  // namespace

void ValidatePart(Part& part)
{
    const bool has_faces = !part.triangles.empty() || !part.tetragons.empty();
    if (!part.particles.empty() && !part.cylinders.empty()) ReportMixedTypes();
    if (!part.particles.empty() && has_faces) ReportMixedTypes();
    if (!part.cylinders.empty() && has_faces) ReportMixedTypes();
    if (AnySizeDiffers(part)) PrintError("object - different size of per vertex data array");
    part.shaderID = KnownShader(part.shaderID);
    RestampShaders(part.triangles, part.shaderID);
    RestampShaders(part.tetragons, part.shaderID);
}

void DropBadFaces(Part& part)
{
    std::size_t out_of_range = 0;
    const auto  is_bad       = [&](std::initializer_list<std::uint32_t> vertices) {
        if (HasGoodVertices(part, vertices)) return false;
        for (const std::uint32_t vertex : vertices) out_of_range += vertex >= part.positions.size();
        return true;
    };
    std::erase_if(part.triangles, [&](const Triangle& face) { return is_bad({face.i0, face.i1, face.i2}); });
    std::erase_if(part.tetragons, [&](const Tetragon& face) { return is_bad({face.i0, face.i1, face.i2, face.i3}); });
    if (out_of_range > 0) PrintError("part - smoothing out of range");
}

void PreparePart(Part& part)
{
    ValidatePart(part);
    part.weldBuckets.reset();
    if (!part.cylinders.empty()) {
        if (part.shaderID < Shaders.size()) Shaders[part.shaderID].is_hair = true;  // another one than last time, maybe
        if (!part.isPrepared) PrepareStrands(part);
    }
    part.hasMotion = PrepareMotion(part);
    if (!part.triangles.empty() || !part.tetragons.empty()) {
        DropBadFaces(part);
        if (!part.isPrepared) {
            FlipFaces(part);
            Displace(part);
            Smooth(part);
        }
    }
    part.isPrepared = true;
    ShrinkToFit(part);
}

}  // namespace hv
