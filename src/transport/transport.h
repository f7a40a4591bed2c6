#pragma once

#include "accel/ray.h"
#include "shading/surface_point.h"

/// Light transport: the path kernel and what it calls.
namespace hv {

/// The light arriving along a ray. Writes `distance`, the hit fields and `inverse_direction` of the ray.
Color Radiance(RayRecord& ray);

/// Light of one direct-lighting function, split by element.
struct ElementRadiance {
    Color lambertian, transmissive, glossy, specular;

    ElementRadiance& operator+=(const ElementRadiance& other);
};

// ---- Scattering (scatter.cpp): light from the rays that an element spawns, before its colour ----
Color ScatterLambertian(const RayRecord& ray, const SurfacePoint& point);
Color ScatterTransmissive(const RayRecord& ray, const SurfacePoint& point);
Color ScatterGlossy(const RayRecord& ray, const SurfacePoint& point);
Color ScatterSpecular(const RayRecord& ray, const SurfacePoint& point);

// ---- Lobes (lobes.cpp) ----

/// Cosine-weighted direction about `normal` (side +1) or its opposite (side -1), density |cos| / pi. a, b: 0 to 1.
Vector SampleCosine(const SurfacePoint& point, float a, float b, float side);

/// Half vector of the anisotropic Ward lobe (Ward 1992). a, b: 0 to 1, the second in (0, 1].
Vector SampleWardHalf(const SurfacePoint& point, float a, float b);

/// Value of the Ward lobe, per steradian; 0 when it is not finite or a roughness is 0.
float WardLobe(Vector outgoing, Vector incoming, const SurfacePoint& point);

/// Refracts d at a surface with normal n; c = -(d . n). Returns true on total internal reflection, `out` untouched.
bool Refract(Vector& out, Vector d, Vector n, float eta, float c);

// ---- Direct light (direct.cpp) ----
ElementRadiance GeometryLightDirect(const RayRecord& ray, const SurfacePoint& point);
ElementRadiance SkyDirect(const RayRecord& ray, const SurfacePoint& point);
ElementRadiance PointAndParallelDirect(const RayRecord& ray, const SurfacePoint& point);
Color           SurfaceEmission(const RayRecord& ray, const SurfacePoint& point);
Color           MissRadiance(const RayRecord& ray);

// ---- Photons and density (photons.cpp) ----
void CastPhotonsFromParallelLights();
void CastPhotonsFromPointLights();
void CastPhotonsFromGeometryLight();
void CastPhotonsFromSky();
void BuildPhotonTree();
void ReleasePhotons();  ///< empties photons and tree, keeping their storage

/// Caustic light at a point, from the photon tree.
Color CausticEstimate(const RayRecord& ray, const SurfacePoint& point);

/// Whether density cells hold energy, so that a path may end at one.
bool HasDensityCells();

/// Energy of the density cell at a hit, on the side that was hit and on the other.
Color DensityFront(const RayRecord& ray);
Color DensityBack(const RayRecord& ray);

/// Sets up the density cells of a part of the root object; the scene preparation runs it through its caller.
void PrepareDensity(Part& part);

}  // namespace hv
