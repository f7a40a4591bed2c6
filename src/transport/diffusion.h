#pragma once

#include "accel/ray.h"
#include "shading/surface_point.h"

namespace hv {

/// A place near a vertex, on the same shader, where the light of the vertex enters.
struct DiffusionProbe {
    SurfacePoint  point;
    Color         weight    = kWhite;  ///< factor of the light, per channel
    std::uint32_t primitive = kNone;   ///< that rays leave from `point`
    std::uint8_t  kind      = 0;       ///< PrimitiveKind
};

/// Looks once for such a place by a short ray. Returns false when it finds none.
bool ProbeDiffusion(const RayRecord& ray, const SurfacePoint& point, DiffusionProbe& probe);

/// Looks until it finds one, at most 256 times; then the vertex itself serves, with weight one.
void FindDiffusionProbe(const RayRecord& ray, const SurfacePoint& point, DiffusionProbe& probe);

}  // namespace hv
