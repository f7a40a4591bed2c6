#pragma once

#include "geometry/object.h"

/// What the vertices of a part carry besides position, normal and tangent.
namespace hv {

/// Arrays may be shorter than the positions: a vertex beyond the end has the value 0.
template <class T>
T ValueAt(const std::vector<T>& values, std::uint32_t vertex)
{
    return vertex < values.size() ? values[vertex] : T{};
}

/// Calls visit(values) for every array that is not empty: scalars, uvs, vectors.
template <class PartType, class Visit>
void ForEachValues(PartType& part, const Visit& visit)
{
    const auto visit_all = [&visit](auto& arrays) {
        for (auto& array : arrays)
            if (!array.values.empty()) visit(array.values);
    };
    visit_all(part.scalars);
    visit_all(part.uvs);
    visit_all(part.vectors);
}

/// Number of corners of all faces.
inline std::uint64_t CornerCount(const Part& part) { return 3 * part.triangles.size() + 4 * part.tetragons.size(); }

/// Smoothing numbers corners and vertices in 32 bits.
inline constexpr std::uint64_t kMostCorners = kNone - 1;

}  // namespace hv
