#include "accel/curve_tree.h"

#include "accel/hierarchy.h"
#include "accel/large_array.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>

namespace hv {

namespace {

constexpr int kLanes = 8;

/// Lanes with more curves below them have no tube: it would hardly be tighter than the box, and making it is work.
constexpr std::uint32_t kMostTubeCurves = 128;

/// Tubes are tested where lanes are entered at most this often by them, as a share of what their boxes let in.
constexpr float kWorthwhileTubes = 0.85f;

/// Subtrees of up to this many references are planned by one thread each.
constexpr std::uint32_t kPlanJob = 16384;

/// Subtrees of up to this many curves, though not those that get a tube as a whole, are filled by one thread each.
constexpr std::uint32_t kFillJob = 4096;

/// How the curves below a binary node are best laid out, by the surface-area heuristic: to test a node or a bundle
/// costs 1.
struct CurvePlan {
    float         cost[kLanes - 1];  ///< [n]: in at most n + 1 lanes of the node above them
    std::uint32_t curves;
    std::uint32_t nodes, bundles;  ///< that one lane above them needs
    std::uint32_t depth;           ///< levels of these nodes
};

/// Lanes that a node of the curve tree gets.
struct LaneList {
    int           count = 0;
    std::uint32_t binary[kLanes];
};

class CurvePlanner {
public:
    explicit CurvePlanner(const Object& object)
        : object_(object), plans_(std::make_unique_for_overwrite<CurvePlan[]>(object.binaryNodes.size()))
    {
        AskForLargePages(plans_.get(), object.binaryNodes.size() * sizeof(CurvePlan));
    }

    const CurvePlan& operator[](std::uint32_t binary) const { return plans_[binary]; }

    bool IsLeaf(std::uint32_t binary) const
    {
        return object_.binaryNodes[binary].count > 0 || plans_[binary].curves <= kBlockLength;
    }

    /// Plans all nodes, the subtrees of many at once.
    void PlanAll()
    {
        std::vector<std::uint32_t> jobs;
        ListJobs(0, jobs);
        const auto count = static_cast<std::int64_t>(jobs.size());
#pragma omp parallel for schedule(dynamic, 1) num_threads(TeamSize()) if (count > 1)
        for (std::int64_t i = 0; i < count; ++i) PlanBelow(jobs[static_cast<std::size_t>(i)], 0);
        PlanBelow(0, kPlanJob);
    }

    /// The lanes of the node that is made for a binary node.
    LaneList Lanes(std::uint32_t binary) const
    {
        LaneList list;
        binary = Resolve(binary);
        if (IsLeaf(binary))
            list.binary[list.count++] = binary;
        else
            Share(binary, kLanes, list);
        return list;
    }

    static bool IsCurve(const PrimitiveRef& ref)
    {
        return ref.kind == static_cast<std::uint16_t>(PrimitiveKind::Cylinder);
    }

private:
    void ListJobs(std::uint32_t binary, std::vector<std::uint32_t>& jobs) const
    {
        const BinaryNode& node = object_.binaryNodes[binary];
        if (node.count > 0) return;
        if (node.sum <= kPlanJob) {
            jobs.push_back(binary);
            return;
        }
        ListJobs(node.first, jobs);
        ListJobs(node.first + 1, jobs);
    }

    /// Plans the nodes of a subtree, each behind its children, but for inner nodes with no more than `planned`
    /// references.
    void PlanBelow(std::uint32_t binary, std::uint32_t planned)
    {
        const BinaryNode& node = object_.binaryNodes[binary];
        if (node.count == 0) {
            if (node.sum <= planned) return;
            PlanBelow(node.first, planned);
            PlanBelow(node.first + 1, planned);
        }
        Plan(binary);
    }

    /// Plans a node whose children have been planned.
    void Plan(std::uint32_t binary)
    {
        const BinaryNode& node = object_.binaryNodes[binary];
        CurvePlan&        plan = plans_[binary];
        plan                   = {};
        if (node.count > 0) {
            for (std::uint32_t i = 0; i < node.count; ++i) plan.curves += IsCurve(object_.binaryRefs[node.first + i]);
        } else {
            plan.curves = plans_[node.first].curves + plans_[node.first + 1].curves;
        }
        if (IsLeaf(binary)) {
            plan.bundles = (plan.curves + kBlockLength - 1) / kBlockLength;
            std::fill(plan.cost, std::end(plan.cost), HalfArea(node.box) * static_cast<float>(plan.bundles));
            return;
        }
        if (const std::uint32_t only = OnlyChild(binary); only != binary) {
            plan = plans_[only];
            return;
        }
        plan.cost[0] = HalfArea(node.box) + CostOf(binary, kLanes);
        for (int lanes = 2; lanes < kLanes; ++lanes)
            plan.cost[lanes - 1] = std::min(plan.cost[lanes - 2], CostOf(binary, lanes));
        plan.nodes          = 1;
        const LaneList list = Lanes(binary);
        for (int k = 0; k < list.count; ++k) {
            const CurvePlan& lane = plans_[list.binary[k]];
            plan.nodes += lane.nodes;
            plan.bundles += lane.bundles;
            plan.depth = std::max(plan.depth, lane.depth + 1);
        }
    }

    /// The child that has all curves of an inner node, or the node itself when both have some.
    std::uint32_t OnlyChild(std::uint32_t binary) const
    {
        const std::uint32_t left = object_.binaryNodes[binary].first;
        if (plans_[left].curves == 0) return left + 1;
        return plans_[left + 1].curves == 0 ? left : binary;
    }

    std::uint32_t Resolve(std::uint32_t binary) const
    {
        while (!IsLeaf(binary)) {
            const std::uint32_t only = OnlyChild(binary);
            if (only == binary) break;
            binary = only;
        }
        return binary;
    }

    /// Cost of an inner node's children in `lanes` lanes; `left_lanes`: how many of these the left child has.
    float CostOf(std::uint32_t binary, int lanes, int* left_lanes = nullptr) const
    {
        const std::uint32_t left = object_.binaryNodes[binary].first;
        const CurvePlan &   a = plans_[left], &b = plans_[left + 1];
        float               best = std::numeric_limits<float>::infinity();
        for (int k = 1; k < lanes; ++k) {
            const float cost = a.cost[k - 1] + b.cost[lanes - k - 1];
            if (!(cost < best)) continue;
            best = cost;
            if (left_lanes != nullptr) *left_lanes = k;
        }
        return best;
    }

    /// Appends the lanes of both children of an inner node, at most `lanes`.
    void Share(std::uint32_t binary, int lanes, LaneList& list) const
    {
        int left_lanes = 1;
        CostOf(binary, lanes, &left_lanes);
        const std::uint32_t left = object_.binaryNodes[binary].first;
        Append(left, left_lanes, list);
        Append(left + 1, lanes - left_lanes, list);
    }

    void Append(std::uint32_t binary, int lanes, LaneList& list) const
    {
        binary                = Resolve(binary);
        const CurvePlan& plan = plans_[binary];
        while (lanes > 1 && plan.cost[lanes - 2] == plan.cost[lanes - 1]) --lanes;
        if (lanes == 1)
            list.binary[list.count++] = binary;
        else
            Share(binary, lanes, list);
    }

    const Object& object_;
    /// One a binary node. Its memory is first touched by all threads.
    std::unique_ptr<CurvePlan[]> plans_;
};

/// A binary node with the places of what is made of it.
struct FillJob {
    std::uint32_t binary, node, bundle, curve;
};

/// Writes nodes and bundles where the plan has their places.
class CurveFiller {
public:
    CurveFiller(Object& object, const CurvePlanner& plans)
        : object_(object), plans_(plans), reaches_(object.curves.size())
    {
    }

    /// Fills the node of a binary node and all below it, but for what it appends to `jobs`.
    void FillNode(const FillJob& job, std::vector<FillJob>* jobs)
    {
        CurveNode& node = object_.curveNodes[job.node];
        Clear(node);
        const LaneList lanes     = plans_.Lanes(job.binary);
        FillJob        next      = {0, job.node + 1, job.bundle, job.curve};
        float          box_areas = 0, tube_areas = 0;
        for (int k = 0; k < lanes.count; ++k) {
            next.binary           = lanes.binary[k];
            const CurvePlan& plan = plans_[next.binary];
            const Box&       box  = object_.binaryNodes[next.binary].box;
            node.SetBox(k, box);
            if (plans_.IsLeaf(next.binary)) {
                node.first[k] = next.bundle;
                node.count[k] = static_cast<std::uint16_t>(plan.curves);
                FillLeaf(next, plan.curves, box);
            } else {
                node.first[k] = next.node;
                if (jobs != nullptr && plan.curves > kMostTubeCurves && plan.curves <= kFillJob)
                    jobs->push_back(next);
                else
                    FillNode(next, jobs);
            }
            const float box_area = HalfArea(box);
            box_areas += box_area;
            tube_areas += plan.curves > kMostTubeCurves
                              ? box_area
                              : std::min(box_area, MakeTube(&object_.curves[next.curve], &reaches_[next.curve],
                                                            plan.curves, k, node));
            next.node += plan.nodes;
            next.bundle += plan.bundles;
            next.curve += plan.curves;
        }
        node.usesTubes = tube_areas < kWorthwhileTubes * box_areas;
    }

private:
    static void Clear(CurveNode& node);

    /// Appends the curves below a binary node to those before `end`.
    void AppendCurves(std::uint32_t binary, PlacedCurve*& end)
    {
        const BinaryNode& node = object_.binaryNodes[binary];
        for (std::uint32_t i = 0; i < node.count; ++i) {
            const PrimitiveRef& ref = object_.binaryRefs[node.first + i];
            if (!CurvePlanner::IsCurve(ref)) continue;
            const Part& part = object_.parts[ref.part];
            end->curve       = CurveOf(part, part.cylinders[ref.index]);
            end->index       = ref.index;
            end->part        = ref.part;
            ++end;
        }
        if (node.count > 0) return;
        AppendCurves(node.first, end);
        AppendCurves(node.first + 1, end);
    }

    /// Fills the curves and bundles of a leaf lane with the box `box`.
    void FillLeaf(const FillJob& leaf, std::uint32_t count, const Box& box)
    {
        PlacedCurve* end = &object_.curves[leaf.curve];
        AppendCurves(leaf.binary, end);
        for (std::uint32_t c = 0; c < count; ++c) {
            CurveBundle&        bundle = object_.curveBundles[leaf.bundle + c / kBlockLength];
            const std::uint32_t lane   = c % kBlockLength;
            if (lane == 0) {
                std::memset(static_cast<void*>(&bundle), 0, sizeof(bundle));
                bundle.first = leaf.curve + c;
            }
            const Curve& curve       = object_.curves[leaf.curve + c].curve;
            reaches_[leaf.curve + c] = CurveReach(curve);
            const float off =
                std::max(PackEnd(curve.p0, box, &bundle.ends[0], lane), PackEnd(curve.p1, box, &bundle.ends[3], lane));
            bundle.reach[lane] = HalfAbove(reaches_[leaf.curve + c] + off);
        }
    }

    /// Packs an end of a curve; returns how far it is off at most.
    static float PackEnd(Vector p, const Box& box, std::uint16_t (*rows)[8], std::uint32_t lane)
    {
        float off = 0;
        for (int axis = 0; axis < 3; ++axis) {
            const float step  = kEndStep * (box.max[axis] - box.min[axis]);
            const float place = step > 0.0f ? (p[axis] - box.min[axis]) / step : 0.0f;
            const float steps = std::clamp(std::round(place), 0.0f, 65535.0f);
            rows[axis][lane]  = static_cast<std::uint16_t>(steps);
            off += std::fabs(p[axis] - (box.min[axis] + steps * step));
        }
        return off;
    }

    Object&             object_;
    const CurvePlanner& plans_;
    std::vector<float>  reaches_;  ///< parallel to Object::curves
};

void CurveFiller::Clear(CurveNode& node)
{
    std::memset(static_cast<void*>(&node), 0, sizeof(node));
    for (int k = 0; k < kLanes; ++k) {
        node.SetBox(k, Box{});
        node.diameter[k] = HalfAbove(kInfinity);
        node.first[k]    = kNone;
    }
}

/// Largest |x| + |y| + |z| of a box.
float FarthestCorner(const Box& box)
{
    float sum = 0;
    for (int axis = 0; axis < 3; ++axis) sum += std::max(std::fabs(box.min[axis]), std::fabs(box.max[axis]));
    return sum;
}

}  // namespace

void MakeCurveTree(Object& object)
{
    Release(object.curveNodes);
    Release(object.curveBundles);
    Release(object.curves);
    object.curveDepth = 0;
    const bool has_cylinders =
        std::any_of(object.parts.begin(), object.parts.end(), [](const Part& part) { return !part.cylinders.empty(); });
    if (!has_cylinders || object.binaryNodes.empty()) return;
    CurvePlanner plans(object);
    plans.PlanAll();
    const CurvePlan& root = plans[0];
    if (root.curves == 0) return;
    RenewLarge(object.curveNodes, std::max(root.nodes, 1u));
    RenewLarge(object.curveBundles, root.bundles);
    RenewLarge(object.curves, root.curves);
    object.curveDepth = std::max(root.depth, 1u) - 1;
    object.curveSize  = FarthestCorner(object.binaryNodes[0].box);
    CurveFiller          filler(object, plans);
    std::vector<FillJob> jobs;
    filler.FillNode({0, 0, 0, 0}, &jobs);
    const auto count = static_cast<std::int64_t>(jobs.size());
#pragma omp parallel for schedule(dynamic, 1) num_threads(TeamSize()) if (count > 1)
    for (std::int64_t i = 0; i < count; ++i) filler.FillNode(jobs[static_cast<std::size_t>(i)], nullptr);
}

}  // namespace hv
