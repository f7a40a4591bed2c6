#pragma once

#include "geometry/geometry.h"

#include <string>

/// A model as the only Object of the scene, with the default shader.

/// Reads an OBJ file into Objects[0]; triangle n is the file's n-th face, and faces of four corners follow as two
/// triangles each. Nothing is welded or dropped, so that the numbers stay. False when there is no usable face.
bool LoadModel(const std::string& path);

/// Bounds of the vertices that triangles use.
hv::Box UsedBounds(const hv::Part& part);

/// Hierarchy of Objects[0], from its vertex arrays to what rays walk; the steps that preparing a scene takes.
void BuildModel();
