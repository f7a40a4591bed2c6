#pragma once

#include "accel/ray.h"
#include "output/aov.h"

namespace hv {

/// What light along a path counts in an AOV of its light.
inline Color AOVWeight(const CameraAOV& aov, const RayRecord& ray)
{
    const float gain = aov.is_share ? ray.share_gain : 1.0f;
    return ray.throughput * (gain / static_cast<float>(ray.weight_count));
}

}  // namespace hv
