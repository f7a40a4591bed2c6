#include "geometry/object.h"
#include "hv.h"
#include "scene/construct.h"
#include "scene/part_arrays.h"

#include <algorithm>

using namespace hv;

namespace {

template <class Store>
void EditPart(int object, int part, Store store)
{
    Edit(Objects, object, [&](Object& record) { Edit(record.parts, part, store); });
}

// Runs `append` on a part when there is something to append.
template <class Scalar, class Store>
void AppendToPart(int object, int part, int count, const Scalar* data, Store append)
{
    if (count > 0 && data != nullptr) EditPart(object, part, append);
}

template <class T>
void AppendVertexData(std::vector<VertexData<T>>& sets, const char* name, int count, const float* data)
{
    VertexData<T> set{std::string(TextOf(name)), {}};
    AppendItems(set.values, count, data);
    sets.push_back(std::move(set));
}

}  // namespace

int hvAddObject() { return Append(Objects); }

void hvSetObjectName(int object, const char* name)
{
    Edit(Objects, object, [&](Object& record) { record.name = TextOf(name); });
}

int hvAddPart(int object) { return AppendTo(Objects, object, &Object::parts); }

void hvSetShaderID(int object, int part, int shader)
{
    EditPart(object, part, [&](Part& record) { record.shaderID = static_cast<std::uint32_t>(shader); });
}

void hvAddPositions(int object, int part, int count, const float* positions)
{
    AppendToPart(object, part, count, positions,
                 [&](Part& record) { AppendItems(record.positions, count, positions); });
}

void hvAddNormals(int object, int part, int count, const float* normals)
{
    AppendToPart(object, part, count, normals, [&](Part& record) { AppendDirections(record.normals, count, normals); });
}

void hvAddTangents(int object, int part, int count, const float* tangents)
{
    AppendToPart(object, part, count, tangents,
                 [&](Part& record) { AppendDirections(record.tangents, count, tangents); });
}

// A part is born with its first set of uvs and of scalars.
void hvAddUVs(int object, int part, int count, const float* uvs)
{
    AppendToPart(object, part, count, uvs, [&](Part& record) { AppendItems(record.uvs[0].values, count, uvs); });
}

void hvAddRadii(int object, int part, int count, const float* radii)
{
    AppendToPart(object, part, count, radii,
                 [&](Part& record) { AppendItems(record.scalars[0].values, count, radii); });
}

void hvAddVertexData(int object, int part, const char* name, int dimension, int count, const float* data)
{
    AppendToPart(object, part, count, data, [&](Part& record) {
        if (dimension == 1) AppendVertexData(record.scalars, name, count, data);
        if (dimension == 2) AppendVertexData(record.uvs, name, count, data);
        if (dimension == 3) AppendVertexData(record.vectors, name, count, data);
    });
}

// Indices are stored as they come: the vertices that they name may be added later. A negative one names none.
void hvAddTriangles(int object, int part, int count, const int* indices)
{
    AppendToPart(object, part, count, indices, [&](Part& record) {
        const std::size_t old = record.triangles.size();
        record.triangles.resize(old + static_cast<std::size_t>(count));
        for (std::size_t i = old; i < record.triangles.size(); ++i, indices += 3)
            record.triangles[i] = {static_cast<std::uint32_t>(indices[0]), static_cast<std::uint32_t>(indices[1]),
                                   static_cast<std::uint32_t>(indices[2]), record.shaderID};
    });
}

void hvAddTetragons(int object, int part, int count, const int* indices)
{
    AppendToPart(object, part, count, indices, [&](Part& record) {
        const std::size_t old = record.tetragons.size();
        record.tetragons.resize(old + static_cast<std::size_t>(count));
        for (std::size_t i = old; i < record.tetragons.size(); ++i, indices += 4)
            record.tetragons[i] = {static_cast<std::uint32_t>(indices[0]), static_cast<std::uint32_t>(indices[1]),
                                   static_cast<std::uint32_t>(indices[2]), static_cast<std::uint32_t>(indices[3]),
                                   record.shaderID};
    });
}

void hvAddCylinders(int object, int part, int count, const int* indices)
{
    AppendToPart(object, part, count, indices, [&](Part& record) { AppendItems(record.cylinders, count, indices); });
}

void hvAddParticles(int object, int part, int count, const int* indices)
{
    AppendToPart(object, part, count, indices, [&](Part& record) { AppendItems(record.particles, count, indices); });
}

int hvAddInstance(int object) { return AppendTo(Objects, object, &Object::instances); }

// The target and the shader are stored as they come: what names nothing is passed over when the scene is assembled.
void hvSetInstance(int object, int instance, int target_object, const float (*matrix)[4], int shader)
{
    Edit(Objects, object, [&](Object& record) {
        Edit(record.instances, instance, [&](Instance& placed) {
            placed.object = static_cast<std::uint32_t>(target_object);
            placed.shader = static_cast<std::uint32_t>(shader);
            if (matrix != nullptr) std::copy_n(&matrix[0][0], 16, placed.matrix.m);
        });
    });
}
