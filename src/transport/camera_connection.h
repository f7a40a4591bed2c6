#pragma once

#include "accel/ray.h"
#include "shading/surface_point.h"

/// Light paths as the camera sees them; private to this folder.
namespace hv {

/// Whether the camera that renders has an AOV of the channel `light_path`.
bool CollectsLightPaths();

/// Adds what a glossy surface sends of a photon straight to the camera to those AOVs: throughput times `value`, in the
/// pixel that sees the point. Nothing where the point is out of sight.
void ConnectToCamera(const RayRecord& photon, const SurfacePoint& point, Color value);

/// Blackens those AOVs, as photons may be cast a second time, and drops the sums of a cast that broke off.
void ClearConnections();

/// With a seed connections go through sums that do not depend on their order, from the first call to the second.
/// `power`: of a weak photon.
void StartOrderFreeConnections(double power);
void FinishOrderFreeConnections();

}  // namespace hv
