#pragma once

#include "geometry/object.h"

/// Preparation of objects: from the registry that hosts and scene files fill to something rays can walk.
namespace hv {

/// Resolves instance names, finds the root, prepares every object from the leaves of the instance tree to the root,
/// sets the scene values and prints the reports. `density_setup` is run on each part of the root before the scene
/// report; null runs nothing.
void PrepareScene(void (*density_setup)(Part& part) = nullptr);

/// The per-frame step: updates moving objects, deepest first, and refreshes the scene values.
void MoveObjects();

/// Prepares one object whose instance targets are prepared.
void PrepareObject(Object& object);

/// Prepares one part of an object: checks, strand parameters and tangents, flipped faces, displacement, smoothing.
void PreparePart(Part& part);

/// Destroys all objects and resets the scene values.
void DestroyObjects();

/// Area of a face under the clamped root, square metres.
float TriangleArea(Vector p0, Vector p1, Vector p2);
float TetragonArea(Vector p0, Vector p1, Vector p2, Vector p3);

/// A corner of a staged face; kNone is "none".
struct StagedCorner {
    std::uint32_t position = kNone, uv = kNone, normal = kNone, tangent = kNone;
};
struct StagedTriangle {
    StagedCorner  corners[3];
    std::uint32_t shader = 0;
};
struct StagedTetragon {
    StagedCorner  corners[4];
    std::uint32_t shader = 0;
};

/// Faces as an importer reads them, with separate numbering for positions, uvs, normals and tangents.
struct StagedMesh {
    std::vector<Vector>         positions;
    std::vector<Vector2>        uvs;
    std::vector<Vector>         normals;
    std::vector<Vector>         tangents;
    std::vector<StagedTriangle> triangles;
    std::vector<StagedTetragon> tetragons;
};

/// Welds staged faces into a part by exact equality and releases the staged arrays. Faces with two corners at one place
/// are dropped in silence, faces with bad position indices with one error a call.
void FlattenStagedMesh(StagedMesh& staged, Part& part);

}  // namespace hv
