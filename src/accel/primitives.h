#pragma once

#include "accel/ray.h"
#include "geometry/corners.h"
#include "shading/shader.h"

/// The four primitive tests on indexed arrays, one primitive at a time, in the space of the Object that holds it. They
/// decide what a hit is; the lane tests of leaf_tests.h give the same bits for packed triangles and tetragons.
/// Each takes `origin`, `direction` and `distance`, and `depth` and `is_secondary` for the visibility, from the ray.
namespace hv {

/// Traits of a stamped shader; one outside the registry reads as the first.
inline std::uint8_t TraitsAt(std::uint32_t shader)
{
    if (shader < ShaderTraits.size()) return ShaderTraits[shader];
    return ShaderTraits.empty()
               ? std::uint8_t{shader_traits::kVisibilityMask | shader_traits::kFrontOpaque | shader_traits::kBackOpaque}
               : ShaderTraits[0];
}

/// The visibility bits of which a shader needs one to be met by the ray: the two flags speak of primary rays only.
inline std::uint8_t VisibilityNeeded(const RayRecord& ray)
{
    if (ray.depth != 0) return shader_traits::kVisibilityMask;
    return static_cast<std::uint8_t>(ray.is_secondary ? Visibility::LightPrimary : Visibility::CameraPrimary);
}

inline bool IsVisible(const RayRecord& ray, std::uint32_t shader)
{
    return (TraitsAt(shader) & VisibilityNeeded(ray)) != 0;
}

struct TriangleHit {
    float         denominator;  ///< normal . direction; below 0 the ray met the front
    float         t;
    std::uint32_t shader;
    float         b1, b2, b0;  ///< weights of i1, i2, i0
};

struct TetragonHit {
    float         denominator;
    float         t;
    std::uint32_t shader;
    float         u, v;  ///< weights (1-u)(1-v), (1-u)v, uv, u(1-v) of i0 to i3
};

struct CylinderHit {
    float         denominator;  ///< facing normal of the ribbon . direction
    float         t;
    std::uint32_t shader;
    float         across;  ///< signed distance from the axis over the half width
    float         along;   ///< middle of the piece that was hit, 0 to 1
    Vector        position;
};

bool IntersectTriangle(const Part& part, std::uint32_t index, const RayRecord& ray, TriangleHit& hit);
bool IntersectTetragon(const Part& part, std::uint32_t index, const RayRecord& ray, TetragonHit& hit);

/// The nearest of the eight pieces of a segment that the ray meets. One pass over eight lanes, without a loop: about 70
/// operations place the pieces and measure how far the ray passes each by (one reciprocal root, no division); the test
/// ends here unless a lane is nearer than its half width. Another 30 (a reciprocal root and the only vector division)
/// give the distances, and 30 more cut the pieces off at their end planes; the nearest lane that is left wins.
///
/// The walks come to it last. A camera ray at 10,000 strands comes near bundles of 22 segments (a ray of random
/// direction from a strand 37); NearCurves turns 92 of 100 down, up to eight at once in about 80 operations. Of the
/// others 29 of 100 end at the half width, 3 at the distance, 19 at the end planes, and 49 are
/// hits (random directions: 22, 27, 13, 39).
bool IntersectCylinder(const Part& part, std::uint32_t index, const RayRecord& ray, CylinderHit& hit);

/// Writes the hit into the record. Fails for a ray that was reflected off this very particle.
bool IntersectParticle(const Part& part, std::uint32_t index, RayRecord& ray);

/// The particle test of shadow rays: whether the sphere blocks the way, and at what distance `t`.
bool OccludeParticle(const Part& part, std::uint32_t index, const RayRecord& ray, float& t);

/// (u, v) of a tetragon from its four edge measures. An edge pair of measure 0 gives 0, so no non-number gets out.
inline float EdgeRatio(float a, float b)
{
    const float ratio = a / (a + b);
    return ratio == ratio ? ratio : 0.0f;
}

}  // namespace hv
