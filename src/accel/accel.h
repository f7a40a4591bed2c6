#pragma once

#include "accel/bbvh.h"
#include "accel/ray.h"

/// The hierarchy of an Object, the walks over it, and the evaluation of hits.
namespace hv {

struct Object;
struct Part;
struct Instance;
struct SurfacePoint;

// ---- Bounds (bounds.cpp) ----

/// Bounds of one primitive or instance in the space of its object. Out-of-range indices give an empty box.
Box PrimitiveBounds(const Object& object, const PrimitiveRef& ref);

/// Whether a reference can take part in a hierarchy: all its indices in range, all its bounds finite.
bool IsUsable(const Object& object, const PrimitiveRef& ref);

/// Recomputes inverse, normalMatrix, directionMatrix and box of an instance from its matrix and the box of its target.
/// Returns false, with an empty box, when the matrix is singular or the target is missing or empty.
bool RefreshInstance(Instance& instance);

/// Recomputes the matrices and boxes of all instances and the object's own box.
void RefreshBounds(Object& object);

// ---- Hierarchy (build.cpp, update.cpp, collapse.cpp, pack.cpp, tune.cpp) ----

/// Builds the topology of the binary tree, without boxes, and prints the progress and timing lines.
void Build(Object& object);

/// Moves the vertices of parts with motion, refits, rotates, and makes the wide tree. Without `force` only moving
/// objects are touched. `frame_count` divides the motion.
void Update(Object& object, bool force, int frame_count);

/// Sorts the used lanes of every wide node by decreasing half area, so that shadow rays try the largest child first.
void SortWideLanes(Object& object);

/// Repacks the leaf blocks of an object from its part arrays and wideRefs.
void PackLeaves(Object& object);

/// Zeroes the lane counters of an object.
void ClearVisits(Object& object);

/// Reorders the lanes of every node by the counters of the first frame: most visited and cheapest first.
void TuneChildOrder(Object& object);

// ---- Walks (walk.cpp, occlusion.cpp). All start at RootObject; an empty or non-finite ray misses. ----

/// Nearest hit along `ray`. Sets distance to 3.4e38 first. Returns whether anything was hit; the record then holds it.
bool TraceClosest(RayRecord& ray);

/// The same for the short probes of subsurface work: keeps the caller's distance, sees triangles and tetragons only.
bool TraceProbe(RayRecord& ray);

/// Multiplies the transparency of everything up to `distance` into throughput, from white. Returns true when the ray
/// was stopped early: no channel is present. In frame 0 blocked rays are counted in wideVisits.
bool TraceOcclusion(RayRecord& ray);

// ---- Hits (evaluate.cpp) ----

/// Fills a SurfacePoint from a hit: layer, frame, uv, then DeriveSurfaceTerms. Reads point.use_density and clears it
/// for particles and cylinders. An unknown hit_kind leaves the point as it is.
void EvaluateHit(const RayRecord& ray, SurfacePoint& point);

/// Normal of a face of 3 or 4 corners p(0), p(1), ...; unit length under the length guard.
template <class CornerAt>
Vector FaceNormalOf(int corner_count, const CornerAt& p)
{
    return Normalized(corner_count == 4 ? Cross(p(2) - p(0), p(3) - p(1)) : Cross(p(1) - p(0), p(2) - p(0)));
}

/// The same of corners in a row, shared with smoothing.
Vector FaceNormal(const Vector* p, int corner_count);

/// m = normalise(n x (n.z, -n.x, n.y)); the tangent is m x n.
Vector FallbackTangent(Vector normal);

}  // namespace hv
