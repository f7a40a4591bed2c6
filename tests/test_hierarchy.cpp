// The hierarchy of one object: bounds, binary tree, rotations, wide tree, packed leaves and the order of lanes. Laws
// are checked on soups of all primitive kinds and on degenerate input; rules that choose are compared with plain searches.

#include "accel/accel.h"
#include "accel/hierarchy.h"
#include "session/console.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <map>
#include <random>

namespace hv {
namespace {

using Random = std::mt19937;

float Uniform(Random& random, float low, float high)
{
    return std::uniform_real_distribution<float>(low, high)(random);
}

Vector PointIn(Random& random, float low, float high)
{
    return {Uniform(random, low, high), Uniform(random, low, high), Uniform(random, low, high)};
}

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

void AddRandomPrimitive(Part& part, Random& random, int kind)
{
    const Vector center = PointIn(random, -10, 10);
    const float  size   = std::exp2(Uniform(random, -6, 1));
    const auto   near   = [&] { return center + PointIn(random, -size, size); };
    const auto   base   = static_cast<std::uint32_t>(part.positions.size());
    if (kind == 0) {
        AddParticle(part, center, size);
    } else if (kind == 1) {
        part.positions.insert(part.positions.end(), {near(), near()});
        part.tangents.resize(part.positions.size());
        part.tangents[base] = {90, 0, -90};
        part.cylinders.push_back(base);
    } else if (kind == 2) {
        AddTriangle(part, near(), near(), near());
    } else {
        part.positions.insert(part.positions.end(), {near(), near(), near(), near()});
        part.tetragons.push_back({base, base + 1, base + 2, base + 3, 0});
    }
}

Object TriangleSoup(int count, unsigned seed)
{
    Random random(seed);
    Object object;
    object.parts.resize(1);
    for (int i = 0; i < count; ++i) AddRandomPrimitive(object.parts[0], random, 2);
    return object;
}

/// Three parts with all four kinds of primitives each, and instances of Objects[0].
Object MixedSoup(int count, unsigned seed)
{
    Random random(seed);
    Object object;
    object.parts.resize(3);
    for (int i = 0; i < count; ++i) AddRandomPrimitive(object.parts[i % 3], random, static_cast<int>(random() % 4));
    for (int i = 0; i < 9; ++i) {
        Instance& instance = object.instances.emplace_back();
        instance.object    = 0;
        for (int axis = 0; axis < 3; ++axis) instance.matrix.m[4 * axis + 3] = Uniform(random, -10, 10);
    }
    return object;
}

void Prepare(Object& object, int frame_count = 1)
{
    RefreshBounds(object);
    Build(object);
    Update(object, true, frame_count);
}

std::vector<PrimitiveRef> UsableRefs(const Object& object)
{
    std::vector<PrimitiveRef> refs;
    for (const ReferenceRun& run : ListRuns(object))
        for (std::uint32_t i = 0; i < run.count; ++i)
            if (IsUsable(object, RefOfRun(run, i))) refs.push_back(RefOfRun(run, i));
    return refs;
}

using RefKey = std::array<std::uint32_t, 3>;
RefKey KeyOf(const PrimitiveRef& ref) { return {ref.part, ref.kind, ref.index}; }

Box LaneBox(const WideNode& node, int k)
{
    return {{node.minX[k], node.minY[k], node.minZ[k]}, {node.maxX[k], node.maxY[k], node.maxZ[k]}};
}

/// What a block must hold, from the arrays of the object.
void CheckBlock(const Object& object, const LeafBlock& block, const PrimitiveRef* refs)
{
    for (unsigned lane = 0; lane < kBlockLength; ++lane) {
        const PrimitiveRef& ref = refs[lane];
        ASSERT_EQ(ref.kind != 0, lane < block.used);
        ASSERT_EQ(block.index[lane], lane < block.used ? ref.index : kNone);
        if (lane >= block.used) continue;
        ASSERT_EQ(block.part[lane], ref.part);
        const auto kind = static_cast<PrimitiveKind>(ref.kind);
        if (kind == PrimitiveKind::Triangle) {
            ASSERT_EQ(block.kind, 3);
            ASSERT_EQ(block.shader[lane], object.parts[ref.part].triangles[ref.index].shader);
            const Part&    part = object.parts[ref.part];
            const Triangle face = part.triangles[ref.index];
            const Vector   p0 = part.positions[face.i0], p1 = part.positions[face.i1], p2 = part.positions[face.i2];
            for (unsigned axis = 0; axis < 3; ++axis) {
                const int a = static_cast<int>(axis);
                ASSERT_EQ(block.values[axis * 8 + lane], p0[a]);
                ASSERT_EQ(block.values[24 + axis * 8 + lane], p1[a] - p0[a]);
                ASSERT_EQ(block.values[48 + axis * 8 + lane], p2[a] - p0[a]);
            }
        } else if (kind == PrimitiveKind::Tetragon) {
            ASSERT_EQ(block.kind, 4);
            const Part&         part       = object.parts[ref.part];
            const Tetragon      face       = part.tetragons[ref.index];
            const std::uint32_t corners[4] = {face.i0, face.i1, face.i2, face.i3};
            for (unsigned i = 0; i < 12; ++i)
                ASSERT_EQ(block.values[i * kTetragonStride + lane],
                          part.positions[corners[i / 3]][static_cast<int>(i % 3)]);
        } else {
            ASSERT_EQ(block.kind, 0);
        }
    }
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
            CheckBlock(object, packed, &object.wideRefs[kBlockLength * block]);
            for (; lane < packed.used && count > 0; ++lane, --count) {
                const PrimitiveRef& ref = object.wideRefs[kBlockLength * block + lane];
                ASSERT_TRUE(Contains(box, PrimitiveBounds(object, ref)));
                ++seen[KeyOf(ref)];
            }
        }
    }

    /// A leaf that shares a block of its node lies in it, or in the next one, whole.
    void SharedLeaf(const WideNode& node, int k)
    {
        const unsigned lanes = node.blockLanes[k];
        if (lanes == 0) return;
        ASSERT_LE(node.first[k] / kBlockLength - node.block, 1u);
        ASSERT_EQ(lanes, ((1u << node.count[k]) - 1u) << node.first[k] % kBlockLength);
        ASSERT_NE(object.leafBlocks[node.first[k] / kBlockLength].kind, 0);
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
            SharedLeaf(node, k);
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
    Hierarchy() : threads_(omp_get_max_threads())
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
        omp_set_num_threads(threads_);
    }

private:
    int threads_;
};

// ---- Bounds ----

TEST_F(Hierarchy, BoundsOfEachKind)
{
    Object object;
    Part&  part            = object.parts.emplace_back();
    part.positions         = {{1, 2, 3}, {4, 0, -1}, {2, 5, 0}, {0, 1, 9}, kNanPoint, {kFarAway * 2, 0, 0}};
    part.scalars[0].values = {0.5f, 0, -2, std::numeric_limits<float>::infinity()};
    part.particles         = {0, 1, 2, 3, 4, 5, 6, kNone};
    part.triangles         = {{0, 1, 2, 0}, {0, 1, 4, 0}, {0, 1, 6, 0}};
    part.tetragons         = {{0, 1, 2, 3, 0}, {0, 4, 2, 3, 0}};
    part.cylinders         = {2, 3, 5, kNone};
    object.instances.resize(1);
    const Box  empty;
    const auto bounds = [&](PrimitiveKind kind, std::uint32_t i) { return PrimitiveBounds(object, Ref(kind, i)); };
    EXPECT_EQ(bounds(PrimitiveKind::Particle, 0), (Box{{0.5f, 1.5f, 2.5f}, {1.5f, 2.5f, 3.5f}}));
    EXPECT_EQ(bounds(PrimitiveKind::Particle, 1), (Box{{4, 0, -1}, {4, 0, -1}}));
    EXPECT_EQ(bounds(PrimitiveKind::Particle, 2), (Box{{0, 3, -2}, {4, 7, 2}}));  // a sphere has no sign
    EXPECT_EQ(bounds(PrimitiveKind::Triangle, 0), (Box{{1, 0, -1}, {4, 5, 3}}));
    EXPECT_EQ(bounds(PrimitiveKind::Tetragon, 0), (Box{{0, 0, -1}, {4, 5, 9}}));
    EXPECT_EQ(bounds(PrimitiveKind::Cylinder, 0),
              (Box{{-2, -1, -2}, {4, 7, 11}}));  // no tangents: monotone on each axis
    for (const std::uint32_t bad : {3u, 4u, 5u, 6u, 7u, 8u, kNone})
        EXPECT_EQ(bounds(PrimitiveKind::Particle, bad), empty);
    for (const std::uint32_t bad : {1u, 2u, 3u}) EXPECT_EQ(bounds(PrimitiveKind::Triangle, bad), empty);
    for (const std::uint32_t bad : {1u, 2u}) EXPECT_EQ(bounds(PrimitiveKind::Tetragon, bad), empty);
    for (const std::uint32_t bad : {1u, 2u, 3u, 4u}) EXPECT_EQ(bounds(PrimitiveKind::Cylinder, bad), empty);
    EXPECT_EQ(bounds(PrimitiveKind::Instance, 0), empty);
    EXPECT_EQ(bounds(PrimitiveKind::Instance, 1), empty);
    EXPECT_EQ(PrimitiveBounds(object, Ref(PrimitiveKind::Triangle, 0, 1)), empty);
    EXPECT_FALSE(IsUsable(object, Ref(PrimitiveKind::None, 0)));
}

// The box follows the Hermite curve through its textbook basis, at nine places.
TEST_F(Hierarchy, CylinderBoundsFollowTheCurve)
{
    Random random(7);
    for (int round = 0; round < 50; ++round) {
        Object object;
        Part&  part = object.parts.emplace_back();
        AddRandomPrimitive(part, random, 1);
        part.tangents          = {PackDirection(PointIn(random, -1, 1)), PackDirection(PointIn(random, -1, 1))};
        part.scalars[0].values = {0.25f, 7.0f};
        Box expected;
        for (int k = 0; k <= 8; ++k) {
            const float  s = static_cast<float>(k) / 8, s2 = s * s, s3 = s2 * s;
            const Vector p = (2 * s3 - 3 * s2 + 1) * part.positions[0] + (3 * s2 - 2 * s3) * part.positions[1] +
                             (s3 - 2 * s2 + s) * UnpackDirection(part.tangents[0]) +
                             (s3 - s2) * UnpackDirection(part.tangents[1]);
            Grow(expected, p - Vector{0.25f, 0.25f, 0.25f});
            Grow(expected, p + Vector{0.25f, 0.25f, 0.25f});
        }
        const Box box = PrimitiveBounds(object, Ref(PrimitiveKind::Cylinder, 0));
        for (int axis = 0; axis < 3; ++axis) {
            EXPECT_NEAR(box.min[axis], expected.min[axis], 1e-5f);
            EXPECT_NEAR(box.max[axis], expected.max[axis], 1e-5f);
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

// ---- Trees ----

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
    const auto coincident = [](Part& part, int count) {
        for (int i = 0; i < count; ++i) AddTriangle(part, {0, 0, 0}, {1, 0, 0}, {0, 1, 1});
    };
    const std::pair<const char*, std::function<void(Object&)>> cases[] = {
        {"nothing", [](Object&) {}},
        {"one primitive",
         [](Object& o) {
             AddParticle(o.parts[0], {1, 2, 3}, 0.5f);
         }},
        {"twins", [&](Object& o) { coincident(o.parts[0], 2); }},
        {"coincident", [&](Object& o) { coincident(o.parts[0], 3000); }},
        {"more coincident than a count holds, among larger",
         [&](Object& o) {
             coincident(o.parts[0], 140000);
             for (int i = 0; i < 20; ++i) AddParticle(o.parts.emplace_back(), {static_cast<float>(20 * i), 0, 0}, 8);
         }},
        {"one centre",
         [](Object& o) {
             for (int i = 1; i < 300; ++i) AddParticle(o.parts[0], {1, 1, 1}, static_cast<float>(i));
         }},
        {"points",
         [](Object& o) {
             for (int i = 0; i < 300; ++i) AddParticle(o.parts[0], {static_cast<float>(i % 20), 0, 0}, 0);
         }},
        {"powers",
         [](Object& o) {
             for (int i = -120; i < 120; ++i) AddParticle(o.parts[0], {std::exp2(static_cast<float>(i)), 0, 0}, 0);
         }},
        {"huge",
         [](Object& o) {
             for (int i = 0; i < 50; ++i)
                 AddParticle(o.parts[0], {i % 2 ? 3e38f : -3e38f, static_cast<float>(i), 0}, 1);
         }},
        {"only instances", [](Object& o) { o.instances = MixedSoup(0, 5).instances; }},
        {"unusable among usable",
         [](Object& o) {
             o = MixedSoup(600, 3);
             for (std::size_t i = 0; i < o.parts[1].positions.size(); i += 7) o.parts[1].positions[i].y = std::nanf("");
             o.parts[2].triangles[3].i1 = 1u << 30;
             o.instances[4].object      = 77;
         }},
        {"only unusable",
         [](Object& o) {
             for (int i = 0; i < 9; ++i) AddParticle(o.parts[0], kNanPoint, 1);
         }},
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

TEST_F(Hierarchy, ResultDoesNotDependOnThreads)
{
    const Object source = TriangleSoup(150000, 11);
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
        ASSERT_EQ(object.wideNodes.size(), first.wideNodes.size());
        EXPECT_EQ(
            std::memcmp(object.wideNodes.data(), first.wideNodes.data(), first.wideNodes.size() * sizeof(WideNode)), 0);
        ASSERT_EQ(object.leafBlocks.size(), first.leafBlocks.size());
        EXPECT_EQ(
            std::memcmp(object.leafBlocks.data(), first.leafBlocks.data(), first.leafBlocks.size() * sizeof(LeafBlock)),
            0);
    }
}

/// The splitting rules once more, plainly: reorders refs[first .. first + count - 1] as the leaves stand in the tree.
struct PlainBuild {
    std::vector<PrimitiveRef> refs;
    std::vector<Box>          boxes;

    struct Plane {
        float cost = kFarAway;
        Box   left, right;
    };

    Vector Center(std::size_t i) const { return 0.5f * (boxes[i].min + boxes[i].max); }

    Plane BestPlane(std::size_t first, std::size_t count) const
    {
        Box centers;
        for (std::size_t i = first; i < first + count; ++i) Grow(centers, Center(i));
        Plane best;
        for (int axis = 0; axis < 3; ++axis) {
            const float extent = centers.max[axis] - centers.min[axis];
            for (int plane = 0; extent != 0.0f && plane < 7; ++plane) {
                Plane tried;
                float counts[2] = {0, 0};
                for (std::size_t i = first; i < first + count; ++i) {
                    const int bin =
                        std::min(7, static_cast<int>(8.0f * (Center(i)[axis] - centers.min[axis]) / extent));
                    Grow(bin <= plane ? tried.left : tried.right, boxes[i]);
                    counts[bin <= plane ? 0 : 1] += 1;
                }
                tried.cost = HalfArea(tried.left) * counts[0] + HalfArea(tried.right) * counts[1];
                if (tried.cost < best.cost) best = tried;
            }
        }
        return best;
    }

    void Split(std::size_t first, std::size_t count)
    {
        if (count < 2) return;
        const Plane plane = BestPlane(first, count);
        if (plane.cost == kFarAway) return;
        std::size_t left = 0, right = 0;
        while (left + right < count) {
            const std::size_t i = first + left, end = first + count - 1 - right;
            const bool        in_left = Contains(plane.left, boxes[i]), in_right = Contains(plane.right, boxes[i]);
            const bool        goes_left = in_left && (!in_right || HalfArea(plane.right) > HalfArea(plane.left));
            if (!goes_left) {
                std::swap(refs[i], refs[end]);
                std::swap(boxes[i], boxes[end]);
            }
            ++(goes_left ? left : right);
        }
        if (left == 0 || right == 0) return;
        Split(first, left);
        Split(first + left, right);
    }
};

TEST_F(Hierarchy, BuildFollowsTheSplittingRules)
{
    const auto grid = [] {  // equal costs on all axes and planes, many boxes on both sides
        Object object;
        object.parts.resize(1);
        for (int i = 0; i < 512; ++i)
            AddParticle(object.parts[0],
                        {static_cast<float>(i % 8), static_cast<float>(i / 8 % 8), static_cast<float>(i / 64)}, 2);
        return object;
    };
    const auto shared = [] {  // the small one lies in both of two equal boxes
        Object object;
        Part&  part = object.parts.emplace_back();
        AddParticle(part, {0, 0, 0}, 2);
        AddParticle(part, {0.1f, 0, 0}, 0.5f);
        AddParticle(part, {1, 0, 0}, 2);
        return object;
    };
    Object objects[] = {MixedSoup(400, 21), MixedSoup(3000, 22), TriangleSoup(1000, 23), grid(), shared()};
    for (Object& object : objects) {
        RefreshBounds(object);
        Build(object);
        PlainBuild plain{UsableRefs(object), {}};
        for (const PrimitiveRef& ref : plain.refs) plain.boxes.push_back(PrimitiveBounds(object, ref));
        plain.Split(0, plain.refs.size());
        EXPECT_EQ(object.binaryRefs, plain.refs);
    }
    EXPECT_EQ(std::end(objects)[-1].binaryNodes[1].count, 1);  // of equal boxes the right one takes what lies in both
}

TEST_F(Hierarchy, ProgressOverwritesItselfUntilTheLastLine)
{
    Object object = TriangleSoup(2, 1);
    object.name   = "pair";
    SetReport(true);
    testing::internal::CaptureStdout();
    Build(object);
    std::fflush(stdout);
    const std::string text  = testing::internal::GetCapturedStdout();
    const std::string label = "tree construction wavefront";
    const auto        third = text.find(label, text.find(label, text.find(label) + 1) + 1);
    ASSERT_NE(third, std::string::npos);  // levels 0 and 1, then 2 for the empty frontier
    EXPECT_EQ(text.find(label, third + 1), std::string::npos);
    EXPECT_EQ(text.find('\n'), text.find('\n', third));
    EXPECT_NE(text.find("2 [ n/a ]\n", third), std::string::npos);
    EXPECT_NE(text.find("bbvh construction for pair"), std::string::npos);
}

// ---- Rotations ----

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
        Object                        object = FamilyTree(leaves, shape);
        const std::vector<BinaryNode> before = object.binaryNodes;
        RotateNode(object, 0);
        ASSERT_EQ(object.binaryNodes.size(), before.size());
        float leaf_cost = 0;
        for (const Box& leaf : leaves) leaf_cost += HalfArea(leaf);
        const float best = LeastCost(leaves, (1u << leaves.size()) - 1);
        ASSERT_NEAR(object.binaryNodes[0].cost, best, 1e-5f * best) << "shape " << shape;
        PropagateSum(object);
        EXPECT_EQ(object.binaryNodes[0].sum, leaves.size());
        std::uint32_t leaf_refs = 0;
        for (const BinaryNode& node : object.binaryNodes) {
            if (node.count > 0) leaf_refs |= 1u << node.first;
            if (node.count > 0) continue;
            const BinaryNode &left = object.binaryNodes[node.first], &right = object.binaryNodes[node.first + 1];
            ASSERT_EQ(node.box, Union(left.box, right.box));
            ASSERT_EQ(node.cost, HalfArea(node.box) + left.cost + right.cost);
        }
        EXPECT_EQ(leaf_refs, (1u << leaves.size()) - 1);
    }
}

TEST_F(Hierarchy, RotationNeedsAStrictGain)
{
    for (int shape = 0; shape < 3; ++shape) {  // every tree over equal boxes costs the same
        Object     object = FamilyTree(std::vector<Box>(shape == 0 ? 4 : 3, Box{{0, 0, 0}, {1, 1, 1}}), shape);
        const auto before = object.binaryNodes;
        RotateNode(object, 0);
        for (std::size_t i = 0; i < before.size(); ++i) {
            EXPECT_EQ(object.binaryNodes[i].first, before[i].first) << shape;
            EXPECT_EQ(object.binaryNodes[i].count, before[i].count) << shape;
        }
    }
}

TEST_F(Hierarchy, DeepTreesAreReportedOnceAndStillWalked)
{
    Object object     = TriangleSoup(1, 1);
    object.binaryRefs = {Ref(PrimitiveKind::Triangle, 0)};
    object.binaryNodes.push_back({{}, 1, 0, 0, 0});
    for (std::uint32_t level = 1; level <= 400; ++level) {  // a chain: each left child is a leaf
        object.binaryNodes.push_back({{}, 0, 1, 0, 0});
        object.binaryNodes.push_back(
            {{}, level < 400 ? 2 * level + 1 : 0, static_cast<std::uint16_t>(level < 400 ? 0 : 1), 0, 0});
    }
    SetReport(true);
    testing::internal::CaptureStdout();
    PropagateSum(object);
    std::fflush(stdout);
    const std::string text = testing::internal::GetCapturedStdout();
    EXPECT_EQ(text.find("bbvh - depth out of range"), text.rfind("bbvh - depth out of range"));
    EXPECT_NE(text.find("bbvh - depth out of range"), std::string::npos);
    EXPECT_EQ(object.binaryNodes[0].sum, 401u);
    EXPECT_EQ(object.levelCount.size(), 401u);
}

// ---- Collapse ----

TEST_F(Hierarchy, CoincidentSubtreeBecomesOneLane)
{
    Random random(41);
    Object object;
    object.parts.resize(2);
    for (int i = 0; i < 200; ++i) {
        const Vector p = PointIn(random, 0, 1e-4f);
        AddTriangle(object.parts[0], p, p + Vector{1, 0, 0}, p + Vector{0, 1, 1});
    }
    for (int i = 0; i < 20; ++i) AddParticle(object.parts[1], {static_cast<float>(10 + 3 * i), 0, 0}, 1);
    Prepare(object);
    CheckWide(object);
    int large = 0, single = 0;
    for (const WideNode& node : object.wideNodes) {
        for (int k = 0; k < 8; ++k) {
            large += node.count[k] == 200 ? 1 : 0;
            single += node.count[k] == 1 ? 1 : 0;
        }
    }
    EXPECT_EQ(large, 1);
    EXPECT_EQ(single, 20);
}

// A leaf of mixed kinds keeps the order of its references and starts a block at each change of kind.
TEST_F(Hierarchy, MixedLeafStartsABlockAtEachKind)
{
    Object object;
    Part&  part    = object.parts.emplace_back();
    part.positions = {{0, 0, 0}, {1, 0, 0}, {1, 1, 1}, {0, 1, 1}};
    part.triangles.assign(5, {0, 1, 2, 0});
    part.tetragons.assign(4, {0, 1, 2, 3, 0});
    object.instances.resize(1);
    object.instances[0].object = 0;
    object.instances[0].matrix = {{0.5f, 0, 0, 0.5f, 0, 0.25f, 0, 0.5f, 0, 0, 1.0f / 6, 0.5f, 0, 0, 0, 1}};
    Prepare(object);
    CheckWide(object);
    ASSERT_EQ(object.wideNodes[0].count[0], 10);
    const int used[] = {5, 4, 1}, kinds[] = {3, 4, 0};
    ASSERT_EQ(object.leafBlocks.size(), 3u);
    for (std::size_t b = 0; b < 3; ++b) {
        EXPECT_EQ(object.leafBlocks[b].used, used[b]);
        EXPECT_EQ(object.leafBlocks[b].kind, kinds[b]);
    }
}

// ---- Motion ----

TEST_F(Hierarchy, MotionEndsAfterAllFrames)
{
    Object       object = MixedSoup(2000, 51);
    const Object source = object;
    Random       random(52);
    object.hasMotion = true;
    for (std::size_t p = 0; p < 2; ++p) {  // the third part stays, the second has motion for half of its vertices
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

TEST_F(Hierarchy, StillObjectsAreUpdatedByForceOnly)
{
    Object object = MixedSoup(50, 61);
    Build(object);
    Update(object, false, 1);
    EXPECT_TRUE(object.wideNodes.empty());
    Update(object, true, 1);
    EXPECT_FALSE(object.wideNodes.empty());
}

// ---- Order by visits ----

TEST_F(Hierarchy, TunedLanesComeMostVisitedAndCheapestFirst)
{
    struct LaneIn {
        std::uint32_t first, count, visits;
    };
    Object object;
    object.wideNodes.resize(3);
    object.wideVisits.resize(3);
    const auto fill = [&](std::size_t n, std::vector<LaneIn> lanes) {
        for (std::size_t k = 0; k < 8; ++k) {
            const bool used              = k < lanes.size();
            object.wideNodes[n].first[k] = used ? lanes[k].first : kNone;
            object.wideNodes[n].count[k] = static_cast<std::uint16_t>(used ? lanes[k].count : 0);
            object.wideVisits[n][k]      = used ? lanes[k].visits : 0;
            object.wideNodes[n].minX[k]  = used ? static_cast<float>(10 * n + k) : kFarAway;
        }
    };
    fill(0, {{40, 4, 10}, {44, 1, 10}, {1, 0, 0}, {2, 0, 0}});
    fill(1, {{48, 2, 5}, {52, 1, 15}});
    fill(2, {{56, 3, 0}, {60, 1, 0}});
    TuneChildOrder(object);
    // Node 1: keys 1/8 and 3/4; expected cost 1 + 0.8 (1 + 1/4 2) = 2.2. Node 0: keys 1/16, 1/4, 1/2 / 2.2 and 0.
    const auto order = [&](std::size_t n, int count) {
        std::vector<std::uint32_t> firsts;
        for (int k = 0; k < count; ++k) {
            firsts.push_back(object.wideNodes[n].first[k]);
            EXPECT_EQ(firsts.back() == kNone, object.wideNodes[n].minX[k] == kFarAway);
        }
        return firsts;
    };
    EXPECT_EQ(order(0, 5), (std::vector<std::uint32_t>{44, 1, 40, 2, kNone}));
    EXPECT_EQ(order(1, 3), (std::vector<std::uint32_t>{52, 48, kNone}));
    EXPECT_EQ(order(2, 3), (std::vector<std::uint32_t>{56, 60, kNone}));  // not visited: as it was
    EXPECT_EQ(object.wideNodes[0].minX[0], 1.0f);
    EXPECT_EQ(object.wideNodes[0].minX[2], 0.0f);
    EXPECT_EQ(object.wideNodes[0].count[2], 4);
    EXPECT_EQ(object.wideVisits[1][0], 15u);

    fill(1, {{48, 1, 2}, {52, 2, 4}, {56, 3, 6}});  // equal keys stay in order
    fill(0, {{1, 0, 0}});
    TuneChildOrder(object);
    EXPECT_EQ(order(1, 3), (std::vector<std::uint32_t>{48, 52, 56}));
    ClearVisits(object);
    for (const auto& visits : object.wideVisits)
        for (const std::uint32_t count : visits) EXPECT_EQ(count, 0u);
}

}  // namespace
}  // namespace hv
