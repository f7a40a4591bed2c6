#pragma once

#include "accel/ray.h"
#include "shading/surface_point.h"

#include <cstdint>

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

// ---- Photons (photons.cpp) ----

/// Casts the photons of all lights, in the order below, and keeps what they bring to diffuse surfaces.
void CastPhotons();

/// Cast the photons of one kind of light. `frame` times the count of a light is the number of its first photon.
void CastPhotonsFromParallelLights(int frame);
void CastPhotonsFromPointLights(int frame);
void CastPhotonsFromGeometryLight(int frame);
void CastPhotonsFromSky(int frame);

/// Follows a photon, which carries `power`, through the scene.
void TracePhoton(RayRecord& photon);

// ---- Caustics (photon_tree.cpp, caustics.cpp) ----

/// Sorts the photons that were kept into a tree and prints the report.
void BuildPhotonTree();
void ReleasePhotons();  ///< empties photons and tree, keeping their storage

/// Radiance over a white diffuse surface of the caustic photons around a point: the 32 nearest within Settings.Radius.
Color CausticEstimate(const RayRecord& ray, const SurfacePoint& point);

/// Lets the next lookup of a thread start without the bound that its last one left. Called before every row of pixels,
/// so that a row does not depend on the thread that renders it.
void ForgetLastLookup(int thread);

// ---- Density cells (density.cpp) ----

/// Sets up the black cells of a part of the root object; the scene preparation runs it through its caller. More than
/// 1 GB of them for one kind of face ends the process.
void PrepareDensity(Part& part);

/// Told before the limit ends the process: what the largest set of cells (one kind of faces of one part, which the
/// limit is for) and all of them would take, and a resolution at which each set fits (0: none).
using DensityObserver = void (*)(double megabytes, double total_megabytes, float fitting_resolution, void* user);
void SetDensityObserver(DensityObserver observer, void* user);

/// Radiance of the cell at a hit, on the side that was hit and on the other; black where there is none.
Color DensitySameSide(const RayRecord& ray);
Color DensityOtherSide(const RayRecord& ray);

}  // namespace hv
