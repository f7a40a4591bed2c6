// The hierarchy of one object: bounds, binary tree, rotations, wide tree and the order of lanes. Laws are checked on
// soups of all primitive kinds and on degenerate input; rotations are compared with a search of all trees.

#include "accel_scenes.h"
#include "session/console.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <map>

namespace hv {
namespace {

const Vector kNanPoint{std::nanf(""), 0, 0};

PrimitiveRef Ref(PrimitiveKind kind, std::uint32_t index, std::uint16_t part = 0)
{
    return {part, static_cast<std::uint16_t>(kind), index};
}

void AddTriangle(Part& part, Vector p0, Vector p1, Vector p2)
{
    const auto base = static_cast<std::uint32_t>(part.positions.size());
    part.positions.insert(part.positions.end(), {p0, p1, p2});
    part.triangles.push_back({base, base + 1, base + 2, 0});
}

void AddParticle(Part& part, Vector center, float radius)
{
    part.scalars[0].values.resize(part.positions.size());
    part.particles.push_back(static_cast<std::uint32_t>(part.positions.size()));
    part.positions.push_back(center);
    part.scalars[0].values.push_back(radius);
}

/// All kinds of primitives, and instances of Objects[0].
Object MixedSoup(int count, unsigned seed)
{
    Random random(seed);
    Object object;
    FillSoup(object, Soup::Scattered, count, random);
    for (int i = 0; i < 9; ++i) {
        Instance& instance = object.instances.emplace_back();
        instance.object    = 0;
        for (int axis = 0; axis < 3; ++axis) instance.matrix.m[4 * axis + 3] = Uniform(random, -10, 10);
    }
    return object;
}

using RefKey = std::array<std::uint32_t, 3>;
RefKey KeyOf(const PrimitiveRef& ref) { return {ref.part, ref.kind, ref.index}; }

Box LaneBox(const WideNode& node, int k)
{
    return {{node.minX[k], node.minY[k], node.minZ[k]}, {node.maxX[k], node.maxY[k], node.maxZ[k]}};
}

/// Walks the wide tree, reading it as a ray does.
struct WideWalk {
    const Object&         object;
    std::map<RefKey, int> seen;
    std::vector<int>      node_visits;
    std::uint32_t         depth = 0;

    void Leaf(const Box& box, std::uint32_t first, std::uint32_t count)
    {
        std::uint32_t lane = first % kBlockLength;
        for (std::uint32_t block = first / kBlockLength; count > 0; ++block, lane = 0) {
            ASSERT_LT(block, object.leafBlocks.size());
            const LeafBlock& packed = object.leafBlocks[block];
            ASSERT_GT(packed.used, lane);
            for (; lane < packed.used && count > 0; ++lane, --count) {
                const PrimitiveRef& ref = object.wideRefs[kBlockLength * block + lane];
                ASSERT_TRUE(Contains(box, PrimitiveBounds(object, ref)));
                ++seen[KeyOf(ref)];
            }
        }
    }

    Box Node(std::uint32_t index, std::uint32_t level)
    {
        Box whole;
        depth = std::max(depth, level);
        ++node_visits[index];
        const WideNode& node = object.wideNodes[index];
        for (int k = 0; k < 8; ++k) {
            const Box box = LaneBox(node, k);
            if (node.first[k] == kNone) {
                EXPECT_EQ(box, Box{});
                EXPECT_EQ(node.count[k], 0);
                continue;
            }
            Grow(whole, box);
            if (node.count[k] > 0)
                Leaf(box, node.first[k], node.count[k]);
            else
                EXPECT_EQ(Node(node.first[k], level + 1), box);
        }
        return whole;
    }
};

/// Every usable reference stands in the wide tree exactly once, in lanes that enclose it and what is below them.
void CheckWide(const Object& object)
{
    ASSERT_GE(object.wideNodes.size(), 1u);
    ASSERT_EQ(object.wideVisits.size(), object.wideNodes.size());
    ASSERT_EQ(object.leafBlocks.size() * kBlockLength, object.wideRefs.size());
    WideWalk walk{object, {}, std::vector<int>(object.wideNodes.size()), 0};
    EXPECT_EQ(walk.Node(0, 0), object.box);
    EXPECT_EQ(walk.depth, object.wideDepth);
    for (const int visits : walk.node_visits) ASSERT_EQ(visits, 1);
    const std::vector<PrimitiveRef> refs = UsableRefs(object);
    ASSERT_EQ(walk.seen.size(), refs.size());
    for (const PrimitiveRef& ref : refs) ASSERT_EQ(walk.seen[KeyOf(ref)], 1);
}

/// Boxes, costs and sums of the binary tree by their definitions; sum of areas against the object's cost.
void CheckBinary(const Object& object)
{
    double area_sum = 0;
    for (const BinaryNode& node : object.binaryNodes) {
        Box           box;
        double        cost = 0;
        std::uint32_t sum  = 0;
        for (std::uint32_t i = 0; i < node.count; ++i)
            Grow(box, PrimitiveBounds(object, object.binaryRefs[node.first + i]));
        for (std::uint32_t i = node.first; node.count == 0 && i < node.first + 2; ++i) {
            Grow(box, object.binaryNodes[i].box);
            cost += static_cast<double>(object.binaryNodes[i].cost);
            sum += object.binaryNodes[i].sum;
        }
        ASSERT_EQ(node.box, box);
        ASSERT_EQ(node.sum, node.count > 0 ? node.count : sum);
        const double own = static_cast<double>(HalfArea(box)) * std::max<int>(node.count, 1);
        ASSERT_NEAR(static_cast<double>(node.cost), own + cost, 1e-5 * (own + cost));
        area_sum += own;
    }
    EXPECT_NEAR(object.cost, area_sum, 1e-9 * area_sum);
}

class Hierarchy : public testing::Test {
protected:
    void SetUp() override
    {
        SetReport(false);
        Object& target    = Objects.emplace_back();
        target.box        = {{-1, -2, -3}, {1, 2, 3}};
        target.isPrepared = true;
    }
    void TearDown() override
    {
        Objects.clear();
        SetReport(true);
    }
};

TEST_F(Hierarchy, BoundsOfEachKind)
{
    Object object;
    Part&  part            = object.parts.emplace_back();
    part.positions         = {{1, 2, 3}, {4, 0, -1}, {2, 5, 0}, {0, 1, 9}, kNanPoint, {kFarAway * 2, 0, 0}};
    part.scalars[0].values = {0.5f, 0, -2, std::numeric_limits<float>::infinity()};
    part.particles         = {0, 2, 3, 4, 5, 6, kNone};
    part.triangles         = {{0, 1, 2, 0}, {0, 1, 4, 0}, {0, 1, 6, 0}};
    part.tetragons         = {{0, 1, 2, 3, 0}, {0, 4, 2, 3, 0}};
    part.cylinders         = {2, 3, 5, kNone};
    object.instances.resize(1);
    const struct {
        PrimitiveKind kind;
        unsigned      usable;  ///< so many of `all` come first
        unsigned      all;
        Box           box;  ///< of the last usable one
    } cases[] = {
        {PrimitiveKind::Particle, 2, 8, {{0, 3, -2}, {4, 7, 2}}},  // a sphere has no sign
        {PrimitiveKind::Triangle, 1, 4, {{1, 0, -1}, {4, 5, 3}}},
        {PrimitiveKind::Tetragon, 1, 3, {{0, 0, -1}, {4, 5, 9}}},
        {PrimitiveKind::Cylinder, 1, 5, {{-2, -1, -2}, {4, 7, 11}}},  // no tangents: monotone on each axis
        {PrimitiveKind::Instance, 0, 2, {}},
        {PrimitiveKind::None, 0, 1, {}},
    };
    for (const auto& c : cases)
        for (unsigned i = 0; i < c.all; ++i) {
            EXPECT_EQ(IsUsable(object, Ref(c.kind, i)), i < c.usable) << static_cast<int>(c.kind) << " " << i;
            if (i + 1 == c.usable) {
                EXPECT_EQ(PrimitiveBounds(object, Ref(c.kind, i)), c.box);
            }
        }
}

TEST_F(Hierarchy, InstancesTakeTheirTargetsBox)
{
    Instance instance;
    instance.object      = 0;
    instance.matrix.m[0] = 0, instance.matrix.m[1] = -2, instance.matrix.m[4] = 1,
    instance.matrix.m[5]  = 0;  // x' = -2 y, y' = x
    instance.matrix.m[11] = 10;
    ASSERT_TRUE(RefreshInstance(instance));
    EXPECT_EQ(instance.box, (Box{{-4, -1, 7}, {4, 1, 13}}));
    EXPECT_EQ(instance.directionMatrix, (Matrix3{{0, 1, 0, -0.5f, 0, 0, 0, 0, 1}}));
    EXPECT_EQ(instance.normalMatrix, Transposed(instance.directionMatrix));
    Instance projective;
    projective.object       = 0;
    projective.matrix.m[15] = 2;
    ASSERT_TRUE(RefreshInstance(projective));
    EXPECT_EQ(projective.box, (Box{{-0.5f, -1, -1.5f}, {0.5f, 1, 1.5f}}));

    const std::pair<const char*, std::function<void(Instance&)>> failures[] = {
        {"singular", [](Instance& i) { i.matrix.m[10] = 0; }},
        {"not a number", [](Instance& i) { i.matrix.m[3] = std::nanf(""); }},
        {"a corner at infinity", [](Instance& i) { i.matrix.m[12] = 1; }},
        {"no such target", [](Instance& i) { i.object = 1; }},
        {"unresolved", [](Instance& i) { i.object = kNone; }},
        {"empty target", [](Instance&) { Objects[0].box = {}; }},
        {"unprepared target", [](Instance&) { Objects[0].isPrepared = false; }},
    };
    for (const auto& [name, damage] : failures) {
        const Object kept = Objects[0];
        Instance     bad;
        bad.object = 0;
        damage(bad);
        EXPECT_FALSE(RefreshInstance(bad)) << name;
        EXPECT_EQ(bad.box, Box{}) << name;
        Objects[0] = kept;
    }
}

TEST_F(Hierarchy, SoupsKeepAllLaws)
{
    for (const int count : {2, 3, 9, 100, 5000}) {
        for (unsigned seed = 0; seed < 3; ++seed) {
            Object object = MixedSoup(count, seed);
            Prepare(object);
            CheckBinary(object);
            CheckWide(object);
            SortWideLanes(object);
            CheckWide(object);
            for (const WideNode& node : object.wideNodes)
                for (int k = 0; k < 7; ++k) EXPECT_GE(HalfArea(LaneBox(node, k)), HalfArea(LaneBox(node, k + 1)));
        }
    }
}

TEST_F(Hierarchy, DegenerateInputKeepsAllLaws)
{
    const auto coincident = [](Object& o, int count) {
        for (int i = 0; i < count; ++i) AddTriangle(o.parts[0], {0, 0, 0}, {1, 0, 0}, {0, 1, 1});
    };
    const auto spheres = [](Object& o, int count, Vector (*center)(float), float radius) {
        for (int i = 0; i < count; ++i) AddParticle(o.parts.back(), center(static_cast<float>(i)), radius);
    };
    const auto row     = [](float i) { return Vector{20 * i, 0, 0}; };
    const auto columns = [](float i) { return Vector{std::fmod(i, 20.0f), 0, 0}; };
    const auto powers  = [](float i) { return Vector{std::exp2(i - 120), 0, 0}; };
    const auto huge    = [](float i) { return Vector{i < 25 ? 3e38f : -3e38f, i, 0}; };
    const auto nowhere = [](float) { return kNanPoint; };
    const std::pair<const char*, std::function<void(Object&)>> cases[] = {
        {"nothing", [](Object&) {}},
        {"one primitive", [&](Object& o) { spheres(o, 1, row, 0.5f); }},
        {"twins", [&](Object& o) { coincident(o, 2); }},
        {"coincident", [&](Object& o) { coincident(o, 3000); }},
        {"more coincident than a count holds, among larger",
         [&](Object& o) {
             coincident(o, 140000);
             o.parts.emplace_back();
             spheres(o, 20, row, 8);
         }},
        {"points", [&](Object& o) { spheres(o, 300, columns, 0); }},
        {"powers", [&](Object& o) { spheres(o, 240, powers, 0); }},
        {"huge", [&](Object& o) { spheres(o, 50, huge, 1); }},
        {"only instances", [](Object& o) { o.instances = MixedSoup(0, 5).instances; }},
        {"unusable among usable",
         [](Object& o) {
             o = MixedSoup(600, 3);
             for (std::size_t i = 0; i < o.parts[1].positions.size(); i += 7) o.parts[1].positions[i] = kNanPoint;
             o.parts[0].triangles[3].i1 = 1u << 30;
             o.instances[4].object      = 77;
         }},
        {"only unusable", [&](Object& o) { spheres(o, 9, nowhere, 1); }},
    };
    for (const auto& [name, fill] : cases) {
        SCOPED_TRACE(name);
        Object object;
        object.parts.resize(1);
        fill(object);
        Prepare(object);
        if (std::strcmp(name, "huge") != 0) CheckBinary(object);  // its areas are infinite
        CheckWide(object);
    }
}

template <class T>
bool SameBytes(const T& a, const T& b)
{
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(a[0])) == 0;
}

TEST_F(Hierarchy, ResultDoesNotDependOnThreads)
{
    const int    threads_before = omp_get_max_threads();
    const Object source         = MixedSoup(150000, 11);
    Object       first;
    for (const int threads : {1, 2, 8}) {
        SCOPED_TRACE(threads);
        omp_set_num_threads(threads);
        Object object = source;
        Prepare(object);
        SortWideLanes(object);
        if (threads == 1) {
            CheckWide(object);
            first = object;
        }
        EXPECT_EQ(object.cost, first.cost);
        EXPECT_EQ(object.wideDepth, first.wideDepth);
        EXPECT_EQ(object.wideRefs, first.wideRefs);
        EXPECT_TRUE(SameBytes(object.wideNodes, first.wideNodes));
        EXPECT_TRUE(SameBytes(object.leafBlocks, first.leafBlocks));
    }
    omp_set_num_threads(threads_before);
}

/// Least cost of any binary tree over the leaves in `set`.
float LeastCost(const std::vector<Box>& leaves, unsigned set)
{
    Box whole;
    for (unsigned i = 0; i < leaves.size(); ++i)
        if ((set >> i & 1) != 0) Grow(whole, leaves[i]);
    float best = kFarAway;
    for (unsigned part = (set - 1) & set; part != 0; part = (part - 1) & set)
        best = std::min(best, LeastCost(leaves, part) + LeastCost(leaves, set & ~part));
    return HalfArea(whole) + (best == kFarAway ? 0.0f : best);
}

/// A tree over three or four particles: 0 is the root; shape 0 has two pairs, 1 and 2 a pair on the left or right.
Object FamilyTree(const std::vector<Box>& leaves, int shape)
{
    Object object;
    Part&  part = object.parts.emplace_back();
    for (std::size_t i = 0; i < leaves.size(); ++i) {
        AddTriangle(part, leaves[i].min, leaves[i].max, leaves[i].min);
        object.binaryRefs.push_back(Ref(PrimitiveKind::Triangle, static_cast<std::uint32_t>(i)));
    }
    const auto inner = [](std::uint32_t first) { return BinaryNode{{}, first, 0, 0, 0}; };
    const auto leaf  = [](std::uint32_t first) { return BinaryNode{{}, first, 1, 0, 0}; };
    if (shape == 0) object.binaryNodes = {inner(1), inner(3), inner(5), leaf(0), leaf(1), leaf(2), leaf(3)};
    if (shape == 1) object.binaryNodes = {inner(1), inner(3), leaf(0), leaf(1), leaf(2)};
    if (shape == 2) object.binaryNodes = {inner(1), leaf(0), inner(3), leaf(1), leaf(2)};
    for (std::size_t level = CollectLevels(object); level-- > 0;)
        for (const std::uint32_t node : object.levelNodes[level]) RefitNode(object, node);
    return object;
}

// The candidates of a rotation are all the trees over its three or four leaves, so the result is the best of them.
TEST_F(Hierarchy, RotationFindsTheBestTreeOfAFamily)
{
    Random random(31);
    for (int round = 0; round < 3000; ++round) {
        const int        shape = round % 3;
        std::vector<Box> leaves(shape == 0 ? 4 : 3);
        for (Box& leaf : leaves) {
            leaf.min = PointIn(random, 0, 4);
            leaf.max = leaf.min + PointIn(random, 0, round % 2 == 0 ? 1.0f : 4.0f);
        }
        Object object = FamilyTree(leaves, shape);
        RotateNode(object, 0);
        const float best = LeastCost(leaves, (1u << leaves.size()) - 1);
        ASSERT_NEAR(object.binaryNodes[0].cost, best, 1e-5f * best) << "shape " << shape;
        PropagateSum(object);
        std::uint32_t leaf_refs = 0;
        for (const BinaryNode& node : object.binaryNodes) {
            object.cost += static_cast<double>(HalfArea(node.box));
            if (node.count > 0) leaf_refs |= 1u << node.first;
        }
        CheckBinary(object);
        EXPECT_EQ(leaf_refs, (1u << leaves.size()) - 1);
    }
}

TEST_F(Hierarchy, MotionEndsAfterAllFrames)
{
    Object       object = MixedSoup(2000, 51);
    const Object source = object;
    Random       random(52);
    object.hasMotion = true;
    for (std::size_t p = 0; p < 2; ++p) {  // the strands stay, the second part has motion for half of its vertices
        Part& part     = object.parts[p];
        part.hasMotion = true;
        part.vectors.push_back({"motion", {}});
        part.vectors.push_back({"motions", {part.positions.size(), Vector{5, 5, 5}}});
        for (std::size_t i = 0; i < part.positions.size() / (p + 1); ++i)
            part.vectors[0].values.push_back(PointIn(random, -8, 8));
    }
    Prepare(object, 4);
    const std::size_t node_count = object.binaryNodes.size();
    for (int frame = 1; frame < 4; ++frame) {
        Objects[0].box.max.x += 3;  // what an instance places moves, too
        Update(object, false, 4);
        for (const Instance& instance : object.instances)
            EXPECT_NEAR(instance.box.max.x - instance.box.min.x, static_cast<float>(2 + 3 * frame), 1e-4f);
        CheckBinary(object);
        CheckWide(object);
        EXPECT_EQ(object.binaryNodes.size(), node_count);
    }
    for (std::size_t p = 0; p < 3; ++p) {
        for (std::size_t i = 0; i < object.parts[p].positions.size(); ++i) {
            const Part&  part   = object.parts[p];
            const bool   moves  = p < 2 && i < part.vectors[0].values.size();
            const Vector motion = moves ? part.vectors[0].values[i] : Vector{};
            const Vector error  = part.positions[i] - (source.parts[p].positions[i] + motion);
            ASSERT_LT(Dot(error, error), 1e-9f);
        }
    }
}

TEST_F(Hierarchy, TunedLanesComeMostVisitedAndCheapestFirst)
{
    struct LaneIn {
        std::uint32_t first, count, visits;
    };
    // Node 1: keys 1/8 and 3/4; expected cost 1 + 0.8 (1 + 1/4 2) = 2.2. Node 0: keys 1/16, 1/4, 1/2 / 2.2 and 0.
    // Node 2 has no visits and stays as it was.
    const std::vector<LaneIn> before[] = {
        {{40, 4, 10}, {44, 1, 10}, {1, 0, 0}, {2, 0, 0}}, {{48, 2, 5}, {52, 1, 15}}, {{56, 3, 0}, {60, 1, 0}}};
    const std::vector<int> order[] = {{1, 2, 0, 3}, {1, 0}, {0, 1}};
    Object                 object;
    object.wideNodes.resize(3);
    object.wideVisits.resize(3);
    for (std::size_t n = 0; n < 3; ++n)
        for (std::size_t k = 0; k < 8; ++k) {
            const LaneIn lane            = k < before[n].size() ? before[n][k] : LaneIn{kNone, 0, 0};
            object.wideNodes[n].first[k] = lane.first;
            object.wideNodes[n].count[k] = static_cast<std::uint16_t>(lane.count);
            object.wideNodes[n].minX[k]  = static_cast<float>(k);
            object.wideVisits[n][k]      = lane.visits;
        }
    TuneChildOrder(object);
    for (std::size_t n = 0; n < 3; ++n)
        for (std::size_t k = 0; k < order[n].size(); ++k) {
            const LaneIn& lane = before[n][static_cast<std::size_t>(order[n][k])];
            EXPECT_EQ(object.wideNodes[n].first[k], lane.first) << n << " " << k;
            EXPECT_EQ(object.wideNodes[n].count[k], lane.count);
            EXPECT_EQ(object.wideNodes[n].minX[k], static_cast<float>(order[n][k]));
        }
}

}  // namespace
}  // namespace hv
