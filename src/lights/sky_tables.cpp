#include "lights/sky_tables.h"

#include "base/float8.h"
#include "base/per_thread.h"
#include "lights/lights.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <memory>

namespace hv {

namespace {

constexpr int kCenter = kSkyCells / 2;  ///< the grid runs from 128 in row or column 0 to -127 in the last
constexpr int kBlock  = 16;             ///< sums of one cache line

/// Inclusive sums of 256 probabilities, searched by two steps of a cache line each: `ends` holds the last sum of each
/// block of 16. A shadow ray draws at random, so what counts is the lines touched.
struct alignas(64) Distribution {
    float ends[kBlock];
    float sums[kSkyCells];
};

/// What a draw returns, side by side. A cell that is never drawn has the density 0.
struct alignas(16) SkyCell {
    Color texel;           ///< of the picture; the colour of the sky, which may change, multiplies it
    float density = 0.0f;  ///< per steradian
};

struct SkyFace {
    Distribution row_choice;       ///< over the totals of the rows
    Distribution rows[kSkyCells];  ///< over the cells of a row
    SkyCell      cells[kSkyCells][kSkyCells];
};

struct SkyTables {
    SkyFace faces[kSkyFaces];
    float   warped[2 * kCenter + 1];  ///< Warp of -128 to 128
};

/// Null until a picture of the sky is prepared, and again at the end of a render.
std::unique_ptr<SkyTables> Tables;

/// How the axes of space lie on a face: its own axis, along which rows are counted and along which columns, the last
/// always in the direction of the axis.
struct FaceAxes {
    int   own, row, column;
    float own_sign, row_sign;
};
constexpr FaceAxes kFaceAxes[kSkyFaces] = {{0, 2, 1, 1.0f, 1.0f},  {2, 0, 1, 1.0f, -1.0f}, {0, 2, 1, -1.0f, -1.0f},
                                           {2, 0, 1, -1.0f, 1.0f}, {1, 0, 2, 1.0f, 1.0f},  {1, 0, 2, -1.0f, -1.0f}};
constexpr int      kFaceOfAxis[3][2]    = {{0, 2}, {4, 5}, {1, 3}};  ///< of the positive and of the negative axis

/// Where a grid line (-128 to 128) lies on a cube of half side 1. Equal steps of an angle instead of equal steps on the
/// cube make the cells near-equal in solid angle: 0.907 of the mean in the middle of an edge, 1.209 at a corner.
float Warp(float line)
{
    const float s = std::sin(line / kCenter * kHalfPi / 3.0f);
    return s / SafeRoot(0.5f - s * s);
}

/// Arc sine for |s| up to 0.5, where all lines lie (Moshier's Cephes library, asinf): without the cases of the general
/// one.
float SmallArcSine(float s)
{
    const float z = s * s;
    const float p = (((4.2163199e-2f * z + 2.4181311e-2f) * z + 4.5470026e-2f) * z + 7.4953003e-2f) * z + 1.6666752e-1f;
    return p * z * s + s;
}

/// The row or column (0 to 256, the last of which is no grid line) nearest to a place on the cube, the inverse of Warp.
/// The place is the quotient of two coordinates, `along` and that of the axis of the face.
int NearestLine(float along, float own)
{
    const float s    = along * std::sqrt(0.5f / (own * own + along * along));
    const float line = kCenter * 6.0f * kInvPi * SmallArcSine(s);
    return ClampToInt(kCenter - line + 0.5f, 0, kSkyCells);
}

/// Without branches: the directions that are asked for have no order that a processor could foresee.
int FaceOf(Vector d)
{
    const float x = std::fabs(d.x), y = std::fabs(d.y), z = std::fabs(d.z);
    const int   is_x = int(x >= y) & int(x >= z);
    const int   axis = (1 - is_x) * (1 + int(z >= y));
    return kFaceOfAxis[axis][d[axis] < 0.0f];
}

Vector DirectionOf(const FaceAxes& axes, float own, float row, float column)
{
    Vector d;
    d[axes.own]    = axes.own_sign * own;
    d[axes.row]    = axes.row_sign * row;
    d[axes.column] = column;
    return Normalized(d);
}

/// Turns 256 weights into probabilities and their sums. Returns the total; with none, nothing is ever drawn.
double BuildDistribution(Distribution& distribution, float* weights)
{
    double total = 0.0;
    for (int i = 0; i < kSkyCells; ++i) total += weights[i];
    double sum = 0.0;
    for (int i = 0; i < kSkyCells; ++i) {
        sum += weights[i];
        distribution.sums[i] = total > 0.0 ? static_cast<float>(sum / total) : 1.0f;
        weights[i]           = total > 0.0 ? static_cast<float>(weights[i] / total) : 0.0f;
    }
    for (int i = 0; i < kBlock; ++i) distribution.ends[i] = distribution.sums[kBlock * i + kBlock - 1];
    return total;
}

/// How many of 16 sums are at most u.
int CountUpTo(const float* sums, Float8 u)
{
    const unsigned low = Bits(LessEqual(Load8(sums), u)), high = Bits(LessEqual(Load8(sums + 8), u));
    return std::popcount(low | high << 8);
}

/// The first entry whose sum is above u, at most 255.
int Pick(const Distribution& distribution, float u)
{
    const Float8 lanes = Splat8(u);
    const int    block = std::min(CountUpTo(distribution.ends, lanes), kBlock - 1);
    const int    entry = kBlock * block + CountUpTo(distribution.sums + kBlock * block, lanes);
    return std::min(entry, kSkyCells - 1);
}

/// Brightness that decides how often a cell is drawn. Black cells keep a trace of it. What is not a number of light, as
/// a damaged picture may hold, is never drawn; the limit keeps totals finite.
float CellWeight(Color radiance)
{
    const float weight = MaxChannel({radiance.r + 1e-8f, radiance.g + 1e-8f, radiance.b + 1e-8f});
    const bool  finite = std::isfinite(radiance.r) && std::isfinite(radiance.g) && std::isfinite(radiance.b);
    return finite && weight > 0.0f ? std::min(weight, 1e30f) : 0.0f;
}

/// Fills the cells of a row, with their probability in the row for a density. Returns the weight of the row.
float FillRow(SkyFace& face, int face_index, int row)
{
    float weights[kSkyCells];
    for (int column = 0; column < kSkyCells; ++column) {
        const Color texel             = SkyTexel(CubeDirection(face_index, row, column));
        face.cells[row][column].texel = texel;
        weights[column]               = CellWeight(texel * SkyLight.color);
    }
    const double total = BuildDistribution(face.rows[row], weights);
    for (int column = 0; column < kSkyCells; ++column) face.cells[row][column].density = weights[column];
    return static_cast<float>(total);
}

/// Turns the probabilities of cells in their rows into densities. A face is drawn one time in six and each of its cells
/// counts as an equal part of the sphere, so the probability of the face cancels.
void FinishFace(SkyFace& face, float* row_weights)
{
    BuildDistribution(face.row_choice, row_weights);
    for (int row = 0; row < kSkyCells; ++row)
        for (SkyCell& cell : face.cells[row]) cell.density *= kSkyCells * kSkyCells * kInv4Pi * row_weights[row];
}

}  // namespace

void BuildSkyTables()
{
    constexpr int kRows = kSkyFaces * kSkyCells;
    float         row_weights[kRows];
    Tables = std::make_unique<SkyTables>();
    for (int line = -kCenter; line <= kCenter; ++line) Tables->warped[line + kCenter] = Warp(static_cast<float>(line));
#pragma omp parallel for schedule(static) num_threads(TeamSize())
    for (int i = 0; i < kRows; ++i)
        row_weights[i] = FillRow(Tables->faces[i / kSkyCells], i / kSkyCells, i % kSkyCells);
    for (int face = 0; face < kSkyFaces; ++face) FinishFace(Tables->faces[face], row_weights + face * kSkyCells);
}

void DropSkyTables() { Tables.reset(); }

bool HasSkyTables() { return Tables != nullptr; }

Vector CubeDirection(int face, int row, int column)
{
    return DirectionOf(kFaceAxes[face], Warp(kCenter), Warp(static_cast<float>(kCenter - row)),
                       Warp(static_cast<float>(kCenter - column)));
}

SkyCellIndex NearestSkyCell(Vector direction)
{
    SkyCellIndex cell{FaceOf(direction), 0, 0};
    // A place nearest to the edge behind the last line of its face lies nearest to the first line of the face across,
    // mostly: the third attempt is for what no face has.
    for (int attempt = 0; attempt < 3; ++attempt) {
        const FaceAxes& axes = kFaceAxes[cell.face];
        const float     own  = direction[axes.own];
        cell.row             = NearestLine(direction[axes.row] * axes.row_sign, own);
        cell.column          = NearestLine(direction[axes.column], own);
        if (cell.row < kSkyCells && cell.column < kSkyCells) return cell;
        if (attempt == 2) break;
        const int across = cell.row == kSkyCells ? axes.row : axes.column;
        cell.face        = kFaceOfAxis[across][direction[across] < 0.0f];
    }
    return {cell.face, std::min(cell.row, kSkyCells - 1), std::min(cell.column, kSkyCells - 1)};
}

SkySample SampleSky(float face_row, float column)
{
    const float    number     = face_row * kSkyFaces;
    const int      face_index = ClampToInt(number, 0, kSkyFaces - 1);
    const SkyFace& face       = Tables->faces[face_index];
    const int      row        = Pick(face.row_choice, number - static_cast<float>(face_index));
    const int      cell_index = Pick(face.rows[row], column);
    const SkyCell& cell       = face.cells[row][cell_index];
    const float*   warped     = Tables->warped;
    // Line 128 - i stands at position 256 - i.
    const Vector direction =
        DirectionOf(kFaceAxes[face_index], warped[kSkyCells], warped[kSkyCells - row], warped[kSkyCells - cell_index]);
    return {direction, cell.density, cell.texel * SkyLight.color};
}

float SkyDensity(Vector direction)
{
    if (!Tables) return 0.0f;
    const SkyCellIndex cell = NearestSkyCell(direction);
    return Tables->faces[cell.face].cells[cell.row][cell.column].density;
}

}  // namespace hv
