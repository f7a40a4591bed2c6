#pragma once

#include "lights/light.h"

/// The lights: defaults, preparation, what a ray sees of the sky.
namespace hv {

/// Sets the defaults that start-up, the end of a render and finalize set again.
void SkyLightDefaults();
void GeometryLightDefaults();

/// Preparation stages: links resolved, axes normalised, powers and AOVs made, the report printed. The importance tables of
/// the sky and the emitter list of the geometry light come with direct light sampling.
void PrepareSkyLight();
void PrepareGeometryLight();
void PrepareGaffer();

/// The end of each stage: pictures of their AOVs written, records released, defaults set.
void FinalizeSkyLight();
void FinalizeGeometryLight();
void FinalizeGaffer();

/// Whether a link list lets a light act on a shader: an empty list does.
bool IsLinked(const std::vector<std::uint32_t>& link_shaders, std::uint32_t shader);

/// Whether direct lighting samples emissive surfaces from a list of points on them.
bool HasEmitterList();

/// Radiance of the sky seen by a ray that left the scene.
Color SkyRadiance(const RayRecord& ray);

/// Radiance of the sky in a direction, never the backdrop.
Color SkyColor(Vector direction);

}  // namespace hv
