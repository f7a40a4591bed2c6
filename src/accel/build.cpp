#include "accel/accel.h"
#include "accel/hierarchy.h"
#include "accel/large_array.h"
#include "accel/split.h"
#include "base/release.h"
#include "session/console.h"

#include <atomic>
#include <cstring>

namespace hv {

namespace {

/// From this level on, tasks with too many references for a leaf are halved, so that none is left at the last level.
constexpr std::uint32_t kHalvingLevel = 238;
constexpr std::uint32_t kLastLevel    = kTreeLevels - 1;

/// Tasks of this size and more are binned by the whole team, as the first levels have fewer tasks than threads.
constexpr std::uint32_t kTeamTask = 32768;

/// Levels with fewer references are done by the calling thread.
constexpr std::uint32_t kSerialLevel = 16384;

/// Portions of a level for each thread; more than one evens out what the levels' sizes tell badly.
constexpr std::uint32_t kPortionsPerThread = 4;

/// A node to be split: its references are entries[first] to entries[first + count - 1].
struct BuildTask {
    std::uint32_t node, first, count;
};

/// A node that was split into two neighbouring ranges.
struct FinishedSplit {
    std::uint32_t node, first, left_count, right_count;
};

/// Neighbouring tasks of the frontier that one thread does, and what came of them: `split_count` splits stored from
/// place `begin` on, with `open_count` children that can be split further.
struct Portion {
    std::size_t   begin = 0, end = 0;
    std::uint32_t split_count = 0, open_count = 0;
    std::uint32_t first_split = 0, first_open = 0;  ///< sums of the portions before
};

/// The tree under construction. All arrays that a parallel region writes to are sized before it.
struct Builder {
    explicit Builder(std::vector<BinaryNode>& tree) : nodes(tree) {}

    std::vector<BinaryNode>&   nodes;
    std::vector<BuildEntry>    entries;
    std::vector<BuildTask>     frontier, next;
    std::vector<SplitPlan>     plans;  ///< of the first tasks of the frontier; made where the team has binned
    std::vector<FinishedSplit> splits;
    std::vector<Portion>       portions;
    std::uint32_t              level = 0;
};

/// Fills the entries and drops those that no hierarchy can hold, keeping the order of the others.
void FillEntries(const Object& object, std::vector<BuildEntry>& entries)
{
    const std::vector<ReferenceRun> runs = ListRuns(object);
    if (runs.empty()) return;
    RenewLarge(entries, runs.back().position + runs.back().count);
    const auto                 run_count = static_cast<std::int64_t>(runs.size());
    std::atomic<std::uint32_t> dropped   = 0;
#pragma omp parallel for schedule(dynamic) num_threads(TeamSize()) if (run_count >= kTeamRuns)
    for (std::int64_t r = 0; r < run_count; ++r) {
        const ReferenceRun& run = runs[static_cast<std::size_t>(r)];
        std::uint32_t       bad = 0;
        for (std::uint32_t k = 0; k < run.count; ++k) {
            const PrimitiveRef ref    = RefOfRun(run, k);
            const Box          box    = PrimitiveBounds(object, ref);
            const bool         use    = !IsEmpty(box);
            entries[run.position + k] = MakeEntry(box, use ? ref : PrimitiveRef{});
            bad += use ? 0 : 1;
        }
        dropped += bad;
    }
    if (dropped > 0) std::erase_if(entries, [](const BuildEntry& entry) { return RefOf(entry) == PrimitiveRef{}; });
}

void MakeLeaf(Builder& builder, std::uint32_t node, std::uint32_t first, std::uint32_t count)
{
    builder.nodes[node].first = first;
    builder.nodes[node].count = static_cast<std::uint16_t>(count);
}

/// Splits the range of a task and returns the number of references on the left; 0 for a leaf.
std::uint32_t SplitTask(Builder& builder, const BuildTask& task, const SplitPlan* team_plan)
{
    if (task.count < 2 || builder.level >= kLastLevel) return 0;
    std::uint32_t left_count = 0;
    if (task.count <= kMaxLeafCount || builder.level < kHalvingLevel) {
        BuildEntry*     first = builder.entries.data() + task.first;
        const SplitPlan plan  = team_plan != nullptr ? *team_plan : PlanSplit(first, task.count);
        if (plan.is_found) left_count = Partition(first, task.count, plan);
    }
    if (left_count > 0 && left_count < task.count) return left_count;
    return task.count > kMaxLeafCount ? task.count / 2 : 0;  // nothing tells these apart, but no leaf can hold them all
}

/// Does the tasks of one portion: leaves are written, splits stored.
void DoPortion(Builder& builder, Portion& portion)
{
    for (std::size_t i = portion.begin; i < portion.end; ++i) {
        const BuildTask&    task       = builder.frontier[i];
        const bool          is_planned = i < builder.plans.size() && builder.plans[i].is_made;
        const std::uint32_t left_count = SplitTask(builder, task, is_planned ? &builder.plans[i] : nullptr);
        if (left_count == 0) {
            MakeLeaf(builder, task.node, task.first, task.count);
            continue;
        }
        const std::uint32_t right_count                       = task.count - left_count;
        builder.splits[portion.begin + portion.split_count++] = {task.node, task.first, left_count, right_count};
        portion.open_count += (left_count > 1 ? 1u : 0u) + (right_count > 1 ? 1u : 0u);
    }
}

/// Cuts the frontier into portions of about equal numbers of references.
void CutFrontier(Builder& builder, std::uint64_t reference_count, int thread_count)
{
    const bool          serial = thread_count == 1 || reference_count < kSerialLevel;
    const std::uint32_t wanted = serial ? 1 : static_cast<std::uint32_t>(thread_count) * kPortionsPerThread;
    const std::uint64_t share  = reference_count / wanted + 1;
    builder.portions.clear();
    std::uint64_t filled = 0;
    std::size_t   begin  = 0;
    for (std::size_t i = 0; i < builder.frontier.size(); ++i) {
        filled += builder.frontier[i].count;
        if (filled < share && i + 1 < builder.frontier.size()) continue;
        builder.portions.push_back({.begin = begin, .end = i + 1});
        begin  = i + 1;
        filled = 0;
    }
}

/// Adds a child of a split node: a leaf at once when it holds a single reference, else a task.
void AddChild(Builder& builder, const BuildTask& child, std::size_t& open)
{
    if (child.count > 1)
        builder.next[open++] = child;
    else
        MakeLeaf(builder, child.node, child.first, child.count);
}

/// Gives the children of a level their numbers, pair by pair in the order of their parents: the tree comes out the same
/// for any number of threads, and each level lies in one piece.
void NumberChildren(Builder& builder)
{
    std::uint32_t split_count = 0, open_count = 0;
    for (Portion& portion : builder.portions) {
        portion.first_split = split_count;
        portion.first_open  = open_count;
        split_count += portion.split_count;
        open_count += portion.open_count;
    }
    const auto base = static_cast<std::uint32_t>(builder.nodes.size());
    builder.nodes.resize(base + 2 * std::size_t{split_count});
    builder.next.resize(open_count);
    const auto portion_count = static_cast<std::int64_t>(builder.portions.size());
#pragma omp parallel for schedule(static) num_threads(TeamSize()) if (portion_count > 1)
    for (std::int64_t p = 0; p < portion_count; ++p) {
        const Portion& portion = builder.portions[static_cast<std::size_t>(p)];
        std::uint32_t  child   = base + 2 * portion.first_split;
        std::size_t    open    = portion.first_open;
        for (std::uint32_t i = 0; i < portion.split_count; ++i, child += 2) {
            const FinishedSplit& split      = builder.splits[portion.begin + i];
            builder.nodes[split.node].first = child;
            builder.nodes[split.node].count = 0;
            AddChild(builder, {child, split.first, split.left_count}, open);
            AddChild(builder, {child + 1, split.first + split.left_count, split.right_count}, open);
        }
    }
    std::swap(builder.frontier, builder.next);
}

/// Plans the big tasks of a short frontier with all threads on one task after the other.
void PlanByTeam(Builder& builder, int thread_count)
{
    builder.plans.clear();
    if (thread_count == 1 || builder.frontier.size() >= kPortionsPerThread * static_cast<std::size_t>(thread_count))
        return;
    builder.plans.resize(builder.frontier.size());
    for (std::size_t i = 0; i < builder.frontier.size(); ++i) {
        const BuildTask& task = builder.frontier[i];
        if (task.count >= kTeamTask)
            builder.plans[i] = PlanSplitByTeam(builder.entries.data() + task.first, task.count);
    }
}

/// Splits all tasks of the frontier. Returns whether the level below has nodes.
bool DoLevel(Builder& builder)
{
    const int     thread_count    = TeamSize();
    std::uint64_t reference_count = 0;
    for (const BuildTask& task : builder.frontier) reference_count += task.count;
    builder.splits.resize(builder.frontier.size());
    CutFrontier(builder, reference_count, thread_count);
    PlanByTeam(builder, thread_count);
    const auto portion_count = static_cast<std::int64_t>(builder.portions.size());
#pragma omp parallel for schedule(dynamic, 1) num_threads(thread_count) if (portion_count > 1)
    for (std::int64_t p = 0; p < portion_count; ++p) DoPortion(builder, builder.portions[static_cast<std::size_t>(p)]);
    const std::size_t node_count = builder.nodes.size();
    NumberChildren(builder);
    return builder.nodes.size() > node_count;
}

void ReportWavefront(std::uint32_t level, bool last)
{
    ReportProgress("tree construction wavefront", level, "n/a", last);
}

/// Builds the tree level by level; references that stand alone are leaves before their level comes.
void GrowTree(Builder& builder)
{
    const auto count = static_cast<std::uint32_t>(builder.entries.size());
    ReserveLarge(builder.nodes, 2 * std::size_t{count} - 1);
    builder.nodes.resize(1);
    if (count == 1) MakeLeaf(builder, 0, 0, 1);
    if (count > 1) builder.frontier.push_back({0, 0, count});
    bool has_nodes = true;
    while (builder.level < kTreeLevels && has_nodes) {
        ReportWavefront(builder.level, false);
        has_nodes = !builder.frontier.empty() && DoLevel(builder);
        ++builder.level;
    }
    if (!has_nodes) ReportWavefront(builder.level, true);
}

void StoreReferences(const std::vector<BuildEntry>& entries, std::vector<PrimitiveRef>& refs)
{
    RenewLarge(refs, entries.size());
    const auto count = static_cast<std::int64_t>(entries.size());
#pragma omp parallel for schedule(static) num_threads(TeamSize()) if (count >= kTeamTask)
    for (std::int64_t i = 0; i < count; ++i)
        refs[static_cast<std::size_t>(i)] = RefOf(entries[static_cast<std::size_t>(i)]);
}

}  // namespace

void Build(Object& object)
{
    const std::int64_t start = Milliseconds();
    Release(object.binaryNodes);
    Release(object.binaryRefs);
    Builder builder(object.binaryNodes);
    FillEntries(object, builder.entries);
    if (builder.entries.empty())
        ReportWavefront(0, true);
    else
        GrowTree(builder);
    StoreReferences(builder.entries, object.binaryRefs);
    if (object.hasMotion) object.binaryNodes.shrink_to_fit();  // others lose their binary tree soon
    ReportValue("bbvh construction for " + object.name, static_cast<float>(Milliseconds() - start) / 1000.0f,
                "seconds");
    PrintRule();
}

}  // namespace hv
