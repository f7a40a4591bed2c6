#pragma once

#include "base/vector.h"

#include <array>
#include <cstdint>
#include <vector>

/// The curved patch that displacement lays through the three vertices of a triangle: side-vertex interpolation (Nielson
/// 1979), cubic curves that keep the vertex normals.
namespace hv {

struct CurvePoint {
    Vector point;
    Vector normal;  ///< at right angles to the curve; shorter than one where the mixed vertex normals lean along it
};

/// Point of the curve that is at p0 for s = 1 and at p1 for s = 0, where it stands at right angles to n0 and n1 (unit
/// length). s is not limited to 0..1.
CurvePoint SideVertexCurve(float s, Vector p0, Vector n0, Vector p1, Vector n1);

/// Point of the patch over the weights b1, b2, b3 of its corners. They need not add up to one, but one must be above 0.
Vector SideVertexPatch(float b1, float b2, float b3, const Vector (&p)[3], const Vector (&n)[3]);

/// Eight points of the patch at once, each with the bits of the function above.
struct EightWeights {
    alignas(32) float b[3][8];  ///< of the three corners
};
struct EightPoints {
    alignas(32) float x[8], y[8], z[8];

    Vector operator[](int lane) const { return {x[lane], y[lane], z[lane]}; }
};
EightPoints SideVertexPatch8(const EightWeights& weights, const Vector (&p)[3], const Vector (&n)[3]);

// ---- The grid of a triangle: row i, from 0 to n, has i + 1 points, from corner 0 to the side across ----

using GridCorners = std::array<std::uint32_t, 3>;

/// Number of the first point of a row.
inline std::uint32_t RowStart(std::uint32_t row)
{
    return static_cast<std::uint32_t>(std::uint64_t{row} * (row + 1) / 2);
}

/// Weights of the three corners at point `column` of `row` in a grid of n rows, multiples of 1 / 22403. That rounding
/// gives an edge the same weights from both sides, so that neighbours do not crack, for every n below 521 that 43 does
/// not divide: else 22403 k / n may be whole, or so near it that k / n and 1 - k / n round apart.
std::array<float, 3> GridWeights(std::uint32_t row, std::uint32_t column, std::uint32_t n);

/// Calls use(number, corners) for the triangles below a point that is not in the last row: the upright one, and the
/// inverted one to its right. Numbers run through all upright triangles first; all turn like the source triangle.
template <class Use>
void ForTrianglesBelow(std::uint32_t row, std::uint32_t column, std::uint32_t n, const Use& use)
{
    const std::uint32_t point = RowStart(row) + column, below = RowStart(row + 1) + column;
    use(point, GridCorners{point, below, below + 1});
    if (column == row) return;
    use(RowStart(n) + RowStart(row) - row + column, GridCorners{point, below + 1, point + 1});
}

struct TriangleGrid {
    std::vector<std::array<float, 3>> weights;    ///< of the three corners
    std::vector<Vector>               points;     ///< (n + 1)(n + 2) / 2
    std::vector<GridCorners>          triangles;  ///< n * n
};

/// Fills `grid`, keeping its storage. n below 1 gives an empty grid.
void TessellateTriangle(const Vector (&p)[3], const Vector (&n)[3], int count, TriangleGrid& grid);

}  // namespace hv
