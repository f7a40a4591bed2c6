#pragma once

#include "accel/ray.h"
#include "base/float8.h"

#include <cmath>
#include <cstddef>
#include <limits>

/// The eight-lane box test of the walks, and what it needs of a ray.
namespace hv {

/// Forced: the walks keep a ray in registers, which a call would spill.
#define HV_INLINE inline __attribute__((always_inline))

inline constexpr float kBoxEpsilon = 1e-8f;  ///< a box behind the origin passes only when the origin is inside it

/// 1 / direction. A zero component gets `at_zero`, an infinity whose sign fits the plane that the walk takes as entry:
/// +inf takes the min plane (closest hit), -inf the max plane (occlusion).
inline Vector Reciprocal(Vector direction, float at_zero)
{
    const auto one_over = [at_zero](float x) { return x == 0.0f ? at_zero : 1.0f / x; };
    return {one_over(direction.x), one_over(direction.y), one_over(direction.z)};
}

inline constexpr float kInfinity = std::numeric_limits<float>::infinity();

/// A ray splat over eight lanes, with the position of its entry plane on each axis as a byte offset into LaneBoxes.
/// The exit plane is at the other of the two offsets.
struct SlabRay {
    Float8      origin_x, origin_y, origin_z;
    Float8      inverse_x, inverse_y, inverse_z;  ///< negated, see PlaneDistance
    std::size_t entry_x, entry_y, entry_z, exit_x, exit_y, exit_z;
};

HV_INLINE SlabRay MakeSlabRay(Vector origin, Vector inverse)
{
    SlabRay ray;
    ray.origin_x  = Splat8(origin.x);
    ray.origin_y  = Splat8(origin.y);
    ray.origin_z  = Splat8(origin.z);
    ray.inverse_x = Splat8(-inverse.x);
    ray.inverse_y = Splat8(-inverse.y);
    ray.inverse_z = Splat8(-inverse.z);
    ray.entry_x   = inverse.x > 0.0f ? offsetof(LaneBoxes, minX) : offsetof(LaneBoxes, maxX);
    ray.entry_y   = inverse.y > 0.0f ? offsetof(LaneBoxes, minY) : offsetof(LaneBoxes, maxY);
    ray.entry_z   = inverse.z > 0.0f ? offsetof(LaneBoxes, minZ) : offsetof(LaneBoxes, maxZ);
    ray.exit_x    = offsetof(LaneBoxes, minX) + offsetof(LaneBoxes, maxX) - ray.entry_x;
    ray.exit_y    = offsetof(LaneBoxes, minY) + offsetof(LaneBoxes, maxY) - ray.entry_y;
    ray.exit_z    = offsetof(LaneBoxes, minZ) + offsetof(LaneBoxes, maxZ) - ray.entry_z;
    return ray;
}

/// (plane - origin) * inverse, written with both factors negated: the same bits, and the plane can stay in memory.
HV_INLINE Float8 PlaneDistance(const LaneBoxes& boxes, std::size_t plane, Float8 origin, Float8 negated_inverse)
{
    const char* bytes = reinterpret_cast<const char*>(&boxes);
    return (origin - Load8(reinterpret_cast<const float*>(bytes + plane))) * negated_inverse;
}

/// Bit i: the ray enters the box of lane i at near[i], before it leaves it and before `far_limit`. Unused lanes never
/// pass. A coordinate that gives no number (the origin on a plane that the ray runs along) does not narrow the
/// interval. With kFinite all inverses are finite: then no coordinate gives none, and the same numbers come out one
/// step sooner.
template <bool kFinite>
HV_INLINE unsigned SlabTest8(const LaneBoxes& boxes, const SlabRay& ray, Float8 far_limit, Float8& near)
{
    const Float8 near_x = PlaneDistance(boxes, ray.entry_x, ray.origin_x, ray.inverse_x);
    const Float8 near_y = PlaneDistance(boxes, ray.entry_y, ray.origin_y, ray.inverse_y);
    const Float8 near_z = PlaneDistance(boxes, ray.entry_z, ray.origin_z, ray.inverse_z);
    const Float8 far_x  = PlaneDistance(boxes, ray.exit_x, ray.origin_x, ray.inverse_x);
    const Float8 far_y  = PlaneDistance(boxes, ray.exit_y, ray.origin_y, ray.inverse_y);
    const Float8 far_z  = PlaneDistance(boxes, ray.exit_z, ray.origin_z, ray.inverse_z);

    const Float8 epsilon = Splat8(kBoxEpsilon);
    if constexpr (kFinite) {
        near = Max(Max(near_x, near_y), Max(near_z, epsilon));
        return Bits(LessEqual(near, Min(Min(far_x, far_y), Min(far_z, far_limit))));
    }
    near = Max(near_z, Max(near_y, Max(near_x, epsilon)));
    return Bits(LessEqual(near, Min(far_z, Min(far_y, Min(far_x, far_limit)))));
}

/// Whether a ray can be walked at all: origin and direction are numbers and finite.
inline bool IsWalkable(Vector origin, Vector direction) { return IsFinite(origin) && IsFinite(direction); }

}  // namespace hv
