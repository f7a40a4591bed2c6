#include "accel/accel.h"
#include "accel/curve_tree.h"
#include "accel/hierarchy.h"
#include "base/release.h"
#include "session/console.h"

#include <numeric>

namespace hv {

namespace {

/// Nodes that a thread takes at a time where results are gathered in order: they do not depend on the team.
constexpr std::size_t kNodePortion = 16384;

std::int64_t PortionCount(std::size_t node_count)
{
    return static_cast<std::int64_t>((node_count + kNodePortion - 1) / kNodePortion);
}

/// Calls `work` with the number and the bounds of each portion.
template <class Work>
void ForPortions(std::size_t node_count, const Work& work)
{
    const std::int64_t portion_count = PortionCount(node_count);
#pragma omp parallel for schedule(static) num_threads(TeamSize()) if (portion_count > 1)
    for (std::int64_t p = 0; p < portion_count; ++p) {
        const std::size_t begin = static_cast<std::size_t>(p) * kNodePortion;
        work(static_cast<std::size_t>(p), begin, std::min(begin + kNodePortion, node_count));
    }
}

/// Lists the children of a level's inner nodes, in order.
void ListChildren(const std::vector<BinaryNode>& nodes, const std::vector<std::uint32_t>& level,
                  std::vector<std::uint32_t>& below)
{
    std::vector<std::size_t> places(static_cast<std::size_t>(PortionCount(level.size())) + 1);
    ForPortions(level.size(), [&](std::size_t p, std::size_t begin, std::size_t end) {
        std::size_t count = 0;
        for (std::size_t i = begin; i < end; ++i) count += nodes[level[i]].count == 0 ? 2 : 0;
        places[p + 1] = count;
    });
    std::partial_sum(places.begin(), places.end(), places.begin());
    below.resize(places.back());
    ForPortions(level.size(), [&](std::size_t p, std::size_t begin, std::size_t end) {
        std::size_t place = places[p];
        for (std::size_t i = begin; i < end; ++i) {
            const BinaryNode& node = nodes[level[i]];
            if (node.count > 0) continue;
            below[place++] = node.first;
            below[place++] = node.first + 1;
        }
    });
}

/// Runs `step` on each node of each level, deepest level first. The nodes of one level have no descendant in common.
template <class Step>
void FromBelow(const Object& object, std::size_t level_count, const Step& step)
{
    for (std::size_t level = level_count; level-- > 0;) {
        const std::vector<std::uint32_t>& nodes = object.levelNodes[level];
        const auto                        count = static_cast<std::int64_t>(nodes.size());
#pragma omp parallel for schedule(static) num_threads(TeamSize()) if (nodes.size() >= kTeamLevel)
        for (std::int64_t i = 0; i < count; ++i) step(nodes[static_cast<std::size_t>(i)]);
    }
}

/// Moves the vertices of parts with motion by one frame's share.
void MoveVertices(Object& object, int frame_count)
{
    const float frames = static_cast<float>(std::max(frame_count, 1));
    for (Part& part : object.parts) {
        if (!part.hasMotion) continue;
        for (const VertexData<Vector>& data : part.vectors) {
            if (data.name != "motion") continue;
            const auto count = static_cast<std::int64_t>(std::min(data.values.size(), part.positions.size()));
#pragma omp parallel for schedule(static) num_threads(TeamSize()) if (count >= 65536)
            for (std::int64_t i = 0; i < count; ++i)
                part.positions[static_cast<std::size_t>(i)] += data.values[static_cast<std::size_t>(i)] / frames;
        }
    }
}

/// Half areas of all nodes, those of leaves times their count.
double TreeCost(const std::vector<BinaryNode>& nodes)
{
    std::vector<double> sums(static_cast<std::size_t>(PortionCount(nodes.size())));
    ForPortions(nodes.size(), [&](std::size_t p, std::size_t begin, std::size_t end) {
        double sum = 0;
        for (std::size_t n = begin; n < end; ++n)
            sum += static_cast<double>(HalfArea(nodes[n].box)) * std::max<double>(nodes[n].count, 1.0);
        sums[p] = sum;
    });
    return std::accumulate(sums.begin(), sums.end(), 0.0);
}

void RefitLeaf(const Object& object, BinaryNode& node)
{
    node.box = {};
    for (std::uint32_t i = 0; i < node.count; ++i)
        Grow(node.box, PrimitiveBounds(object, object.binaryRefs[node.first + i]));
    node.cost = HalfArea(node.box) * static_cast<float>(node.count);
    node.sum  = node.count;
}

}  // namespace

void RefitInner(std::vector<BinaryNode>& nodes, std::uint32_t node_index)
{
    BinaryNode&       node = nodes[node_index];
    const BinaryNode &left = nodes[node.first], &right = nodes[node.first + 1];
    node.box  = Union(left.box, right.box);
    node.cost = HalfArea(node.box) + left.cost + right.cost;
    node.sum  = left.sum + right.sum;
}

std::size_t CollectLevels(Object& object)
{
    std::vector<std::vector<std::uint32_t>>& levels = object.levelNodes;
    object.levelCount.assign(kTreeLevels, 0);
    object.levelFill.assign(kTreeLevels, 0);
    levels.resize(std::max<std::size_t>(levels.size(), kTreeLevels));
    levels[0].assign(object.binaryNodes.empty() ? 0 : 1, 0);
    std::size_t level = 0;
    while (!levels[level].empty()) {
        if (level == kTreeLevels) {
            PrintError("bbvh - depth out of range");
            PrintRule();
        }
        if (level >= object.levelCount.size()) {
            object.levelCount.push_back(0);
            object.levelFill.push_back(0);
        }
        object.levelCount[level] = object.levelFill[level] = static_cast<std::uint32_t>(levels[level].size());
        if (level + 1 == levels.size()) levels.emplace_back();
        ListChildren(object.binaryNodes, levels[level], levels[level + 1]);
        ++level;
    }
    return level;
}

void RefitNode(Object& object, std::uint32_t node_index)
{
    BinaryNode& node = object.binaryNodes[node_index];
    if (node.count > 0) {
        RefitLeaf(object, node);
        return;
    }
    RefitInner(object.binaryNodes, node_index);
}

void Update(Object& object, bool force, int frame_count)
{
    if (!force && !object.hasMotion) return;
    // Meant: the forced update moves the vertices, too, so that frame N shows (N + 1) / frame_count of the motion.
    MoveVertices(object, frame_count);
    RefreshInstances(object);
    // Rotations look down only and a level is done after those below it, so one listing serves both passes. They keep
    // the sums of references up to date as well: a node that changes its children is refitted.
    const std::size_t level_count = CollectLevels(object);
    FromBelow(object, level_count, [&object](std::uint32_t node) { RefitNode(object, node); });
    FromBelow(object, level_count, [&object](std::uint32_t node) { RotateNode(object, node); });
    object.box  = object.binaryNodes.empty() ? Box{} : object.binaryNodes[0].box;
    object.cost = TreeCost(object.binaryNodes);
    Release(object.levelNodes);
    MakeWideTree(object);
    MakeCurveTree(object);
    PackLeaves(object);
}

}  // namespace hv
