#include "accel/tube.h"

#include "accel/large_array.h"
#include "accel/walk_steps.h"
#include "geometry/object.h"

#include <cmath>

namespace hv {

namespace {

/// Number of curves below a node or lane, or this when there are others or too many.
constexpr std::uint32_t kNoTube = kMostTubeCurves + 1;

std::uint32_t CurvesBelow(const WideNode& node, int lane, const std::vector<std::uint32_t>& below)
{
    if (node.first[lane] == kNone) return 0;
    if (node.count[lane] == 0) return below[node.first[lane]];
    return node.blockLanes[lane] == kCurveLeaf ? std::min<std::uint32_t>(node.count[lane], kNoTube) : kNoTube;
}

/// Curves below each node, up to kNoTube. Nodes come before their children.
std::vector<std::uint32_t> CountCurves(const std::vector<WideNode>& nodes)
{
    std::vector<std::uint32_t> below(nodes.size());
    for (std::size_t n = nodes.size(); n-- > 0;) {
        std::uint32_t sum = 0;
        for (int lane = 0; lane < 8; ++lane) sum += CurvesBelow(nodes[n], lane, below);
        below[n] = std::min(sum, kNoTube);
    }
    return below;
}

/// Calls `visit` with each block of curves below a lane and the lanes in it that lie there.
template <class Visit>
void ForCurvesBelow(const Object& object, const WideNode& node, int lane, const Visit& visit)
{
    if (node.first[lane] == kNone) return;
    if (node.count[lane] != 0) {
        ForCurveLeaves(object.leafBlocks.data(), node, 1u << lane, visit);
        return;
    }
    const WideNode& child = object.wideNodes[node.first[lane]];
    for (int k = 0; k < 8; ++k) ForCurvesBelow(object, child, k, visit);
}

/// Lanes of a block as a mask that comparisons give.
Float8 LaneMask(unsigned lanes)
{
    alignas(32) float set[8];
    for (unsigned k = 0; k < 8; ++k) set[k] = (lanes >> k & 1) != 0 ? 1.0f : 0.0f;
    return Less(Splat8(0.0f), Load8(set));
}

float Sum(Float8 a)
{
    alignas(32) float lanes[8];
    Store8(lanes, a);
    float sum = 0;
    for (const float lane : lanes) sum += lane;
    return sum;
}

/// Mean direction of the chords below a lane, each turned to the side of the first.
Vector MeanAxis(const Object& object, const WideNode& node, int lane)
{
    const Float8 zero = Splat8(0.0f);
    Vector8      sum{zero, zero, zero};
    Vector       first;
    bool         has_first = false;
    ForCurvesBelow(object, node, lane, [&](const LeafBlock& block, unsigned own) {
        const Vector8 chord = PackedRows(block.values, kP1Row) - PackedRows(block.values, kP0Row);
        if (!has_first) {
            alignas(32) float x[8], y[8], z[8];
            Store8(x, chord.x);
            Store8(y, chord.y);
            Store8(z, chord.z);
            const int k = std::countr_zero(own);
            first       = {x[k], y[k], z[k]};
            has_first   = true;
        }
        const Float8 mask = LaneMask(own);
        const Float8 side = Select(Less(Dot(chord, SplatVector8(first)), zero), Splat8(-1.0f), Splat8(1.0f)) & mask;
        sum               = sum + side * chord;
    });
    return Normalized({Sum(sum.x), Sum(sum.y), Sum(sum.z)});
}

/// How far from the line all that can be hit below a lane lies.
float FarthestFrom(const Object& object, const WideNode& node, int lane, Vector middle, Vector axis)
{
    const Vector8 c = SplatVector8(middle), a = SplatVector8(axis);
    Float8        farthest = Splat8(0.0f);
    ForCurvesBelow(object, node, lane, [&](const LeafBlock& block, unsigned own) {
        const Vector8 from_first = Cross(PackedRows(block.values, kP0Row) - c, a);
        const Vector8 from_last  = Cross(PackedRows(block.values, kP1Row) - c, a);
        const Float8  away       = Root(Max(Dot(from_first, from_first), Dot(from_last, from_last)));
        farthest                 = Max((away + Load8(block.values + 8 * kReachRow)) & LaneMask(own), farthest);
    });
    alignas(32) float highest[8];
    Store8(highest, SplatHighest(farthest));
    return highest[0];
}

Vector FromHalves(const std::uint16_t (&axis)[3])
{
    alignas(16) std::uint16_t halves[8] = {axis[0], axis[1], axis[2]};
    alignas(32) float         lanes[8];
    Store8(lanes, LoadHalves8(halves));
    return {lanes[0], lanes[1], lanes[2]};
}

void MakeTube(const Object& object, const WideNode& node, int lane, LaneTubes& tubes)
{
    const Vector        mean    = MeanAxis(object, node, lane);
    const std::uint16_t axis[3] = {NearestHalf(mean.x), NearestHalf(mean.y), NearestHalf(mean.z)};
    // The axis as the walks read it. Their length of direction x axis falls short with the axis' own.
    const Vector read   = FromHalves(axis);
    const float  length = std::sqrt(Dot(read, read));
    if (!(length > 0.5f)) return;
    const Vector min{node.minX[lane], node.minY[lane], node.minZ[lane]};
    const Vector max{node.maxX[lane], node.maxY[lane], node.maxZ[lane]};
    const Vector middle = 0.5f * (min + max);
    const float  away   = std::fabs(middle.x) + std::fabs(middle.y) + std::fabs(middle.z);
    const float  radius = 1.001f * FarthestFrom(object, node, lane, middle, read / length) + 2e-6f * away;
    if (!(radius < kInfinity)) return;
    for (int k = 0; k < 3; ++k) tubes.axis[k][lane] = axis[k];
    tubes.diameter[lane] = HalfAbove(2.0f * radius);
}

/// Gives a bundle to inner lanes with few curves below whose node has more of them. Returns the number of blocks.
std::uint32_t PlaceBundles(Object& object, const std::vector<std::uint32_t>& below)
{
    std::uint32_t blocks = 0;
    for (std::size_t n = 0; n < below.size(); ++n) {
        if (n > 0 && below[n] <= kMostBundleCurves) continue;
        WideNode& node = object.wideNodes[n];
        for (int lane = 0; lane < 8; ++lane) {
            if (node.first[lane] == kNone || node.count[lane] != 0) continue;
            const std::uint32_t curves = below[node.first[lane]];
            if (curves > kMostBundleCurves) continue;
            node.blockLanes[lane]            = kCurveBundle;
            object.wideTubes[n].bundle[lane] = blocks;
            object.wideTubes[n].curves[lane] = curves;
            blocks += (curves + kBlockLength - 1) / kBlockLength;
        }
    }
    return blocks;
}

/// Copies what bounds the curves below a lane, in the order of the walk.
void FillBundle(Object& object, const WideNode& node, int lane, CurveBundle* bundle)
{
    unsigned used = 0;
    ForCurvesBelow(object, node, lane, [&](const LeafBlock& block, unsigned own) {
        for (; own != 0; own &= own - 1) {
            const auto   from = static_cast<unsigned>(std::countr_zero(own));
            CurveBundle& to   = bundle[used / kBlockLength];
            for (unsigned row = 0; row <= kReachRow; ++row)
                to.values[8 * row + used % kBlockLength] = block.values[8 * row + from];
            const auto b                  = static_cast<std::uint32_t>(&block - object.leafBlocks.data());
            to.place[used % kBlockLength] = kBlockLength * b + from;
            ++used;
        }
    });
    for (; used % kBlockLength != 0; ++used)
        for (unsigned row = 0; row <= kReachRow; ++row)
            bundle[used / kBlockLength].values[8 * row + used % kBlockLength] = 0.0f;
}

void FillLanes(Object& object, std::size_t index, const std::vector<std::uint32_t>& below)
{
    const WideNode& node  = object.wideNodes[index];
    LaneTubes&      tubes = object.wideTubes[index];
    for (int lane = 0; lane < 8; ++lane) {
        for (auto& axis : tubes.axis) axis[lane] = 0;
        tubes.diameter[lane]       = HalfAbove(kInfinity);
        const std::uint32_t curves = CurvesBelow(node, lane, below);
        if (curves > 0 && curves < kNoTube) MakeTube(object, node, lane, tubes);
        if (node.blockLanes[lane] == kCurveBundle)
            FillBundle(object, node, lane, &object.curveBundles[tubes.bundle[lane]]);
    }
}

}  // namespace

void MakeTubes(Object& object)
{
    const std::vector<std::uint32_t> below = CountCurves(object.wideNodes);
    const auto                       count = static_cast<std::int64_t>(object.wideNodes.size());
    RenewLarge(object.wideTubes, object.wideNodes.size());
    RenewLarge(object.curveBundles, PlaceBundles(object, below));
#pragma omp parallel for schedule(dynamic, 1024) num_threads(TeamSize()) if (count >= 4096)
    for (std::int64_t i = 0; i < count; ++i) FillLanes(object, static_cast<std::size_t>(i), below);
}

}  // namespace hv
