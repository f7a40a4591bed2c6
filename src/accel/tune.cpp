#include "accel/accel.h"
#include "geometry/object.h"

namespace hv {

namespace {

constexpr int kLanes = 8;

/// One lane of a wide node with its counter.
struct Lane {
    Box           box;
    std::uint32_t first;
    std::uint32_t visits;
    std::uint16_t count;
    std::uint8_t  block_lanes;
};

using Counters = std::array<std::uint32_t, kLanes>;

Lane ReadLane(const WideNode& node, const Counters& visits, int k)
{
    return {{{node.minX[k], node.minY[k], node.minZ[k]}, {node.maxX[k], node.maxY[k], node.maxZ[k]}},
            node.first[k],
            visits[static_cast<std::size_t>(k)],
            node.count[k],
            node.blockLanes[k]};
}

void WriteLane(WideNode& node, Counters& visits, int k, const Lane& lane)
{
    node.minX[k]                        = lane.box.min.x;
    node.minY[k]                        = lane.box.min.y;
    node.minZ[k]                        = lane.box.min.z;
    node.maxX[k]                        = lane.box.max.x;
    node.maxY[k]                        = lane.box.max.y;
    node.maxZ[k]                        = lane.box.max.z;
    node.first[k]                       = lane.first;
    node.count[k]                       = lane.count;
    node.blockLanes[k]                  = lane.block_lanes;
    visits[static_cast<std::size_t>(k)] = lane.visits;
}

/// What is known of a lane when a node is put in order.
struct LaneWorth {
    float key         = 0;  ///< lanes are sorted by it, greatest first
    float probability = 0;  ///< share of the node's blocked rays
    float cost        = 0;  ///< expected steps of a ray that enters the lane
};

/// Stable insertion sort by decreasing key. Unused lanes are passed by others but not moved themselves.
void SortChildren(WideNode& node, Counters& visits, LaneWorth (&worths)[kLanes])
{
    for (int i = 1; i < kLanes; ++i) {
        if (node.first[i] == kNone) continue;
        const Lane      lane  = ReadLane(node, visits, i);
        const LaneWorth worth = worths[i];
        int             k     = i;
        for (; k > 0 && worths[k - 1].key < worth.key; --k) {
            WriteLane(node, visits, k, ReadLane(node, visits, k - 1));
            worths[k] = worths[k - 1];
        }
        if (k == i) continue;
        WriteLane(node, visits, k, lane);
        worths[k] = worth;
    }
}

/// Sorts the subtree of a wide node. `visits` becomes its number of blocked rays; `cost`, which comes in as 0, the
/// expected steps of a ray through it, and stays as it is when no ray was blocked there.
void TuneChildOrder(Object& object, float& cost, std::uint32_t& visits, std::uint32_t node_index)
{
    WideNode&     node     = object.wideNodes[node_index];
    Counters&     counters = object.wideVisits[node_index];
    LaneWorth     worths[kLanes];
    std::uint32_t lane_visits[kLanes] = {};
    visits                            = 0;
    for (int k = 0; k < kLanes; ++k) {
        if (node.first[k] == kNone) continue;
        if (node.count[k] != 0) {
            worths[k].cost = static_cast<float>(node.count[k]);
            lane_visits[k] = counters[static_cast<std::size_t>(k)];
        } else {
            TuneChildOrder(object, worths[k].cost, lane_visits[k], node.first[k]);
        }
        visits += lane_visits[k];
    }
    if (visits == 0) return;
    for (int k = 0; k < kLanes; ++k) {
        worths[k].probability = static_cast<float>(lane_visits[k]) / static_cast<float>(visits);
        worths[k].key         = worths[k].cost > 0.0f ? worths[k].probability / worths[k].cost : 0.0f;
    }
    SortChildren(node, counters, worths);
    double sum     = cost;
    float  reached = 1.0f;  // probability that no lane before has blocked the ray
    for (int k = 0; k < kLanes; ++k) {
        if (node.first[k] == kNone) continue;
        sum += reached * 0.8 * worths[k].cost;
        reached *= 1.0f - worths[k].probability;
    }
    cost = static_cast<float>(1.0 + sum);
}

}  // namespace

void SortWideLanes(Object& object)
{
    const auto count = static_cast<std::int64_t>(object.wideNodes.size());
#pragma omp parallel for schedule(static) num_threads(TeamSize()) if (count >= 4096)
    for (std::int64_t n = 0; n < count; ++n) {
        WideNode& node   = object.wideNodes[static_cast<std::size_t>(n)];
        Counters& visits = object.wideVisits[static_cast<std::size_t>(n)];
        LaneWorth worths[kLanes];
        for (int k = 0; k < kLanes; ++k) worths[k].key = HalfArea(ReadLane(node, visits, k).box);
        SortChildren(node, visits, worths);
    }
}

void ClearVisits(Object& object) { std::fill(object.wideVisits.begin(), object.wideVisits.end(), Counters{}); }

void TuneChildOrder(Object& object)
{
    if (object.wideNodes.empty()) return;
    float         cost   = 0;
    std::uint32_t visits = 0;
    TuneChildOrder(object, cost, visits, 0);
}

}  // namespace hv
