#include "accel/split.h"

#include "base/float8.h"
#include "base/per_thread.h"

#include <vector>

namespace hv {

namespace {

constexpr int kBins = 8;

/// Bits of the lanes of an entry that hold its box.
constexpr unsigned kBoxLanes = 0x77;

Float8 EmptyBox() { return Splat8(kFarAway); }

/// Box of the centroids of a range. The fourth lane is 0.
struct alignas(16) CentroidRange {
    float min[4] = {kFarAway, kFarAway, kFarAway, 0};
    float max[4] = {-kFarAway, -kFarAway, -kFarAway, 0};
};

bool IsPoint(const CentroidRange& range)
{
    return range.min[0] == range.max[0] && range.min[1] == range.max[1] && range.min[2] == range.max[2];
}

/// What the references of a range add up to in the bins of each axis.
struct Bins {
    BuildEntry    boxes[3][kBins];
    std::uint32_t counts[3][kBins];
};

void Clear(Bins& bins)
{
    for (int axis = 0; axis < 3; ++axis) {
        for (int k = 0; k < kBins; ++k) {
            Store8(bins.boxes[axis][k].lanes, EmptyBox());
            bins.counts[axis][k] = 0;
        }
    }
}

/// Middle of an entry's box. The reference is masked out first, as its bits may read as a slow denormal number.
Float4 Centroid(const BuildEntry& entry)
{
    alignas(16) static constexpr auto kMask =
        std::bit_cast<std::array<float, 4>>(std::array<std::uint32_t, 4>{~0u, ~0u, ~0u, 0});
    const Float4 mask = Load4(kMask.data());
    return Splat4(0.5f) * ((Load4(entry.lanes) & mask) - (Load4(entry.lanes + 4) & mask));
}

CentroidRange MeasureRange(const BuildEntry* entries, std::uint32_t count)
{
    CentroidRange range;
    Float4        min = Load4(range.min), max = Load4(range.max);
    for (std::uint32_t i = 0; i < count; ++i) {
        const Float4 centroid = Centroid(entries[i]);
        min                   = Min(centroid, min);
        max                   = Max(centroid, max);
    }
    Store4(range.min, min);
    Store4(range.max, max);
    return range;
}

void FillBins(const BuildEntry* entries, std::uint32_t count, const CentroidRange& range, Bins& bins)
{
    Clear(bins);
    const Float4 min    = Load4(range.min);
    const Float4 extent = Load4(range.max) - min;
    for (std::uint32_t i = 0; i < count; ++i) {
        // On an axis without extent the quotient is none and Max gives its second operand, bin 0.
        const Float4      quotient = Splat4(kBins) * (Centroid(entries[i]) - min) / extent;
        alignas(16) float bin[4];
        Store4(bin, Min(Max(quotient, Splat4(0.0f)), Splat4(kBins - 1)));
        const Float8 box = Load8(entries[i].lanes);
        for (int axis = 0; axis < 3; ++axis) {
            const int k     = static_cast<int>(bin[axis]);
            float*    lanes = bins.boxes[axis][k].lanes;
            Store8(lanes, Min(box, Load8(lanes)));
            ++bins.counts[axis][k];
        }
    }
}

void Merge(Bins& bins, const Bins& other)
{
    for (int axis = 0; axis < 3; ++axis) {
        for (int k = 0; k < kBins; ++k) {
            float* lanes = bins.boxes[axis][k].lanes;
            Store8(lanes, Min(Load8(other.boxes[axis][k].lanes), Load8(lanes)));
            bins.counts[axis][k] += other.counts[axis][k];
        }
    }
}

float HalfArea(const BuildEntry& box)
{
    const float dx = std::max(-box.lanes[4] - box.lanes[0], 0.0f);
    const float dy = std::max(-box.lanes[5] - box.lanes[1], 0.0f);
    const float dz = std::max(-box.lanes[6] - box.lanes[2], 0.0f);
    return (dy + dz) * dx + dy * dz;
}

/// Tries the planes of one axis from left to right. A plane behind an empty bin costs what its left neighbour costs and
/// so cannot be strictly cheaper: it is passed over.
void TryAxis(const BuildEntry (&boxes)[kBins], const std::uint32_t (&counts)[kBins], float& best_cost, SplitPlan& plan)
{
    BuildEntry    right_boxes[kBins];
    std::uint32_t right_counts[kBins];
    Float8        right       = EmptyBox();
    std::uint32_t right_count = 0;
    for (int k = kBins - 1; k > 0; --k) {
        right = Min(right, Load8(boxes[k].lanes));
        right_count += counts[k];
        Store8(right_boxes[k].lanes, right);
        right_counts[k] = right_count;
    }
    Float8        left       = EmptyBox();
    std::uint32_t left_count = 0;
    for (int plane = 0; plane < kBins - 1; ++plane) {
        if (counts[plane] == 0) continue;
        left = Min(Load8(boxes[plane].lanes), left);
        left_count += counts[plane];
        BuildEntry left_box;
        Store8(left_box.lanes, left);
        const BuildEntry& right_box = right_boxes[plane + 1];
        const float       left_area = HalfArea(left_box), right_area = HalfArea(right_box);
        const float       cost =
            left_area * static_cast<float>(left_count) + right_area * static_cast<float>(right_counts[plane + 1]);
        if (!(cost < best_cost)) continue;
        best_cost        = cost;
        plan.left        = left_box;
        plan.right       = right_box;
        plan.shared_left = right_area > left_area;
        plan.is_found    = true;
    }
}

SplitPlan ChoosePlane(const Bins& bins, const CentroidRange& range)
{
    SplitPlan plan;
    plan.is_made    = true;
    float best_cost = kFarAway;
    for (int axis = 0; axis < 3; ++axis)
        if (range.max[axis] != range.min[axis]) TryAxis(bins.boxes[axis], bins.counts[axis], best_cost, plan);
    return plan;
}

SplitPlan NoSplit()
{
    SplitPlan plan;
    plan.is_made = true;
    return plan;
}

/// The part of a range that one of `thread_count` threads takes.
struct Share {
    const BuildEntry* first;
    std::uint32_t     count;
};

Share ShareOf(const BuildEntry* entries, std::uint32_t count, int thread, int thread_count)
{
    const std::uint64_t begin =
        std::uint64_t{count} * static_cast<unsigned>(thread) / static_cast<unsigned>(thread_count);
    const std::uint64_t end =
        std::uint64_t{count} * static_cast<unsigned>(thread + 1) / static_cast<unsigned>(thread_count);
    return {entries + begin, static_cast<std::uint32_t>(end - begin)};
}

CentroidRange MeasureRangeByTeam(const BuildEntry* entries, std::uint32_t count, int thread_count)
{
    std::vector<CentroidRange> ranges(static_cast<std::size_t>(thread_count));
#pragma omp parallel for schedule(static) num_threads(thread_count)
    for (int t = 0; t < thread_count; ++t) {
        const Share share                   = ShareOf(entries, count, t, thread_count);
        ranges[static_cast<std::size_t>(t)] = MeasureRange(share.first, share.count);
    }
    CentroidRange range = ranges[0];
    for (const CentroidRange& other : ranges) {
        Store4(range.min, Min(Load4(other.min), Load4(range.min)));
        Store4(range.max, Max(Load4(other.max), Load4(range.max)));
    }
    return range;
}

}  // namespace

SplitPlan PlanSplit(const BuildEntry* entries, std::uint32_t count)
{
    const CentroidRange range = MeasureRange(entries, count);
    if (IsPoint(range)) return NoSplit();
    Bins bins;
    FillBins(entries, count, range, bins);
    return ChoosePlane(bins, range);
}

SplitPlan PlanSplitByTeam(const BuildEntry* entries, std::uint32_t count)
{
    const int           thread_count = TeamSize();
    const CentroidRange range        = MeasureRangeByTeam(entries, count, thread_count);
    if (IsPoint(range)) return NoSplit();
    std::vector<Bins> bins(static_cast<std::size_t>(thread_count));
#pragma omp parallel for schedule(static) num_threads(thread_count)
    for (int t = 0; t < thread_count; ++t) {
        const Share share = ShareOf(entries, count, t, thread_count);
        FillBins(share.first, share.count, range, bins[static_cast<std::size_t>(t)]);
    }
    for (std::size_t t = 1; t < bins.size(); ++t) Merge(bins[0], bins[t]);
    return ChoosePlane(bins[0], range);
}

std::uint32_t Partition(BuildEntry* entries, std::uint32_t count, const SplitPlan& plan)
{
    // The entry under the cursor goes left and the cursor moves on, or it is exchanged with the last one not yet
    // placed. It travels in `current`, so that both ways are the same steps and no branch has to be predicted. As each
    // entry lies in one of the boxes at least, one look decides: what is not in the right box goes left, or what is in
    // the left one.
    const Float8  deciding = Load8(plan.shared_left ? plan.left.lanes : plan.right.lanes);
    std::uint32_t cursor = 0, last = count - 1;
    Float8        current = Load8(entries[0].lanes);
    for (std::uint32_t placed = 0; placed < count; ++placed) {
        const bool          is_inside = (Bits(Less(current, deciding)) & kBoxLanes) == 0;
        const bool          goes_left = is_inside == plan.shared_left;
        const std::uint32_t place     = goes_left ? cursor : last;
        const std::uint32_t successor = goes_left ? std::min(cursor + 1, last) : last;
        const Float8        next      = Load8(entries[successor].lanes);
        Store8(entries[place].lanes, current);
        current = next;
        cursor += goes_left ? 1u : 0u;
        last -= goes_left ? 0u : 1u;
    }
    return cursor;
}

}  // namespace hv
