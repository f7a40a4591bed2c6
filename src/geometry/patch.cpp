#include "geometry/patch.h"

#include "base/float8.h"

#include <cmath>

namespace hv {

namespace {

// Everything here is written once for one point and for eight in lanes; both give the same bits.

template <class Real>
Real Splat(float x);
template <>
float Splat<float>(float x)
{
    return x;
}
template <>
Float8 Splat<Float8>(float x)
{
    return Splat8(x);
}

Vector8 Normalized(Vector8 v)
{
    const Float8 square  = Dot(v, v);
    const Float8 length  = Select(Less(Splat8(1e-10f), square), Root(square), Splat8(1e-5f));
    const Float8 scale   = Splat8(1.0f) / length;
    const Float8 is_zero = Equal(square, Splat8(0.0f));
    return {Select(is_zero, v.x, v.x * scale), Select(is_zero, v.y, v.y * scale), Select(is_zero, v.z, v.z * scale)};
}

/// b / (b + c), 0 for b = 0 whatever c.
float  Share(float b, float c) { return b == 0.0f ? 0.0f : b / (b + c); }
Float8 Share(Float8 b, Float8 c) { return Select(Equal(b, Splat8(0.0f)), Splat8(0.0f), b / (b + c)); }

/// A curve at one parameter: how high it stands over the chord, and along what.
template <class Real, class V>
struct Curve {
    Real q, a, b;  ///< q = 1 - s; the chord along both normals
    Real height;
    V    direction;  ///< of the height, unit length
    V    point;
};

template <class Real, class V>
Curve<Real, V> CurveAt(Real s, V p0, V n0, V p1, V n1)
{
    const V    chord     = p0 - p1;
    const Real q         = Splat<Real>(1.0f) - s;
    const Real a         = Dot(chord, n0);
    const Real b         = Dot(chord, n1);
    const Real height    = (q * b - s * a) * (s * Splat<Real>(-1.0f)) * q;
    const V    direction = Normalized(s * n0 + q * n1);
    return {q, a, b, height, direction, s * p0 + q * p1 + height * direction};
}

/// A point of a curve with its normal.
template <class V>
struct PointNormal {
    V point, normal;
};

template <class Real, class V>
PointNormal<V> PointOnCurve(Real s, V p0, V n0, V p1, V n1)
{
    const auto           constant = [](float x) { return Splat<Real>(x); };
    const Curve<Real, V> c        = CurveAt(s, p0, n0, p1, n1);
    const Real           q        = c.q;
    const Real           slope =
        (constant(1) + (constant(3) * q - constant(4)) * q) * c.a + (constant(3) * q - constant(2)) * q * c.b;
    const V tangent = Normalized(slope * c.direction + c.height * (n1 - n0) + (p1 - p0));  // slope: d height / dq
    return {c.point, Cross(Cross(tangent, c.direction), tangent)};
}

template <class Real>
Real BlendWeight(Real b)
{
    return b * b * (Splat<Real>(3.0f) - Splat<Real>(2.0f) * b);
}

// Three interpolants, each along the curve from one corner to the side across; the foot on that side is itself on a
// curve between the two curves along the edges. That last one is asked for no normal.
template <class Real, class V>
V PatchPoint(Real b1, Real b2, Real b3, const V (&p)[3], const V (&n)[3])
{
    const auto interpolant = [&](Real s, Real share, int corner, int left, int right) {
        const PointNormal<V> from = PointOnCurve(s, p[corner], n[corner], p[left], n[left]);
        const PointNormal<V> to   = PointOnCurve(s, p[corner], n[corner], p[right], n[right]);
        return CurveAt(share, from.point, from.normal, to.point, to.normal).point;
    };
    const V    s1 = interpolant(b1, Share(b2, b3), 0, 1, 2);
    const V    s2 = interpolant(b2, Share(b3, b1), 1, 2, 0);
    const V    s3 = interpolant(b3, Share(b1, b2), 2, 0, 1);
    const Real w1 = BlendWeight(b1), w2 = BlendWeight(b2), w3 = BlendWeight(b3);
    return (w1 * s1 + w2 * s2 + w3 * s3) / (w1 + w2 + w3);
}

float Quantised(float weight) { return std::trunc(22403.0f * weight) / 22403.0f; }

Vector8 Splat(Vector v) { return {Splat8(v.x), Splat8(v.y), Splat8(v.z)}; }

}  // namespace

CurvePoint SideVertexCurve(float s, Vector p0, Vector n0, Vector p1, Vector n1)
{
    const PointNormal<Vector> result = PointOnCurve(s, p0, n0, p1, n1);
    return {result.point, result.normal};
}

Vector SideVertexPatch(float b1, float b2, float b3, const Vector (&p)[3], const Vector (&n)[3])
{
    return PatchPoint(b1, b2, b3, p, n);
}

EightPoints SideVertexPatch8(const EightWeights& weights, const Vector (&p)[3], const Vector (&n)[3])
{
    const Vector8 p8[3] = {Splat(p[0]), Splat(p[1]), Splat(p[2])}, n8[3] = {Splat(n[0]), Splat(n[1]), Splat(n[2])};
    const Vector8 points = PatchPoint(Load8(weights.b[0]), Load8(weights.b[1]), Load8(weights.b[2]), p8, n8);
    EightPoints   result;
    Store8(result.x, points.x);
    Store8(result.y, points.y);
    Store8(result.z, points.z);
    return result;
}

std::array<float, 3> GridWeights(std::uint32_t row, std::uint32_t column, std::uint32_t n)
{
    const float u = static_cast<float>(n - row) / static_cast<float>(n);
    const float r = row > 0 ? static_cast<float>(row - column) / static_cast<float>(row) : 0.0f;
    return {Quantised(u), Quantised((1.0f - u) * r), Quantised((1.0f - u) * (1.0f - r))};
}

void TessellateTriangle(const Vector (&p)[3], const Vector (&n)[3], int count, TriangleGrid& grid)
{
    grid.weights.clear();
    grid.points.clear();
    grid.triangles.clear();
    if (count < 1) return;
    const auto rows = static_cast<std::uint32_t>(count);
    grid.triangles.resize(std::size_t{rows} * rows);
    for (std::uint32_t row = 0; row <= rows; ++row) {
        for (std::uint32_t column = 0; column <= row; ++column) {
            const std::array<float, 3> b = GridWeights(row, column, rows);
            grid.weights.push_back(b);
            grid.points.push_back(SideVertexPatch(b[0], b[1], b[2], p, n));
            if (row == rows) continue;
            ForTrianglesBelow(row, column, rows, [&](std::uint32_t number, const GridCorners& corners) {
                grid.triangles[number] = corners;
            });
        }
    }
}

}  // namespace hv
