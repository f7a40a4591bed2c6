// The hierarchy of one object: bounds, binary tree, wide tree and the order of lanes. Laws are checked on soups of all
// primitive kinds and on degenerate input.

#include "accel_scenes.h"
#include "session/console.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <map>

namespace hv {
namespace {

const Vector kNanPoint{std::nanf(""), 0, 0};

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

Box LaneBox(const LaneBoxes& node, int k)
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

/// Walks the curve tree down from a node; returns its number of levels below. `seen` counts the curves.
std::uint32_t WalkCurveNode(const Object& object, std::uint32_t index, std::vector<int>& node_visits,
                            std::map<RefKey, int>& seen)
{
    const CurveNode& node   = object.curveNodes[index];
    std::uint32_t    levels = 0;
    ++node_visits[index];
    for (int k = 0; k < 8; ++k) {
        if (node.first[k] == kNone) {
            EXPECT_EQ(LaneBox(node, k), Box{});
        } else if (node.count[k] == 0) {
            levels = std::max(levels, 1 + WalkCurveNode(object, node.first[k], node_visits, seen));
        }
        for (std::uint32_t i = 0; i < node.count[k]; ++i) {
            const CurveBundle& bundle = object.curveBundles[node.first[k] + i / 8];
            const PlacedCurve& curve  = object.curves[bundle.first + i % 8];
            const PrimitiveRef ref{curve.part, static_cast<std::uint16_t>(PrimitiveKind::Cylinder), curve.index};
            EXPECT_TRUE(Contains(LaneBox(node, k), PrimitiveBounds(object, ref)));
            ++seen[KeyOf(ref)];
        }
    }
    return levels;
}

/// Every usable cylinder stands in the curve tree exactly once, in a lane that encloses it.
void CheckCurves(const Object& object)
{
    std::vector<int>      node_visits(object.curveNodes.size());
    std::map<RefKey, int> seen;
    const std::uint32_t   depth = node_visits.empty() ? 0 : WalkCurveNode(object, 0, node_visits, seen);
    EXPECT_EQ(depth, object.curveDepth);
    for (const int visits : node_visits) ASSERT_EQ(visits, 1);
    std::size_t count = 0;
    for (const PrimitiveRef& ref : UsableRefs(object)) {
        if (ref.kind != static_cast<std::uint16_t>(PrimitiveKind::Cylinder)) continue;
        ++count;
        ASSERT_EQ(seen[KeyOf(ref)], 1);
    }
    EXPECT_EQ(seen.size(), count);
    EXPECT_EQ(object.curves.size(), count);
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

struct Hierarchy : testing::Test {
    Hierarchy()
    {
        SetReport(false);
        Object& target    = Objects.emplace_back();
        target.box        = {{-1, -2, -3}, {1, 2, 3}};
        target.isPrepared = true;
    }
    ~Hierarchy() override
    {
        Objects.clear();
        SetReport(true);
    }
};

TEST_F(Hierarchy, InstancesTakeTheirTargetsBox)
{
    Instance instance;
    instance.object = 0;
    instance.matrix = {{0, -2, 0, 0, 1, 0, 0, 0, 0, 0, 1, 10, 0, 0, 0, 1}};  // x' = -2 y, y' = x
    ASSERT_TRUE(RefreshInstance(instance));
    EXPECT_EQ(instance.box, (Box{{-4, -1, 7}, {4, 1, 13}}));
    EXPECT_EQ(instance.directionMatrix, (Matrix3{{0, 1, 0, -0.5f, 0, 0, 0, 0, 1}}));
    EXPECT_EQ(instance.normalMatrix, Transposed(instance.directionMatrix));

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
    double cost = 0.0;
    for (const int count : {2, 3, 9, 100, 5000}) {
        for (unsigned seed = 0; seed < 3; ++seed) {
            Object object = MixedSoup(count, seed);
            Prepare(object);
            CheckBinary(object);
            CheckWide(object);
            CheckCurves(object);
            SortWideLanes(object);
            CheckWide(object);
            for (const WideNode& node : object.wideNodes)
                for (int k = 0; k < 7; ++k) EXPECT_GE(HalfArea(LaneBox(node, k)), HalfArea(LaneBox(node, k + 1)));
            cost = object.cost / static_cast<double>(HalfArea(object.box));
        }
    }
    EXPECT_LT(cost, 5.6) << "of the last soup, which is 5.50; without rotations it is 5.77";
}

TEST_F(Hierarchy, DegenerateInputKeepsAllLaws)
{
    const auto coincident = [](Object& o, int count) {
        for (int i = 0; i < count; ++i) AddTriangle(o.parts[0], {0, 0, 0}, {1, 0, 0}, {0, 1, 1});
    };
    const auto spheres = [](Object& o, int count, float radius, Vector (*center)(float)) {
        for (int i = 0; i < count; ++i) AddParticle(o.parts.back(), center(static_cast<float>(i)), radius);
    };
    const std::pair<const char*, std::function<void(Object&)>> cases[] = {
        {"nothing", [](Object&) {}},
        {"one primitive", [&](Object& o) { coincident(o, 1); }},
        {"twins", [&](Object& o) { coincident(o, 2); }},
        {"more coincident than a count holds, among larger",
         [&](Object& o) {
             coincident(o, 140000);
             o.parts.emplace_back();
             spheres(o, 20, 8, [](float i) { return Vector{20 * i, 0, 0}; });
         }},
        {"points", [&](Object& o) { spheres(o, 300, 0, [](float i) {
                                        return Vector{std::fmod(i, 20.0f), 0, 0};
                                    }); }},
        {"powers", [&](Object& o) { spheres(o, 240, 0, [](float i) {
                                        return Vector{std::exp2(i - 120), 0, 0};
                                    }); }},
        {"huge", [&](Object& o) { spheres(o, 50, 1, [](float i) {
                                      return Vector{i < 25 ? 3e38f : -3e38f, i, 0};
                                  }); }},
        {"unusable among usable",
         [](Object& o) {
             o = MixedSoup(600, 3);
             for (std::size_t i = 0; i < o.parts[1].positions.size(); i += 7) o.parts[1].positions[i] = kNanPoint;
             o.parts[0].triangles[3].i1      = 1u << 30;
             o.parts[0].tetragons[3].i2      = kNone;
             o.parts[1].scalars[0].values[3] = std::numeric_limits<float>::infinity();
             o.parts[1].scalars[0].values[8] = 1e30f;  // its area overflows
             o.parts[1].particles[4]         = kNone;
             o.parts[2].cylinders[5]         = kNone;
             o.instances[4].object           = 77;
             EXPECT_EQ(UsableRefs(o).size() + 17, UsableRefs(MixedSoup(600, 3)).size());  // 11 of them no numbers
         }},
        {"only unusable", [&](Object& o) { spheres(o, 9, 1, [](float) { return kNanPoint; }); }},
    };
    for (const auto& [name, fill] : cases) {
        SCOPED_TRACE(name);
        Object object;
        object.parts.resize(1);
        fill(object);
        Prepare(object);
        CheckBinary(object);
        CheckWide(object);
        CheckCurves(object);
    }
}

template <class T>
bool SameBytes(const T& a, const T& b)
{
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(a[0])) == 0;
}

TEST_F(Hierarchy, ResultDoesNotDependOnThreads)
{
    const int threads_before = omp_get_max_threads();
    Object    source         = MixedSoup(100000, 11);
    Random    random(12);
    Part&     moving = source.parts[0];
    source.hasMotion = moving.hasMotion = true;
    moving.vectors.push_back({"motion", {}});
    for (const Vector& p : moving.positions)
        moving.vectors[0].values.push_back(0.2f * p + 0.1f * PointIn(random, -1, 1));
    Object built, moved;
    for (const int threads : {1, 2, 7}) {
        SCOPED_TRACE(threads);
        omp_set_num_threads(threads);
        const auto check = [threads](const Object& object, Object& first) {
            if (threads == 1) {
                CheckWide(object);
                CheckCurves(object);
                first = object;
            }
            EXPECT_EQ(object.cost, first.cost);
            EXPECT_EQ(object.wideDepth, first.wideDepth);
            EXPECT_EQ(object.wideRefs, first.wideRefs);
            EXPECT_TRUE(SameBytes(object.wideNodes, first.wideNodes));
            EXPECT_TRUE(SameBytes(object.leafBlocks, first.leafBlocks));
            EXPECT_TRUE(SameBytes(object.curveNodes, first.curveNodes));
            EXPECT_TRUE(SameBytes(object.curveBundles, first.curveBundles));
        };
        Object object = source;
        Prepare(object, 8);
        SortWideLanes(object);
        check(object, built);
        for (int frame = 0; frame < 2; ++frame) Update(object, false, 8);
        check(object, moved);
    }
    EXPECT_NE(built.wideRefs, moved.wideRefs) << "motion did not change the tree";
    omp_set_num_threads(threads_before);
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
        for (std::size_t i = 0; i < part.positions.size() / (p + 1); ++i)
            part.vectors[0].values.push_back(PointIn(random, -8, 8));
    }
    Prepare(object, 4);
    for (int frame = 1; frame < 4; ++frame) {
        Objects[0].box.max.x += 3;  // what an instance places moves, too
        Update(object, false, 4);
        for (const Instance& instance : object.instances)
            EXPECT_NEAR(instance.box.max.x - instance.box.min.x, static_cast<float>(2 + 3 * frame), 1e-4f);
        CheckBinary(object);
        CheckWide(object);
    }
    for (std::size_t p = 0; p < 3; ++p)
        for (std::size_t i = 0; i < object.parts[p].positions.size(); ++i) {
            const Part&  part   = object.parts[p];
            const bool   moves  = p < 2 && i < part.vectors[0].values.size();
            const Vector motion = moves ? part.vectors[0].values[i] : Vector{};
            ASSERT_LT(Length(part.positions[i] - (source.parts[p].positions[i] + motion)), 3e-5f);
        }
}

TEST_F(Hierarchy, TunedLanesComeMostVisitedAndCheapestFirst)
{
    // Node 1: keys 1/8 and 3/4; expected cost 1 + 0.8 (1 + 1/4 2) = 2.2. Node 0: keys 1/16, 1/4 and 1/2 / 2.2.
    const std::vector<std::array<std::uint32_t, 3>> before[] = {{{40, 4, 10}, {44, 1, 10}, {1, 0, 0}},
                                                                {{48, 2, 5}, {52, 1, 15}}};
    Object                                          object;
    object.wideNodes.resize(2);
    object.wideVisits.resize(2);
    for (std::size_t n = 0; n < 2; ++n)
        for (std::size_t k = 0; k < 8; ++k) {
            const auto [first, count, visits] = k < before[n].size() ? before[n][k] : std::array{kNone, 0u, 0u};
            object.wideNodes[n].first[k]      = first;
            object.wideNodes[n].count[k]      = static_cast<std::uint16_t>(count);
            object.wideVisits[n][k]           = visits;
        }
    TuneChildOrder(object);
    EXPECT_EQ((std::vector(object.wideNodes[0].first, object.wideNodes[0].first + 3)), (std::vector{44u, 1u, 40u}));
    EXPECT_EQ((std::vector(object.wideNodes[1].first, object.wideNodes[1].first + 2)), (std::vector{52u, 48u}));
}

}  // namespace
}  // namespace hv
