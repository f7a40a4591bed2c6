#include "accel/accel.h"
#include "accel/hierarchy.h"
#include "session/console.h"

namespace hv {

namespace {

/// Nodes whose costs are added up in one portion: the sum is the same for any number of threads.
constexpr std::size_t kSumPortion = 16384;

/// Lists the children of a level's inner nodes, in order.
void ListChildren(const std::vector<BinaryNode>& nodes, const std::vector<std::uint32_t>& level,
                  std::vector<std::uint32_t>& below)
{
    below.resize(2 * level.size());
    std::size_t count = 0;
    for (const std::uint32_t node : level) {
        if (nodes[node].count > 0) continue;
        below[count]     = nodes[node].first;
        below[count + 1] = nodes[node].first + 1;
        count += 2;
    }
    below.resize(count);
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
double TreeCost(const Object& object)
{
    const std::vector<BinaryNode>& nodes = object.binaryNodes;
    const auto          portion_count    = static_cast<std::int64_t>((nodes.size() + kSumPortion - 1) / kSumPortion);
    std::vector<double> sums(static_cast<std::size_t>(portion_count));
#pragma omp parallel for schedule(static) num_threads(TeamSize()) if (portion_count > 1)
    for (std::int64_t p = 0; p < portion_count; ++p) {
        const std::size_t begin = static_cast<std::size_t>(p) * kSumPortion;
        const std::size_t end   = std::min(begin + kSumPortion, nodes.size());
        double            sum   = 0;
        for (std::size_t n = begin; n < end; ++n)
            sum += static_cast<double>(HalfArea(nodes[n].box)) * std::max<double>(nodes[n].count, 1.0);
        sums[static_cast<std::size_t>(p)] = sum;
    }
    double total = 0;
    for (const double sum : sums) total += sum;
    return total;
}

void RefitLeaf(const Object& object, BinaryNode& node)
{
    node.box = {};
    for (std::uint32_t i = 0; i < node.count; ++i)
        Grow(node.box, PrimitiveBounds(object, object.binaryRefs[node.first + i]));
    node.cost = HalfArea(node.box) * static_cast<float>(node.count);
}

}  // namespace

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
    const BinaryNode &left = object.binaryNodes[node.first], &right = object.binaryNodes[node.first + 1];
    node.box  = Union(left.box, right.box);
    node.cost = HalfArea(node.box) + left.cost + right.cost;
}

void PropagateSum(Object& object)
{
    std::vector<BinaryNode>& nodes = object.binaryNodes;
    FromBelow(object, CollectLevels(object), [&nodes](std::uint32_t n) {
        BinaryNode& node = nodes[n];
        node.sum         = node.count > 0 ? node.count : nodes[node.first].sum + nodes[node.first + 1].sum;
    });
}

void Update(Object& object, bool force, int frame_count)
{
    if (!force && !object.hasMotion) return;
    // Meant: the forced update moves the vertices, too, so that frame N shows (N + 1) / frame_count of the motion.
    MoveVertices(object, frame_count);
    RefreshInstances(object);
    // Rotations look down only and a level is done after those below it, so one listing serves both passes.
    const std::size_t level_count = CollectLevels(object);
    FromBelow(object, level_count, [&object](std::uint32_t node) { RefitNode(object, node); });
    FromBelow(object, level_count, [&object](std::uint32_t node) { RotateNode(object, node); });
    object.box  = object.binaryNodes.empty() ? Box{} : object.binaryNodes[0].box;
    object.cost = TreeCost(object);
    PropagateSum(object);
    MakeWideTree(object);
    object.levelNodes = {};
    PackLeaves(object);
}

}  // namespace hv
