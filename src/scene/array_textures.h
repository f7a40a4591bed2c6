#pragma once

#include "geometry/geometry.h"

#include <string>

/// Float pictures as geometry: each pixel is one item of an array, in the order of the pixels in memory.
namespace hv {

/// Paths of the pictures whose pixels are to become arrays of a part. Three floats a pixel; those of `triangle` hold
/// the bits of three vertex indices. An empty path adds nothing.
struct ArrayTextures {
    std::string position, uv, normal, tangent, triangle;
};

/// The end of every keyword that makes a part: appends the arrays of the pictures as they stand, then the staged faces,
/// welded. A picture that is missing or of another layout is told of and adds nothing.
void FinishArrayPart(Part& part, StagedMesh& staged, const ArrayTextures& textures);

/// Appends a particle for each pixel of a picture: position and radius, four floats.
void AppendParticleTexture(Part& part, const std::string& path);

}  // namespace hv
