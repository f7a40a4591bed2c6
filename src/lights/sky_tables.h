#pragma once

#include "base/vector.h"

/// The importance tables of the sky picture: six faces of a warped cube, each a grid of directions that are drawn in
/// proportion to their brightness. sky.cpp decides when they exist.
namespace hv {

inline constexpr int kSkyFaces = 6;
inline constexpr int kSkyCells = 256;  ///< rows of a face, and cells of a row

/// Colour of the loaded sky picture in a unit direction.
Color SkyTexel(Vector direction);

/// Builds the tables over the picture times the colour of the sky. Runs a parallel region.
void BuildSkyTables();

/// Gives the tables back.
void DropSkyTables();

/// Unit direction of a grid point: rows and columns 0 to 255, of which 0 lies on an edge of the face.
Vector CubeDirection(int face, int row, int column);

/// A grid point by its three numbers.
struct SkyCellIndex {
    int face, row, column;
};

/// The grid point nearest to a direction: that of CubeDirection gives its own numbers. Two of the twelve edges, between
/// +y and +x and between +y and +z, carry the grid points of both their faces; the face that is not +y stands for both.
/// Two others, between -y and +x and between -y and -z, carry none: there the last row or column of a face stands in.
SkyCellIndex NearestSkyCell(Vector direction);

}  // namespace hv
