#pragma once

#include "geometry/object.h"

namespace hv {

/// The vertices of a hit primitive and their weights at the hit; these add up to 1.
struct Corners {
    int           count = 0;
    std::uint32_t vertex[4];
    float         weight[4];
};

/// `hit`: the parameters by kind, as RayRecord holds them in hit_u, hit_v, hit_w. A primitive that does not exist has
/// no corners.
inline Corners CornersOf(const Part& part, PrimitiveKind kind, std::uint32_t index, Vector hit)
{
    const float u = hit.x, v = hit.y, w = hit.z;
    if (kind == PrimitiveKind::Particle && index < part.particles.size()) return {1, {part.particles[index]}, {1.0f}};
    if (kind == PrimitiveKind::Cylinder && index < part.cylinders.size())
        return {2, {part.cylinders[index], part.cylinders[index] + 1}, {1.0f - w, w}};
    if (kind == PrimitiveKind::Triangle && index < part.triangles.size()) {
        const Triangle& face = part.triangles[index];
        return {3, {face.i0, face.i1, face.i2}, {u, v, w}};
    }
    if (kind == PrimitiveKind::Tetragon && index < part.tetragons.size()) {
        const Tetragon& face = part.tetragons[index];
        return {4, {face.i0, face.i1, face.i2, face.i3}, {(1 - u) * (1 - v), (1 - u) * v, u * v, u * (1 - v)}};
    }
    return {};
}

/// Arrays may be shorter than the positions: whether all corners have a value.
template <class T>
bool Covers(const std::vector<T>& values, const Corners& corners)
{
    for (int n = 0; n < corners.count; ++n)
        if (corners.vertex[n] >= values.size()) return false;
    return true;
}

/// Texture coordinates at the corners' weights, (0, 0) where a corner has none.
inline void MixUv(const Part& part, const Corners& corners, float uv[2])
{
    uv[0] = uv[1] = 0.0f;
    if (part.uvs.empty() || !Covers(part.uvs[0].values, corners)) return;
    for (int n = 0; n < corners.count; ++n) {
        const Vector2 value = part.uvs[0].values[corners.vertex[n]];
        uv[0] += corners.weight[n] * value.u;
        uv[1] += corners.weight[n] * value.v;
    }
}

/// Direction in which u grows on a face; false when its corners lack a tangent or uv, or all lie at one uv.
inline bool UvGradient(const Part& part, const Corners& corners, Vector& tangent)
{
    if (part.uvs.empty() || !Covers(part.uvs[0].values, corners) || !Covers(part.tangents, corners)) return false;
    Vector  p[3];
    Vector2 uv[3];
    for (int n = 0; n < 3; ++n) {
        p[n]  = part.positions[corners.vertex[n]];
        uv[n] = part.uvs[0].values[corners.vertex[n]];
    }
    const float du1 = uv[1].u - uv[0].u, du2 = uv[2].u - uv[0].u;
    const float dv1 = uv[1].v - uv[0].v, dv2 = uv[2].v - uv[0].v;
    const auto  tiny = [](float x) { return std::fabs(x) < 1e-8f; };
    if (tiny(du1) && tiny(du2) && tiny(dv1) && tiny(dv2)) return false;
    tangent = Normalized((p[1] - p[0]) * dv2 - (p[2] - p[0]) * dv1);
    return true;
}

/// Radius of a particle or strand at a vertex, 0 when the part has none.
inline float RadiusAt(const Part& part, std::uint32_t vertex)
{
    if (part.scalars.empty() || vertex >= part.scalars[0].values.size()) return 0.0f;
    return part.scalars[0].values[vertex];
}

/// Tangent of a strand at a vertex: unit length, or zero when the part has none.
inline Vector TangentAt(const Part& part, std::uint32_t vertex)
{
    return vertex < part.tangents.size() ? UnpackDirection(part.tangents[vertex]) : Vector{};
}

}  // namespace hv
