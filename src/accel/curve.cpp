#include "accel/curve.h"

#include <bit>
#include <cmath>
#include <limits>

namespace hv {

namespace {

inline constexpr int kPieces = 8;  ///< straight pieces of a cylinder's curve, one a lane

/// Weights of the cubic Hermite curve C(s) = P0 + step (P0 - P1) + leave T0 + arrive T1 at eight values of s.
struct alignas(32) HermiteTable {
    float s[kPieces], step[kPieces], leave[kPieces], arrive[kPieces];
};

constexpr HermiteTable MakeHermiteTable(int first)
{
    HermiteTable table{};
    for (int k = 0; k < kPieces; ++k) {
        const float s   = static_cast<float>(k + first) / kPieces;
        table.s[k]      = s;
        table.step[k]   = 2.0f * s * s * s - 3.0f * s * s;
        table.leave[k]  = s * (1.0f - s) * (1.0f - s);
        table.arrive[k] = s * s * (s - 1.0f);
    }
    return table;
}

constexpr HermiteTable kStarts = MakeHermiteTable(0);
constexpr HermiteTable kEnds   = MakeHermiteTable(1);

/// Shares of the two radii in each piece. Meant: steps of 1/7, though the curve steps by 1/8.
struct alignas(32) RadiusTable {
    float first[kPieces], second[kPieces];
};

constexpr RadiusTable MakeRadiusTable()
{
    RadiusTable table{};
    for (int k = 0; k < kPieces; ++k) {
        table.first[k]  = static_cast<float>(kPieces - 1 - k) / (kPieces - 1);
        table.second[k] = static_cast<float>(k) / (kPieces - 1);
    }
    return table;
}

constexpr RadiusTable kRadiusShares = MakeRadiusTable();

Vector8 Splat(Vector v) { return {Splat8(v.x), Splat8(v.y), Splat8(v.z)}; }

Vector8 CurveAt(const Curve& curve, const HermiteTable& table)
{
    return Splat(curve.p0) + Load8(table.step) * Splat(curve.p0 - curve.p1) + Load8(table.leave) * Splat(curve.t0) +
           Load8(table.arrive) * Splat(curve.t1);
}

/// CurveAt(curve, kEnds), whose pieces end where the next ones start.
Vector8 Ends(Vector8 start, const Curve& curve)
{
    const Vector last = curve.p0 - (curve.p0 - curve.p1);
    return {Following(start.x, last.x), Following(start.y, last.y), Following(start.z, last.z)};
}

/// The tangent at the table's ends, mixed linearly, whose planes cut the pieces off each other.
Vector8 CutAt(const Curve& curve, const HermiteTable& table)
{
    return Splat(curve.t0) + Load8(table.s) * Splat(curve.t1 - curve.t0);
}

Float8 HalfWidths(const Curve& curve)
{
    return Load8(kRadiusShares.first) * Splat8(curve.radius0) + Load8(kRadiusShares.second) * Splat8(curve.radius1);
}

Vector8 FastNormalized(Vector8 v) { return FastReciprocalRoot(Dot(v, v)) * v; }

int NearestLane(const float* t, unsigned lanes)
{
    int best = std::countr_zero(lanes);
    for (lanes &= lanes - 1; lanes != 0; lanes &= lanes - 1) {
        const int lane = std::countr_zero(lanes);
        if (t[lane] < t[best]) best = lane;
    }
    return best;
}

}  // namespace

Curve CurveOf(const Part& part, std::uint32_t vertex)
{
    return {part.positions[vertex],      part.positions[vertex + 1], TangentAt(part, vertex),
            TangentAt(part, vertex + 1), RadiusAt(part, vertex),     RadiusAt(part, vertex + 1)};
}

bool MeetCurve(const Curve& curve, const Vector8& origin, const Vector8& direction, float distance, CurveHit& hit)
{
    const Vector8 start      = CurveAt(curve, kStarts);
    const Vector8 end        = Ends(start, curve);
    const Vector8 edge       = end - start;
    const Vector8 to_start   = start - origin;
    const Float8  half_width = HalfWidths(curve);

    const Vector8 sideways = FastNormalized(Cross(direction, edge));
    const Float8  across   = Dot(sideways, to_start);
    Float8        passes   = Less(Absolute(across), half_width);
    if (Bits(passes) == 0) return false;

    const Vector8 facing      = FastNormalized(Cross(edge, sideways));
    const Float8  denominator = Dot(facing, direction);
    const Float8  t           = Dot(facing, to_start) / denominator;
    const Float8  epsilon     = Splat8(kRayEpsilon);
    passes                    = passes & Less(epsilon, t) & Less(t + epsilon, Splat8(distance));
    if (Bits(passes) == 0) return false;

    const Vector8  position = origin + t * direction;
    const Float8   zero     = Splat8(0.0f);
    const unsigned lanes    = Bits(passes & LessEqual(zero, Dot(CutAt(curve, kStarts), position - start)) &
                                   Less(Dot(CutAt(curve, kEnds), position - end), zero));
    if (lanes == 0) return false;

    alignas(32) float ts[8], denominators[8], offsets[8], widths[8];
    Store8(ts, t);
    Store8(denominators, denominator);
    Store8(offsets, across);
    Store8(widths, half_width);
    const int lane  = NearestLane(ts, lanes);
    hit.denominator = denominators[lane];
    hit.t           = ts[lane];
    hit.across      = offsets[lane] / widths[lane];
    hit.along       = (static_cast<float>(lane) + 0.5f) * 0.125f;
    return true;
}

namespace {

/// 1 / sqrt(a), improved by a step of Newton's to an error of a few units in the last place.
Float8 FineReciprocalRoot(Float8 a)
{
    const Float8 root = FastReciprocalRoot(a);
    return root * (Splat8(1.5f) - Splat8(0.5f) * a * root * root);
}

/// Never 0, for the sake of what divides by it.
Float8 Length(Vector8 v)
{
    const Float8 square = Max(Dot(v, v), Splat8(1e-30f));
    return square * FineReciprocalRoot(square);
}

}  // namespace

// A piece takes hits within its half width of its line, between the two planes that cut it off. A plane that leans by
// an angle leaves half width times tangent of that angle more of the line.
float CurveReach(const Curve& curve)
{
    constexpr float infinite = std::numeric_limits<float>::infinity();
    const Vector    chord    = curve.p1 - curve.p0;
    const float     extent   = std::sqrt(Dot(chord, chord));
    if (!(extent > 0.0f)) return infinite;

    const Vector8 start = CurveAt(curve, kStarts), edge = CurveAt(curve, kEnds) - start;
    const Vector8 first_cut = CutAt(curve, kStarts), last_cut = CutAt(curve, kEnds);
    const Float8  width = HalfWidths(curve), length = Length(edge), zero = Splat8(0.0f);
    const Vector8 line        = edge / length;
    const Float8  can_be_hit  = Less(zero, width) & Less(zero, Dot(edge, edge)) & Less(zero, Dot(last_cut, last_cut));
    const Float8  first_faces = Dot(first_cut, line), last_faces = Dot(last_cut, line);
    if (Bits(can_be_hit & (LessEqual(first_faces, zero) | LessEqual(last_faces, zero))) != 0) return infinite;

    const auto lean     = [&](Vector8 cut, Float8 faces) { return width * Length(cut - faces * line) / faces; };
    const auto reach_at = [&](Float8 place) {
        const Vector8 point = start + place * line - Splat(curve.p0), axis = Splat(chord / extent);
        const Float8  along  = Dot(point, axis);
        const Float8  beyond = Max(Max(zero - along, along - Splat8(extent)), zero);
        const Vector8 aside  = point - along * axis;
        return width + Length({Length(aside), beyond, zero});
    };
    const Float8 reach =
        Max(reach_at(zero - lean(first_cut, first_faces)), reach_at(length + lean(last_cut, last_faces)));
    alignas(32) float highest[8];
    Store8(highest, SplatHighest(reach & can_be_hit));
    const float away = std::fabs(curve.p0.x) + std::fabs(curve.p0.y) + std::fabs(curve.p0.z) + extent;
    return 1.001f * highest[0] + 2e-6f * away;
}

}  // namespace hv
