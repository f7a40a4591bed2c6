#pragma once

#include "accel/accel.h"
#include "accel/hierarchy.h"

#include <cmath>
#include <random>

/// What the tests of hierarchies and walks build their scenes with.
namespace hv {

using Random = std::mt19937;

inline float Uniform(Random& random, float low, float high)
{
    return std::uniform_real_distribution<float>(low, high)(random);
}

inline Vector PointIn(Random& random, float low, float high)
{
    const float x = Uniform(random, low, high), y = Uniform(random, low, high);
    return {x, y, Uniform(random, low, high)};
}

inline RayRecord MakeRay(Vector origin, Vector direction, float distance = kFarAway)
{
    RayRecord ray;
    ray.origin    = origin;
    ray.direction = direction;
    ray.distance  = distance;
    return ray;
}

inline void Prepare(Object& object, int frame_count = 1)
{
    RefreshBounds(object);
    Build(object);
    Update(object, true, frame_count);
}

inline std::vector<PrimitiveRef> UsableRefs(const Object& object)
{
    std::vector<PrimitiveRef> refs;
    for (const ReferenceRun& run : ListRuns(object))
        for (std::uint32_t i = 0; i < run.count; ++i)
            if (IsUsable(object, RefOfRun(run, i))) refs.push_back(RefOfRun(run, i));
    return refs;
}

enum class Soup { Scattered, Flat, Coarse, Degenerate };

/// A part of triangles and tetragons, one of particles and one of strands. Coarse soups snap to a grid, so that boxes
/// share planes and faces lose their area; degenerate ones have slivers and points among them.
inline void FillSoup(Object& object, Soup soup, int count, Random& random)
{
    const auto point  = [&] { return PointIn(random, -1, 1); };
    const auto corner = [&](Vector center, float size) {
        Vector p = center + size * point();
        if (soup == Soup::Flat) p.z = std::round(2 * p.z) / 2;
        if (soup == Soup::Coarse) p = {std::round(8 * p.x) / 8, std::round(8 * p.y) / 8, std::round(8 * p.z) / 8};
        return p;
    };
    object.parts.resize(3);
    Part &faces = object.parts[0], &spheres = object.parts[1], &hair = object.parts[2];
    spheres.shaderID = hair.shaderID = 1;
    for (unsigned n = 0; n < static_cast<unsigned>(count); ++n) {
        const unsigned first  = 4 * n;
        const auto     shader = static_cast<std::uint32_t>(random() % 5);
        const Vector   center = point();
        const bool     sliver = soup == Soup::Degenerate && n % 3 == 0;
        const auto     place  = [&] { return sliver ? center : corner(center, 0.15f); };
        const Vector   p0 = place(), p1 = place(), p2 = place();
        // Two edges span a parallelogram: planar and convex.
        faces.positions.insert(faces.positions.end(), {p0, p1, p2, p0 + (p2 - p1)});
        if (n % 2 == 0) faces.triangles.push_back({first, first + 1, first + 2, shader});
        if (n % 2 != 0) faces.tetragons.push_back({first, first + 1, first + 2, first + 3, shader});
    }
    for (unsigned n = 0; n < static_cast<unsigned>(count) / 8; ++n) {
        spheres.positions.push_back(corner(point(), 0.1f));
        spheres.scalars[0].values.push_back(soup == Soup::Degenerate && n % 2 == 0 ? 0.0f : 0.05f);
        spheres.particles.push_back(n);
        const Vector root = point(), bend = 0.3f * point();
        hair.positions.insert(hair.positions.end(), {root, root + bend});
        hair.scalars[0].values.resize(2 * n + 2, 0.03f);
        hair.tangents.resize(2 * n + 2, PackDirection(bend));
        hair.cylinders.push_back(2 * n);
    }
}

}  // namespace hv
