#pragma once

#include "geometry/geometry.h"

#include <string>

namespace hv {

/// Reads the positions, uvs, normals and faces of a Wavefront OBJ file into staged arrays; their faces are complete as
/// written, whether their indices exist is seen when they are flattened. Shader names go to the shader registry. The
/// path is used as it stands. A file that cannot be opened prints an error and adds nothing.
void ReadObjFile(StagedMesh& staged, const std::string& path);

/// The same, flattened into a part.
void ReadObjFile(Part& part, const std::string& path);

}  // namespace hv
