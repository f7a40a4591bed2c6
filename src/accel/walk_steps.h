#pragma once

#include "accel/leaf_tests.h"
#include "accel/slab.h"
#include "base/float8.h"

#include <algorithm>
#include <bit>
#include <cstdint>

/// The steps that the closest-hit walks and the occlusion walk share; private to this folder.
namespace hv {

/// Depth of the trees that are walked with a stack in the walk's own frame.
inline constexpr std::uint32_t kUsualDepth = 63;

/// A ray brought into the space of an instance for as long as this lives; the record is restored at the end.
class InstanceEntry {
public:
    InstanceEntry(RayRecord& ray, const Instance& instance, float inverse_at_zero)
        : ray_(ray), origin_(ray.origin), direction_(ray.direction), inverse_direction_(ray.inverse_direction)
    {
        ray.origin = TransformPoint(instance.inverse, ray.origin);
        // The same numbers as directionMatrix, without another cache line.
        ray.direction         = UpperLeft(instance.inverse) * ray.direction;
        ray.inverse_direction = Reciprocal(ray.direction, inverse_at_zero);
        ++ray.instance_depth;
    }
    ~InstanceEntry()
    {
        --ray_.instance_depth;
        ray_.origin            = origin_;
        ray_.direction         = direction_;
        ray_.inverse_direction = inverse_direction_;
    }
    InstanceEntry(const InstanceEntry&)            = delete;
    InstanceEntry& operator=(const InstanceEntry&) = delete;

private:
    RayRecord&   ray_;
    const Vector origin_, direction_, inverse_direction_;
};

/// Whether there are curves, which have a tree of their own.
inline bool HasCurves(const Object& object) { return !object.curveNodes.empty(); }

/// Depth of the deeper of the two trees.
inline std::uint32_t DepthOf(const Object& object) { return std::max(object.wideDepth, object.curveDepth); }

/// The Object that an instance places, null when the ray may not enter it: nothing placed, or nested too deep.
inline Object* PlacedObject(const Instance& instance, const RayRecord& ray)
{
    const bool enters = ray.instance_depth < kMaxInstanceDepth && instance.object < Objects.size();
    return enters ? &Objects[instance.object] : nullptr;
}

}  // namespace hv
