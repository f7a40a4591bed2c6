#pragma once

#include "accel/ray.h"
#include "geometry/object.h"
#include "shading/shader.h"
#include "shading/surface_point.h"

/// Faces that emit, found through the instances that place them; private to this folder.
namespace hv {

/// One side of a face, and the instances that place it in the world, outermost first.
struct PlacedFace {
    const Part*          part  = nullptr;
    const EmissiveEntry* entry = nullptr;
    const Instance*      instances[kMaxInstanceDepth];
    int                  instance_count = 0;
};

/// Follows u (0 to 1) from a list of the root through those of the instances. False when it ends at nothing.
bool DrawFace(EmissiveList Object::*list, float u, PlacedFace& face);

/// The shader that a ray would find on the face: that of the outermost instance which overrides it.
std::uint32_t ShaderOf(const PlacedFace& face);

/// A place on a face, in world space.
struct FacePlace {
    Vector parameters;     ///< as a hit has them
    Vector position;       ///< metres
    Vector normal;         ///< of the face, unit length, on the side that emits
    Color  emission;       ///< radiance of all layers of that side together
    float stretch = 0.0f;  ///< area that stands behind the place over the mean of the face: 1 but on tetragons that are
                           ///< no parallelograms
};

/// The place at (s, t) of the unit square, which spreads evenly over triangles and parallelograms. False when the face
/// has none.
bool PlaceOn(const PlacedFace& face, float s, float t, FacePlace& place);

}  // namespace hv
