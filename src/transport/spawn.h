#pragma once

#include "accel/ray.h"

namespace hv {

/// The refraction state behind an interface of relative index `eta`. A product that comes back to the state around the
/// camera, or to vacuum, up to rounding is set to it exactly: the kernel compares with both.
float RefractionBehind(const RayRecord& ray, float eta);

/// A ray that leaves `point`, the vertex that `parent` has hit, by `element`. The child points at `point`, which must
/// outlive it.
RayRecord SpawnChild(const RayRecord& parent, const SurfacePoint& point, ElementCode element, Vector direction,
                     Color throughput);

}  // namespace hv
