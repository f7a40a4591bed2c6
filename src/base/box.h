#pragma once

#include "base/vector.h"

namespace hv {

/// Axis-aligned box; empty when made.
struct Box {
    Vector min{kFarAway, kFarAway, kFarAway};
    Vector max{-kFarAway, -kFarAway, -kFarAway};

    bool operator==(const Box&) const = default;
};

inline Box Union(const Box& a, const Box& b) { return {Min(a.min, b.min), Max(a.max, b.max)}; }

inline void Grow(Box& box, const Box& other) { box = Union(box, other); }

inline void Grow(Box& box, Vector p)
{
    box.min = Min(box.min, p);
    box.max = Max(box.max, p);
}

/// Half of the surface area, with each extent clamped at 0.
inline float HalfArea(const Box& box)
{
    const float dx = std::max(box.max.x - box.min.x, 0.0f);
    const float dy = std::max(box.max.y - box.min.y, 0.0f);
    const float dz = std::max(box.max.z - box.min.z, 0.0f);
    return (dy + dz) * dx + dy * dz;
}

inline bool Contains(const Box& outer, const Box& inner)
{
    return inner.min.x >= outer.min.x && inner.min.y >= outer.min.y && inner.min.z >= outer.min.z &&
           inner.max.x <= outer.max.x && inner.max.y <= outer.max.y && inner.max.z <= outer.max.z;
}

inline bool IsEmpty(const Box& box)
{
    return !(box.min.x <= box.max.x && box.min.y <= box.max.y && box.min.z <= box.max.z);
}

inline bool IsFinite(const Box& box) { return IsFinite(box.min) && IsFinite(box.max); }

}  // namespace hv
