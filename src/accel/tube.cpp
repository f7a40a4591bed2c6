#include "accel/curve_tree.h"
#include "base/constants.h"

#include <algorithm>
#include <cmath>

namespace hv {

namespace {

/// Mean direction of the chords, each turned to the side of the first.
Vector MeanAxis(const PlacedCurve* curves, std::uint32_t count)
{
    const Vector first = curves->curve.p1 - curves->curve.p0;
    Vector       sum;
    for (std::uint32_t c = 0; c < count; ++c) {
        const Vector chord = curves[c].curve.p1 - curves[c].curve.p0;
        sum += Dot(chord, first) < 0.0f ? -chord : chord;
    }
    return Normalized(sum);
}

/// How far from the line all that can be hit lies.
float FarthestFrom(const PlacedCurve* curves, const float* reaches, std::uint32_t count, Vector middle, Vector axis)
{
    const auto square_from = [middle, axis](Vector p) {
        const Vector across = Cross(p - middle, axis);
        return Dot(across, across);
    };
    float farthest = 0;
    for (std::uint32_t c = 0; c < count; ++c) {
        const Curve& curve = curves[c].curve;
        farthest = std::max(farthest, std::sqrt(std::max(square_from(curve.p0), square_from(curve.p1))) + reaches[c]);
    }
    return farthest;
}

Vector FromHalves(const std::uint16_t (&axis)[3])
{
    alignas(16) std::uint16_t halves[8] = {axis[0], axis[1], axis[2]};
    alignas(32) float         lanes[8];
    Store8(lanes, LoadHalves8(halves));
    return {lanes[0], lanes[1], lanes[2]};
}

}  // namespace

float MakeTube(const PlacedCurve* curves, const float* reaches, std::uint32_t count, int k, CurveNode& node)
{
    const Vector        mean    = MeanAxis(curves, count);
    const std::uint16_t axis[3] = {NearestHalf(mean.x), NearestHalf(mean.y), NearestHalf(mean.z)};
    // The axis as the walks read it. Their length of direction x axis falls short with the axis' own.
    const Vector read   = FromHalves(axis);
    const float  length = std::sqrt(Dot(read, read));
    if (!(length > 0.5f)) return kInfinity;
    const Vector min{node.minX[k], node.minY[k], node.minZ[k]};
    const Vector max{node.maxX[k], node.maxY[k], node.maxZ[k]};
    const Vector middle = 0.5f * (min + max);
    const float  away   = std::fabs(middle.x) + std::fabs(middle.y) + std::fabs(middle.z);
    const float  radius = 1.001f * FarthestFrom(curves, reaches, count, middle, read / length) + 2e-6f * away;
    if (!(radius < kInfinity)) return kInfinity;
    for (int n = 0; n < 3; ++n) node.axis[n][k] = axis[n];
    node.diameter[k]    = HalfAbove(2.0f * radius);
    const Vector size   = max - min;
    const float  extent = std::fabs(read.x * size.x) + std::fabs(read.y * size.y) + std::fabs(read.z * size.z);
    return kPi * radius * (extent + radius);
}

}  // namespace hv
