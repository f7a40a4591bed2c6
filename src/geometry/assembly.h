#pragma once

#include "geometry/geometry.h"

/// The steps of the scene and object preparation, apart from each other.
namespace hv {

// ---- The instance tree (instance_tree.cpp) ----

/// Sets the target of every instance that names one, and drops targets that do not exist.
void ResolveInstanceNames();

/// Marks referenced objects and sets RootObject; hangs stray roots under it. Returns false when there is no root.
bool FindRoot();

/// Cuts the instances that close a cycle, starting from RootObject.
void CutCycles();

/// Sets the depth of every object that RootObject reaches: of an object reached twice that of the last visit.
void AssignDepths();

/// All objects, deepest first, then by index, but targets always before the objects that place them.
std::vector<std::uint32_t> PreparationOrder();

// ---- One part (part.cpp, strands.cpp, smooth.cpp) ----

/// Prints what is wrong with a part's arrays; changes nothing but the stamps of "undefined" and unknown shaders.
void ValidatePart(Part& part);

/// Drops faces that cannot be built: vertices out of range or not finite.
void DropBadFaces(Part& part);

/// Hair: the "parameter" of each vertex along its strand, and the vertex tangents.
void PrepareStrands(Part& part);

/// Replaces displaced triangles by tessellated ones.
void Displace(Part& part);

/// Makes the normals that smooth_angle asks for.
void Smooth(Part& part);

/// Gives the strands of an object the texture coordinates of the surface that they grow on.
void AssignStrandUVs(Object& object);

// ---- One object (emitters.cpp, report.cpp) ----

/// Lists the emissive primitives of an object and the instances that place some, with their samplers.
void BuildEmitterLists(Object& object);

void ReportObject(const Object& object);

/// The four lines of a box: size, minimum, maximum, centre. Labels are prefix + "size  " and so on.
void ReportBox(const char* prefix, const Box& box);

}  // namespace hv
