#include "transport/photon_tree.h"

#include "base/per_thread.h"
#include "session/console.h"
#include "session/settings.h"
#include "transport/transport.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <exception>
#include <mutex>
#include <new>
#include <thread>

namespace hv {

std::vector<Photon>          Photons;
std::vector<KdNode>          KdNodes;
std::vector<DirectionBounds> KdDirections;
Box                          PhotonBox;

namespace {

constexpr std::uint32_t kLeafPhotons  = 16;
constexpr int           kBins         = 17;
constexpr int           kSpawnDepth   = 16;    ///< nodes below do not start threads
constexpr std::uint32_t kSpawnPhotons = 1024;  ///< nor do those with a smaller side

/// What the threads of a build share. Nodes move as their array grows, so all access takes the lock; the photons of a
/// range belong to one task.
struct Builder {
    std::mutex       node_lock;
    std::atomic<int> threads{1};  ///< at work
    const int        thread_limit = TeamSize();
};

struct BuildTask {
    Builder*      builder;
    Box           box;
    std::uint32_t node;
    int           depth;
    std::uint32_t first, last;       ///< range in Photons, `last` excluded
    bool          is_small = false;  ///< the box is a leaf by size; what is below it only speeds up its search

    std::uint32_t Count() const { return last - first; }
};

/// A plane that cuts the box of a task, and the photons to its sides.
struct Plane {
    int           axis  = 0;
    float         split = 0.0f;
    std::uint32_t left = 0, right = 0;
    bool          is_found = false;
};

void MakeLeaf(const BuildTask& task)
{
    const std::lock_guard lock(task.builder->node_lock);
    KdNode&               node = KdNodes[task.node];
    node.child                 = task.first;
    node.count                 = task.Count();
}

/// Adds children to the node of a task and returns the first of them; kNone where memory runs out.
std::uint32_t AddChildren(const BuildTask& task, const Plane& plane, KdShape shape)
{
    const std::lock_guard lock(task.builder->node_lock);
    const auto            child = static_cast<std::uint32_t>(KdNodes.size());
    const std::size_t     count = KdNodes.size() + (shape == KdShape::Both ? 2 : 1);
    try {  // no exception may leave a thread
        KdDirections.resize(count);
        KdNodes.resize(count);
    } catch (const std::bad_alloc&) {
        return kNone;
    }
    KdNode& node = KdNodes[task.node];
    node.child   = child;
    node.split   = plane.split;
    node.axis    = static_cast<std::uint8_t>(plane.axis);
    node.shape   = shape;
    return child;
}

int LargestExtent(Vector extent)
{
    if (extent.z > std::max(extent.x, extent.y)) return 2;
    return extent.y > extent.x ? 1 : 0;
}

void CountBins(const BuildTask& task, int axis, float low, float extent, std::uint32_t (&bins)[kBins])
{
    const float scale = static_cast<float>(kBins) / extent;
    for (std::uint32_t i = task.first; i < task.last; ++i)
        ++bins[ClampToInt(scale * (Photons[i].position[axis] - low), 0, kBins - 1)];
}

/// The cheapest of the 16 planes between the bins: half the area of each side times its photons (the surface area
/// heuristic of MacDonald and Booth 1990). The first of equal ones wins.
Plane FindPlane(const BuildTask& task)
{
    const Vector  extent = task.box.max - task.box.min;
    const int     axis   = LargestExtent(extent);
    const float   low = task.box.min[axis], length = extent[axis];
    std::uint32_t bins[kBins] = {};
    CountBins(task, axis, low, length, bins);

    const float   e1 = std::max(extent[(axis + 1) % 3], 0.0f), e2 = std::max(extent[(axis + 2) % 3], 0.0f);
    const auto    half_area = [&](float side) { return (e1 + e2) * std::max(side, 0.0f) + e1 * e2; };
    Plane         best;
    float         best_cost = kFarAway;
    std::uint32_t left      = 0;
    for (int j = 1; j < kBins; ++j) {
        left += bins[j - 1];
        const std::uint32_t right = task.Count() - left;
        const float         split = low + length * static_cast<float>(j) / static_cast<float>(kBins);
        const float         cost  = static_cast<float>(left) * half_area(split - low) +
                           static_cast<float>(right) * half_area(task.box.max[axis] - split);
        if (!(cost < best_cost)) continue;
        best_cost = cost;
        best      = {axis, split, left, right, true};
    }
    return best;
}

Box Lower(Box box, const Plane& plane)
{
    box.max[plane.axis] = plane.split;
    return box;
}

Box Upper(Box box, const Plane& plane)
{
    box.min[plane.axis] = plane.split;
    return box;
}

/// Brings the photons below the plane to the front and returns where the others begin. Does what sorting along the axis
/// would do to the ranges, as far as the tree can tell: the last photon of the range stays where it is, on the upper
/// side, and the highest of the lower photons becomes the last of theirs, which takes no part in the next split. Inside
/// a small box, which stands for a leaf, all photons take part, so that a search finds what it would find in the leaf.
std::uint32_t Split(const BuildTask& task, const Plane& plane)
{
    const auto at     = [&plane](const Photon& photon) { return photon.position[plane.axis]; };
    const auto first  = Photons.begin() + task.first;
    const auto middle = std::partition(first, Photons.begin() + (task.is_small ? task.last : task.last - 1),
                                       [&](const Photon& photon) { return at(photon) < plane.split; });
    if (middle != first && !task.is_small)
        std::iter_swap(std::max_element(first, middle, [&](const Photon& a, const Photon& b) { return at(a) < at(b); }),
                       middle - 1);
    return static_cast<std::uint32_t>(middle - Photons.begin());
}

void BuildNode(BuildTask task);

/// Builds one of two sides on a thread of its own, if there may be one more.
std::thread StartSide(const BuildTask& task)
{
    Builder& builder = *task.builder;
    if (builder.threads.fetch_add(1) < builder.thread_limit) {
        try {
            return std::thread([task, &builder] {
                BuildNode(task);
                builder.threads.fetch_sub(1);
            });
        } catch (const std::exception&) {
            // The system has no thread to give: the side is built by its caller.
        }
    }
    builder.threads.fetch_sub(1);
    return {};
}

void BuildSides(const BuildTask& left, const BuildTask& right, const Plane& plane)
{
    const bool       left_is_more = plane.left > plane.right;
    const BuildTask &more = left_is_more ? left : right, &less = left_is_more ? right : left;
    const bool       spawns = left.depth <= kSpawnDepth && plane.left > kSpawnPhotons && plane.right > kSpawnPhotons;
    std::thread      other  = spawns ? StartSide(more) : std::thread();
    if (!other.joinable()) BuildNode(more);
    BuildNode(less);
    if (other.joinable()) other.join();
}

/// Meant: a box below a quarter of the radius is not split, however many photons it holds. Searching thousands of them
/// one by one would take the render's time, so it is split all the same, but exactly.
void BuildNode(BuildTask task)
{
    const Vector size   = task.box.max - task.box.min;
    const float  extent = std::max(size.x, std::max(size.y, size.z));
    task.is_small       = task.is_small || extent < 0.25f * Settings.Radius;
    if (task.Count() <= kLeafPhotons || task.depth >= kKdDepthLimit || (task.is_small && !(extent > 0.0f)))
        return MakeLeaf(task);
    const Plane plane = FindPlane(task);
    if (!plane.is_found) return MakeLeaf(task);

    const auto child_task = [&task](const Box& box, std::uint32_t node, std::uint32_t first, std::uint32_t last) {
        return BuildTask{task.builder, box, node, task.depth + 1, first, last, task.is_small};
    };
    if (plane.left == 0 || plane.right == 0) {
        const bool          to_right = plane.left == 0;
        const std::uint32_t child    = AddChildren(task, plane, to_right ? KdShape::RightOnly : KdShape::LeftOnly);
        if (child == kNone) return MakeLeaf(task);
        const Box box = to_right ? Upper(task.box, plane) : Lower(task.box, plane);
        return BuildNode(child_task(box, child, task.first, task.last));
    }
    const std::uint32_t child = AddChildren(task, plane, KdShape::Both);
    if (child == kNone) return MakeLeaf(task);
    const std::uint32_t middle = Split(task, plane);
    BuildSides(child_task(Lower(task.box, plane), child, task.first, middle),
               child_task(Upper(task.box, plane), child + 1, middle, task.last), plane);
}

// ---- Where the photons of a node came from ----

std::int8_t RoundDown(float x) { return static_cast<std::int8_t>(std::floor(x * 127.0f)); }
std::int8_t RoundUp(float x) { return static_cast<std::int8_t>(std::ceil(x * 127.0f)); }

/// Nothing yet: the first union replaces it.
constexpr DirectionBounds kNoDirections{{127, 127, 127}, {-127, -127, -127}};

void Grow(DirectionBounds& bounds, const DirectionBounds& other)
{
    for (int i = 0; i < 3; ++i) {
        bounds.low[i]  = std::min(bounds.low[i], other.low[i]);
        bounds.high[i] = std::max(bounds.high[i], other.high[i]);
    }
}

DirectionBounds LeafDirections(const KdNode& leaf)
{
    DirectionBounds bounds = kNoDirections;
    for (std::uint32_t i = leaf.child; i < leaf.child + leaf.count; ++i) {
        const Vector d = DecodeDirection(Photons[i].direction);
        Grow(bounds, {{RoundDown(d.x), RoundDown(d.y), RoundDown(d.z)}, {RoundUp(d.x), RoundUp(d.y), RoundUp(d.z)}});
    }
    return bounds;
}

/// Children stand behind their parents, so one pass from the end meets them first.
void FillDirections()
{
    for (std::size_t i = KdNodes.size(); i-- > 0;) {
        const KdNode& node = KdNodes[i];
        KdDirections[i]    = node.shape == KdShape::Leaf ? LeafDirections(node) : KdDirections[node.child];
        if (node.shape == KdShape::Both) Grow(KdDirections[i], KdDirections[node.child + 1]);
    }
}

}  // namespace

std::uint16_t EncodeDirection(Vector v)
{
    v                   = Normalized(v);
    const Vector size   = {std::fabs(v.x), std::fabs(v.y), std::fabs(v.z)};
    const int    axis   = LargestExtent(size);
    unsigned     octant = 0;
    for (int i = 0; i < 3; ++i)
        if (v[i] < 0.0f) octant |= static_cast<unsigned>(kOctantBit[i]);
    const auto ratio = [&](int i) {
        return static_cast<unsigned>(size[axis] > 0.0f ? ClampToInt(32.0f * size[i] / size[axis], 0, 31) : 0);
    };
    return static_cast<std::uint16_t>(static_cast<unsigned>(axis + 1) | octant << 2 | ratio((axis + 2) % 3) << 5 |
                                      ratio((axis + 1) % 3) << 10);
}

Vector DecodeDirection(std::uint16_t packed) { return Normalized(UnpackedDirection(packed)); }

void BuildPhotonTree()
{
    SetRadius(Settings.Radius);
    KdNodes.clear();
    KdDirections.clear();
    if (!Photons.empty()) {
        PhotonBox = {};
        for (const Photon& photon : Photons) Grow(PhotonBox, photon.position);
        KdDirections.resize(1);
        KdNodes.resize(1);
        Builder builder;
        BuildNode({&builder, PhotonBox, 0, 0, 0, static_cast<std::uint32_t>(Photons.size())});
    }
    FillDirections();
    for (int thread = 0; thread < kMaxThreads; ++thread) ForgetLastLookup(thread);
    const auto count = static_cast<std::int64_t>(Photons.size());
    ReportStatistic("photons", count, count * static_cast<std::int64_t>(sizeof(Photon)));
    PrintRule();
}

void ReleasePhotons()
{
    Photons.clear();
    KdNodes.clear();
    KdDirections.clear();
}

}  // namespace hv
