#pragma once

#include "accel/ray.h"
#include "output/camera.h"
#include "session/sampling.h"
#include "session/settings.h"

#include <algorithm>
#include <cstdint>

namespace hv {

/// Diffuse and glossy bounces of a path so far.
inline int ScatterBounces(const RayRecord& ray) { return ray.diffuse_bounces + ray.glossy_bounces; }

inline bool IsHair(const RayRecord& ray) { return ray.hit_kind == static_cast<std::uint8_t>(PrimitiveKind::Cylinder); }

inline bool IsFace(const RayRecord& ray)
{
    return ray.hit_kind == static_cast<std::uint8_t>(PrimitiveKind::Triangle) ||
           ray.hit_kind == static_cast<std::uint8_t>(PrimitiveKind::Tetragon);
}

inline bool IsSpecular(ElementCode element)
{
    return element == ElementCode::SpecularReflection || element == ElementCode::SpecularRefraction;
}

/// A quasi-random pair. Where a number becomes an angle its wrap is of no consequence.
struct NumberPair {
    float a, b;
};

/// The pair of sample k, rotated by the pixel's offset, which `ray` carries.
inline NumberPair PairOf(const RayRecord& ray, std::uint32_t dimension, std::uint32_t k)
{
    return {Rotate(RadicalInverse(dimension, k), ray.jitter[0]),
            Rotate(RadicalInverse(dimension + 1, k), ray.jitter[1])};
}

/// Whether the bounce budget lets the vertex that `ray` has reached scatter diffusely or glossily.
inline bool MayScatter(const RayRecord& ray)
{
    const int bounces = ScatterBounces(ray);
    return bounces == 0 || bounces < Settings.Bounce;
}

/// The samples that a vertex takes in this frame: first, first + stride, ... below end.
struct Branches {
    std::uint32_t first, end, stride;
    std::uint32_t count;      ///< samples a frame
    std::uint32_t dimension;  ///< radical-inverse dimension of their first pair of numbers
};

/// Frames of the render: 1 when there is no camera.
inline int FrameTotal()
{
    const Camera* camera = ActiveCamera();
    return camera ? std::max(camera->sample, 1) : 1;
}

/// Samples of a first diffuse or glossy vertex over the whole render: `mean` of `budget`, at least one a frame, a
/// multiple of the frames.
inline int BranchTotal(float mean, int budget, int frames)
{
    const int limit = std::max(budget, 0);
    const int total = std::max(ClampToInt(mean * static_cast<float>(limit), 0, limit), frames);
    return total - total % frames;
}

/// A path that has not scattered yet takes this frame's share of its samples, any other takes the one that it carries.
/// `mean` 0 to 1: how bright the branches are.
inline Branches SplitBranches(const RayRecord& ray, float mean, int budget)
{
    if (ScatterBounces(ray) > 0) return {ray.sample_index, ray.sample_index + 1, 1, 1, ray.dimension};
    const int frames = FrameTotal();
    const int total  = BranchTotal(mean, budget, frames);
    return {static_cast<std::uint32_t>(CurrentFrame), static_cast<std::uint32_t>(total),
            static_cast<std::uint32_t>(frames), static_cast<std::uint32_t>(total / frames), 0};
}

}  // namespace hv
