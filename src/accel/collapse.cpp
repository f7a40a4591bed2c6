#include "accel/accel.h"
#include "accel/hierarchy.h"
#include "accel/large_array.h"

#include <limits>

namespace hv {

namespace {

constexpr int kLanes = 8;

/// Subtrees with at most this share of all references are collapsed by one thread each.
constexpr std::uint32_t kJobsPerThread = 16;
constexpr std::uint32_t kSmallestJob   = 8192;

/// Size of a piece of the wide tree.
struct WideExtent {
    std::uint32_t nodes = 0, refs = 0, depth = 0;
};

/// A subtree that is collapsed on its own: its root becomes the wide node `start.nodes`, its references begin at
/// `start.refs`.
struct CollapseJob {
    std::uint32_t binary = 0, depth = 0;
    WideExtent    start, extent;
};

/// One pass over a subtree in the final order of the wide nodes, each before its children. The measuring pass only
/// advances `used`; the storing pass fills arrays that have been sized by it. Subtrees of up to `job_size` references
/// are entered in `jobs` by the measuring pass and stepped over by the storing pass.
struct CollapsePass {
    Object&                   object;
    bool                      stores;
    std::uint32_t             job_size;
    std::vector<CollapseJob>& jobs;
    WideExtent                used;
    std::size_t               next_job = 0;
};

void Clear(WideNode& node)
{
    for (int k = 0; k < kLanes; ++k) {
        node.minX[k] = node.minY[k] = node.minZ[k] = kFarAway;
        node.maxX[k] = node.maxY[k] = node.maxZ[k] = -kFarAway;
        node.first[k]                              = kNone;
        node.count[k]                              = 0;
    }
    for (std::uint8_t& lanes : node.blockLanes) lanes = 0;
    node.block    = kNone;
    node.reserved = 0;
}

void StoreLane(WideNode& node, int k, const Box& box, std::uint32_t first, std::uint32_t count)
{
    node.SetBox(k, box);
    node.first[k] = first;
    node.count[k] = static_cast<std::uint16_t>(count);
}

/// Binary nodes that become the lanes of a wide node: the largest inner one is opened until there are 8.
int OpenLanes(const std::vector<BinaryNode>& nodes, std::uint32_t root, std::uint32_t (&lanes)[kLanes])
{
    float areas[kLanes];  // -1: a leaf
    int   count    = 0;
    auto  set_lane = [&](int k, std::uint32_t node) {
        lanes[k] = node;
        areas[k] = nodes[node].count > 0 ? -1.0f : HalfArea(nodes[node].box);
    };
    set_lane(count++, root);
    while (count < kLanes) {
        int largest = -1;
        for (int k = 0; k < count; ++k)
            if (areas[k] != -1.0f && (largest < 0 || areas[k] > areas[largest])) largest = k;
        if (largest < 0) break;
        const std::uint32_t left = nodes[lanes[largest]].first;
        set_lane(largest, left);
        set_lane(count++, left + 1);
    }
    return count;
}

/// Leaves, and subtrees that are cheaper when all their references are tested one by one.
bool IsFlat(const BinaryNode& node)
{
    if (node.count > 0) return true;
    if (node.sum > kMaxLeafCount) return false;
    return node.sum < 2 || node.cost > static_cast<float>(node.sum) * HalfArea(node.box);
}

/// Packed blocks hold triangles or tetragons or neither.
PrimitiveKind BlockKind(const PrimitiveRef& ref)
{
    const auto kind = static_cast<PrimitiveKind>(ref.kind);
    return kind == PrimitiveKind::Triangle || kind == PrimitiveKind::Tetragon ? kind : PrimitiveKind::None;
}

/// Whether all references below a node go into blocks of kind `kind`.
bool IsUniform(const Object& object, std::uint32_t binary, PrimitiveKind kind)
{
    const BinaryNode& node = object.binaryNodes[binary];
    for (std::uint32_t i = 0; i < node.count; ++i)
        if (BlockKind(object.binaryRefs[node.first + i]) != kind) return false;
    return node.count > 0 || (IsUniform(object, node.first, kind) && IsUniform(object, node.first + 1, kind));
}

const PrimitiveRef& FirstRef(const Object& object, std::uint32_t binary)
{
    while (object.binaryNodes[binary].count == 0) binary = object.binaryNodes[binary].first;
    return object.binaryRefs[object.binaryNodes[binary].first];
}

/// Lays the leaves of one wide node out in blocks, in their order. Leaves share a block as long as they fit in whole.
struct LeafWriter {
    CollapsePass& pass;
    std::uint32_t wide;
    PrimitiveKind kind  = PrimitiveKind::None;
    std::uint32_t room  = 0;  ///< references that the open block can still take
    std::uint32_t place = 0;  ///< of the next reference

    void Open(PrimitiveKind opened)
    {
        kind  = opened;
        room  = kBlockLength;
        place = pass.used.refs;
        pass.used.refs += kBlockLength;
    }

    void Add(const PrimitiveRef& ref)
    {
        if (room == 0 || BlockKind(ref) != kind) Open(BlockKind(ref));
        if (pass.stores) pass.object.wideRefs[place] = ref;
        ++place;
        --room;
    }

    void AddSubtree(std::uint32_t binary)
    {
        const BinaryNode& node = pass.object.binaryNodes[binary];
        for (std::uint32_t i = 0; i < node.count; ++i) Add(pass.object.binaryRefs[node.first + i]);
        if (node.count > 0) return;
        AddSubtree(node.first);
        AddSubtree(node.first + 1);
    }

    /// Adds the leaf of lane k; returns its first place.
    std::uint32_t AddLeaf(std::uint32_t binary, int k)
    {
        const std::uint32_t count      = pass.object.binaryNodes[binary].sum;
        const PrimitiveKind leaf_kind  = BlockKind(FirstRef(pass.object, binary));
        const bool          fits_block = count <= kBlockLength && IsUniform(pass.object, binary, leaf_kind);
        if (room == 0 || kind != leaf_kind || (fits_block && room < count)) Open(leaf_kind);
        const std::uint32_t first = place;
        AddSubtree(binary);
        if (fits_block && leaf_kind != PrimitiveKind::None && pass.stores) ShareBlock(first, count, k);
        return first;
    }

    void ShareBlock(std::uint32_t first, std::uint32_t count, int k)
    {
        WideNode& node = pass.object.wideNodes[wide];
        if (node.block == kNone) node.block = first / kBlockLength;
        if (first / kBlockLength - node.block > 1) return;
        node.blockLanes[k] = static_cast<std::uint8_t>(((1u << count) - 1u) << first % kBlockLength);
    }
};

/// Steps over a subtree that is a job: the measuring pass, which does not know its size yet, enters it.
void PassJob(CollapsePass& pass, std::uint32_t binary, std::uint32_t depth)
{
    if (!pass.stores) pass.jobs.push_back({binary, depth, pass.used, {}});
    const CollapseJob& job = pass.jobs[pass.next_job++];
    pass.used.nodes += job.extent.nodes;
    pass.used.refs += job.extent.refs;
}

/// Collapses the subtree of a binary node into the wide node `wide`, which is already counted in `used`.
void CollapseToWide(CollapsePass& pass, std::uint32_t binary, std::uint32_t wide, std::uint32_t depth)
{
    const std::vector<BinaryNode>& nodes = pass.object.binaryNodes;
    pass.used.depth                      = std::max(pass.used.depth, depth);
    if (pass.stores) Clear(pass.object.wideNodes[wide]);
    std::uint32_t lanes[kLanes];
    const int     lane_count = OpenLanes(nodes, binary, lanes);
    bool          is_flat[kLanes];
    LeafWriter    writer{pass, wide};
    for (int k = 0; k < lane_count; ++k) {
        const BinaryNode& node = nodes[lanes[k]];
        is_flat[k]             = IsFlat(node);
        if (!is_flat[k]) continue;
        const std::uint32_t first = writer.AddLeaf(lanes[k], k);
        if (pass.stores) StoreLane(pass.object.wideNodes[wide], k, node.box, first, node.sum);
    }
    for (int k = 0; k < lane_count; ++k) {
        if (is_flat[k]) continue;
        const BinaryNode& node = nodes[lanes[k]];
        if (pass.stores) StoreLane(pass.object.wideNodes[wide], k, node.box, pass.used.nodes, 0);
        if (node.sum <= pass.job_size)
            PassJob(pass, lanes[k], depth + 1);
        else
            CollapseToWide(pass, lanes[k], pass.used.nodes++, depth + 1);
    }
}

/// Collapses one job, whose own root is its first wide node.
WideExtent RunJob(Object& object, const CollapseJob& job, bool stores)
{
    std::vector<CollapseJob> no_jobs;
    CollapsePass             pass{object, stores, 0, no_jobs, job.start};
    CollapseToWide(pass, job.binary, pass.used.nodes++, job.depth);
    return pass.used;
}

/// Measures all jobs, moves their starts behind the pieces before them and adds their sizes to `total`.
void PlaceJobs(Object& object, std::vector<CollapseJob>& jobs, WideExtent& total)
{
    const auto count = static_cast<std::int64_t>(jobs.size());
#pragma omp parallel for schedule(dynamic, 1) num_threads(TeamSize()) if (count > 1)
    for (std::int64_t i = 0; i < count; ++i) {
        CollapseJob&     job = jobs[static_cast<std::size_t>(i)];
        const WideExtent end = RunJob(object, job, false);
        job.extent           = {end.nodes - job.start.nodes, end.refs - job.start.refs, end.depth};
    }
    WideExtent before;
    for (CollapseJob& job : jobs) {
        job.start.nodes += before.nodes;
        job.start.refs += before.refs;
        before.nodes += job.extent.nodes;
        before.refs += job.extent.refs;
        total.depth = std::max(total.depth, job.extent.depth);
    }
    total.nodes += before.nodes;
    total.refs += before.refs;
}

void ResizeWide(Object& object, const WideExtent& extent)
{
    RenewLarge(object.wideNodes, extent.nodes);
    RenewLarge(object.wideVisits, extent.nodes);
    RenewLarge(object.wideRefs, extent.refs);
    object.wideDepth = extent.depth;
}

}  // namespace

void MakeWideTree(Object& object)
{
    ResizeWide(object, {1, 0, 0});
    Clear(object.wideNodes[0]);
    if (object.binaryNodes.empty()) return;
    const std::uint32_t share = object.binaryNodes[0].sum / (kJobsPerThread * static_cast<std::uint32_t>(TeamSize()));
    const std::uint32_t job_size = std::max(share, kSmallestJob);
    std::vector<CollapseJob> jobs;
    CollapsePass             measuring{object, false, job_size, jobs, {1, 0, 0}};
    CollapseToWide(measuring, 0, 0, 0);
    PlaceJobs(object, jobs, measuring.used);
    ResizeWide(object, measuring.used);
    CollapsePass storing{object, true, job_size, jobs, {1, 0, 0}};
    CollapseToWide(storing, 0, 0, 0);
    const auto count = static_cast<std::int64_t>(jobs.size());
#pragma omp parallel for schedule(dynamic, 1) num_threads(TeamSize()) if (count > 1)
    for (std::int64_t i = 0; i < count; ++i) RunJob(object, jobs[static_cast<std::size_t>(i)], true);
}

}  // namespace hv
