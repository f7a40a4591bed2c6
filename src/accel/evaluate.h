#pragma once

#include "geometry/object.h"
#include "shading/surface_point.h"

/// What an evaluator needs of a hit, apart from any record; private to this folder.
namespace hv {

struct SurfaceHit {
    const Part*   part;
    std::uint32_t index;  ///< in the part's array of the kind
    PrimitiveKind kind;
    bool          front;
    float         u, v, w;  ///< parameters by kind, as in RayRecord
};

/// The two terms that a surface's transparency depends on, uv and cos_outgoing, in the space of the object. `direction`
/// need not be of unit length.
void EvaluateShadow(const SurfaceHit& hit, Vector direction, SurfacePoint& point);

}  // namespace hv
