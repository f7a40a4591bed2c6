// The walks over hierarchies, against a linear scan over all primitives with the scalar tests: the same bits, whatever
// the hierarchy and the packing of its leaves.

#include "accel/primitives.h"
#include "accel_scenes.h"
#include "scene/obj_import.h"
#include "session/settings.h"
#include "shading/shading.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <tuple>

using namespace hv;

namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

Vector Point(Random& random) { return PointIn(random, -1, 1); }

/// Shader 0 opaque, 1 lets half through, 2 a quarter from behind and nothing from the front, 3 is invisible, 4 hides from
/// the camera. Powers of two, so that products do not depend on their order.
void MakeShaders()
{
    Shaders.clear();
    EnsureDefaultShader();
    Shaders.resize(5);
    for (std::size_t n = 1; n < Shaders.size(); ++n) {
        Shaders[n].name = "shader " + std::to_string(n);
        Shaders[n].layers.resize(1);
    }
    Shaders[1].layers[0].Slot(Element::ShadowTransparency).color = {0.5f, 0.5f, 0.5f};
    Shaders[2].layers[0].sideness                                = Sideness::Back;
    Shaders[2].layers[0].Slot(Element::ShadowTransparency).color = {0.25f, 0.25f, 0.25f};
    Shaders[3].geometry_shader.visibility                        = Visibility::Invisible;
    Shaders[4].geometry_shader.visibility                        = Visibility::LightPrimary;
    PrepareShaders();
}

void Finish(Object& object)
{
    Prepare(object);
    SortWideLanes(object);
    object.isPrepared = true;
}

class Walk : public testing::Test {
protected:
    void SetUp() override
    {
        MakeShaders();
        Objects.clear();
        RootObject   = 0;
        CurrentFrame = 1;
    }
    void TearDown() override
    {
        Objects.clear();
        Shaders.clear();
        RefreshShaderTraits();
        RootObject   = 0;
        CurrentFrame = 0;
    }
};

/// A scene of one part.
void Show(Part part)
{
    Objects.assign(1, {});
    Objects[0].parts.push_back(std::move(part));
    Finish(Objects[0]);
}

/// A scene of one soup.
void ShowSoup(Random& random, Soup soup, int count)
{
    Objects.assign(1, {});
    FillSoup(Objects[0], soup, count, random);
    Finish(Objects[0]);
}

Part UnitTriangle()
{
    Part part;
    part.positions = {{-1, -1, 0}, {1, -1, 0}, {0, 1, 0}};
    part.triangles = {{0, 1, 2, 0}};
    return part;
}

bool LeftBy(const RayRecord& ray, const PrimitiveRef& ref)
{
    return ray.from_kind == ref.kind && ray.from_primitive == ref.index;
}

void Write(RayRecord& ray, const Part& part, const PrimitiveRef& ref, float t, std::uint32_t shader, Vector uvw,
           bool front)
{
    ray.distance      = t;
    ray.hit_part      = &part;
    ray.hit_primitive = ref.index;
    ray.hit_kind      = static_cast<std::uint8_t>(ref.kind);
    ray.hit_shader    = shader;
    ray.hit_u         = uvw.x;
    ray.hit_v         = uvw.y;
    ray.hit_w         = uvw.z;
    ray.front_side    = front;
}

bool ScanOne(const Object& object, const PrimitiveRef& ref, RayRecord& ray, bool probe)
{
    const Part& part = object.parts[ref.part];
    switch (static_cast<PrimitiveKind>(ref.kind)) {
    case PrimitiveKind::Particle:
        return !probe && IntersectParticle(part, ref.index, ray);
    case PrimitiveKind::Cylinder: {
        CylinderHit hit;
        if (probe || LeftBy(ray, ref) || !IntersectCylinder(part, ref.index, ray, hit)) return false;
        Write(ray, part, ref, hit.t, hit.shader, {hit.across, -hit.denominator, hit.along}, true);
        return true;
    }
    case PrimitiveKind::Triangle: {
        TriangleHit hit;
        if ((!probe && LeftBy(ray, ref)) || !IntersectTriangle(part, ref.index, ray, hit)) return false;
        Write(ray, part, ref, hit.t, hit.shader, {hit.b0, hit.b1, hit.b2}, hit.denominator < 0);
        return true;
    }
    default: {
        TetragonHit hit;
        if (LeftBy(ray, ref) || !IntersectTetragon(part, ref.index, ray, hit)) return false;
        Write(ray, part, ref, hit.t, hit.shader, {hit.u, hit.v, 0}, hit.denominator < 0);
        return true;
    }
    }
}

/// Nearest hit by trying everything. For rays without ties: no order of trying matters then.
bool Scan(const Object& object, RayRecord& ray, bool probe, int level)
{
    if (!probe) ray.direction = Normalized(ray.direction);
    const Vector origin = ray.origin, direction = ray.direction;
    bool         any = false;
    for (const PrimitiveRef& ref : UsableRefs(object)) {
        if (static_cast<PrimitiveKind>(ref.kind) != PrimitiveKind::Instance) {
            if (!ScanOne(object, ref, ray, probe)) continue;
            any                    = true;
            ray.hit_instance_depth = static_cast<std::uint8_t>(level);
            ray.has_density        = object.depth == 0;
        } else if (level < kMaxInstanceDepth) {
            const Instance& instance = object.instances[ref.index];
            ray.origin               = TransformPoint(instance.inverse, origin);
            ray.direction            = instance.directionMatrix * direction;
            const bool hit           = Scan(Objects[instance.object], ray, probe, level + 1);
            if (hit && instance.shader < Shaders.size()) ray.hit_shader = instance.shader;
            any |= hit;
            ray.origin    = origin;
            ray.direction = direction;
        }
    }
    return any;
}

/// What a shadow ray loses, by trying everything; the surfaces are those of MakeShaders.
float ScanShadow(const Object& object, RayRecord ray, int level)
{
    float product = 1;
    for (const PrimitiveRef& ref : UsableRefs(object)) {
        const auto kind = static_cast<PrimitiveKind>(ref.kind);
        if (kind == PrimitiveKind::Instance) {
            const Instance& instance = object.instances[ref.index];
            RayRecord       local    = ray;
            local.origin             = TransformPoint(instance.inverse, ray.origin);
            local.direction          = instance.directionMatrix * ray.direction;
            if (level < kMaxInstanceDepth) product *= ScanShadow(Objects[instance.object], local, level + 1);
            continue;
        }
        if (LeftBy(ray, ref) || (ray.hit_kind == ref.kind && ray.hit_primitive == ref.index)) continue;
        RayRecord   copy = ray;
        const Part& part = object.parts[ref.part];
        float       t;
        if (kind == PrimitiveKind::Particle) {
            if (OccludeParticle(part, ref.index, copy, t)) product *= 0.5f;
        } else if (ScanOne(object, ref, copy, false)) {
            product *= Transparency(ShaderAt(copy.hit_shader), copy.front_side != 0, SurfacePoint{}).r;
        }
    }
    return product;
}

RayRecord RandomRay(Random& random)
{
    const Vector origin = 2.0f * Point(random);
    RayRecord    ray    = MakeRay(origin, Point(random) - origin);
    if (random() % 8 == 0) ray.direction[static_cast<int>(random() % 3)] = 0.0f;
    if (random() % 16 == 0) ray.direction[static_cast<int>(random() % 3)] = -0.0f;
    ray.direction      = Normalized(ray.direction);
    ray.from_kind      = static_cast<std::uint8_t>(random() % 5);
    ray.from_primitive = random() % 64;
    return ray;
}

void ExpectSameHit(const RayRecord& walked, const RayRecord& scanned)
{
    const auto fields = [](const RayRecord& ray) {
        return std::tuple(ray.distance, ray.hit_part, ray.hit_kind, ray.hit_primitive, ray.hit_shader, ray.hit_u,
                          ray.hit_v, ray.hit_w, ray.front_side, ray.hit_instance_depth, ray.has_density);
    };
    EXPECT_EQ(fields(walked), fields(scanned));
    EXPECT_EQ(walked.instance_depth, 0);
}

/// Where faces lie in one plane, which of those within the epsilon wins depends on the order of trying.
void ExpectSameDistance(const RayRecord& walked, const RayRecord& scanned)
{
    EXPECT_NEAR(walked.distance, scanned.distance, 3e-6f);
}

/// Closest hits, probes and shadow rays of many random rays against the scan. Returns how many closest rays hit.
int CompareWithScan(Random& random, int count, bool has_ties = false)
{
    const auto expect_same = has_ties ? ExpectSameDistance : ExpectSameHit;
    int        hits        = 0;
    for (int n = 0; n < count && !testing::Test::HasFailure(); ++n) {
        const RayRecord ray = RandomRay(random);

        RayRecord  walked = ray, scanned = ray;
        const bool hit = TraceClosest(walked);
        EXPECT_EQ(hit, Scan(Objects[RootObject], scanned, false, 0)) << n;
        if (hit) expect_same(walked, scanned);
        hits += hit;

        RayRecord probe = ray, scanned_probe = ray;
        probe.distance = scanned_probe.distance = 1.0f;
        const bool probe_hit                    = TraceProbe(probe);
        EXPECT_EQ(probe_hit, Scan(Objects[RootObject], scanned_probe, true, 0)) << n;
        if (probe_hit) expect_same(probe, scanned_probe);

        RayRecord shadow     = ray;
        shadow.is_secondary  = 1;
        shadow.distance      = n % 2 == 0 ? 1.5f : kFarAway;
        shadow.hit_kind      = static_cast<std::uint8_t>(random() % 5);
        shadow.hit_primitive = random() % 64;
        const float lost     = ScanShadow(Objects[RootObject], shadow, 0);
        CurrentFrame         = n % 2;
        const bool blocked   = TraceOcclusion(shadow);
        CurrentFrame         = 1;
        EXPECT_EQ(blocked, !(lost > kPresent)) << n;
        if (!blocked) {
            EXPECT_EQ(shadow.throughput, (Color{lost, lost, lost})) << n;
        }
    }
    return hits;
}

Matrix4 Rigid(int turn, bool mirrored, Vector shift)
{
    Matrix4   matrix;
    const int axis = turn % 3;
    for (float& m : matrix.m) m = 0;
    // Turns by a right angle about the diagonal and an axis, whose inverse is exact.
    for (int row = 0; row < 3; ++row) matrix.m[4 * row + (row + axis) % 3] = 1;
    if (mirrored) matrix.m[axis] = -1;
    for (int row = 0; row < 3; ++row) matrix.m[4 * row + 3] = shift[row];
    matrix.m[15] = 1;
    return matrix;
}

void Place(std::size_t into, std::uint32_t what, const Matrix4& matrix, std::uint32_t shader = kNone)
{
    Instance instance;
    instance.matrix = matrix;
    instance.object = what;
    instance.shader = shader;
    Objects[into].instances.push_back(instance);
}

/// A ball of 8 x 4^levels triangles, closed, every vertex at distance 1: neighbours compute the middle of an edge from
/// the same sum.
Part Ball(int levels)
{
    Part       part;
    const auto divide = [&](auto& self, Vector a, Vector b, Vector c, int level) -> void {
        if (level == 0) {
            const auto first = static_cast<std::uint32_t>(part.positions.size());
            part.positions.insert(part.positions.end(), {a, b, c});
            part.triangles.push_back({first, first + 1, first + 2, 0});
            return;
        }
        const Vector ab = Normalized(a + b), bc = Normalized(b + c), ca = Normalized(c + a);
        self(self, a, ab, ca, level - 1);
        self(self, ab, b, bc, level - 1);
        self(self, ca, bc, c, level - 1);
        self(self, ab, bc, ca, level - 1);
    };
    for (const float x : {1.0f, -1.0f})
        for (const float y : {1.0f, -1.0f})
            for (const float z : {1.0f, -1.0f}) divide(divide, {x, 0, 0}, {0, y, 0}, {0, 0, z}, levels);
    return part;
}

/// Rays from around the middle of the scene, `jitter` half widths to each side.
int MissesFromInside(Random& random, float jitter, int count)
{
    const Vector center = 0.5f * (Objects[0].box.min + Objects[0].box.max);
    const float  reach  = jitter * (Objects[0].box.max.x - center.x);
    int          misses = 0;
    for (int n = 0; n < count; ++n) {
        RayRecord ray = MakeRay(center + reach * Point(random), Normalized(Point(random)));
        misses += !TraceClosest(ray);
    }
    return misses;
}

}  // namespace

TEST_F(Walk, EqualsAScanOfEverything)
{
    Random random(1);
    for (const Soup soup : {Soup::Scattered, Soup::Flat, Soup::Coarse, Soup::Degenerate})
        for (const int count : {1, 2, 9, 40, 400}) {
            SCOPED_TRACE(testing::Message() << "soup " << static_cast<int>(soup) << " of " << count);
            ShowSoup(random, soup, count);
            const int hits =
                CompareWithScan(random, count < 40 ? 2000 : 600, soup == Soup::Flat || soup == Soup::Coarse);
            if (count == 400) {
                EXPECT_GT(hits, 100);
            }
        }
}

// Exact for rigid placements: a turn by right angles, a mirror and a shift by a power of two lose no bit.
TEST_F(Walk, EqualsAScanThroughNestedInstances)
{
    Random random(2);
    for (const bool mirrored : {false, true}) {
        Objects.assign(3, {});
        for (std::size_t n = 0; n < 3; ++n) {
            Objects[n].depth = static_cast<std::uint32_t>(n);
            FillSoup(Objects[n], Soup::Scattered, 40, random);
        }
        Place(1, 2, Rigid(1, mirrored, {0.5f, 0, -0.25f}));
        Place(1, 2, Rigid(2, false, {-0.5f, 0.5f, 0}), 1);
        Place(0, 1, Rigid(1, false, {0.25f, 0, 0}));
        Place(0, 1, Rigid(0, mirrored, {0, -0.5f, 0.5f}), 2);
        Place(0, 2, Rigid(2, mirrored, {0, 0, 1}), 99);  // names no shader: the stamped one stays
        for (std::size_t n = 3; n-- > 0;) Finish(Objects[n]);
        EXPECT_GT(CompareWithScan(random, 1000), 200);
    }
}

// A placement of scale 2: the closest hit is measured in the placed object's units, a shadow ray in the ray's own.
TEST_F(Walk, ScaledInstancesMeasureInTheirOwnUnits)
{
    Objects.assign(2, {});
    Objects[1].depth = 1;
    Objects[1].parts = {UnitTriangle()};
    Matrix4 twice;
    twice.m[0] = twice.m[5] = twice.m[10] = 2;
    Place(0, 1, twice);
    Finish(Objects[1]);
    Finish(Objects[0]);

    RayRecord ray = MakeRay({0, 0, 6}, {0, 0, -1});
    ASSERT_TRUE(TraceClosest(ray));
    EXPECT_EQ(ray.distance, 3.0f);
    for (const float distance : {5.9f, 6.1f}) {
        RayRecord shadow    = MakeRay({0, 0, 6}, {0, 0, -1}, distance);
        shadow.is_secondary = 1;
        EXPECT_EQ(TraceOcclusion(shadow), distance > 6);
    }
}

TEST_F(Walk, NestedHitLeavesItsMatricesOutermostFirst)
{
    constexpr int kLevels = kMaxInstanceDepth + 1;  // instances one inside the other, one more than rays enter
    for (const int placed : {2, kMaxInstanceDepth, kLevels}) {
        Objects.assign(static_cast<std::size_t>(placed) + 1, {});
        for (std::size_t n = 0; n < Objects.size(); ++n) Objects[n].depth = static_cast<std::uint32_t>(n);
        Objects.back().parts = {UnitTriangle()};
        Finish(Objects.back());
        for (std::size_t n = Objects.size() - 1; n-- > 0;) {
            Matrix4 shift;
            shift.m[3] = 0.125f;
            shift.m[0] = n == 0 ? 2.0f : 1.0f;  // tells the outermost from the others
            Place(n, static_cast<std::uint32_t>(n + 1), shift, n == 0 ? 1 : 2);
            Finish(Objects[n]);
        }
        RayRecord ray = MakeRay({0.25f * static_cast<float>(placed), 0, 4}, {0, 0, -1});
        ASSERT_EQ(TraceClosest(ray), placed <= kMaxInstanceDepth) << placed;
        if (placed > kMaxInstanceDepth) continue;
        EXPECT_EQ(ray.hit_instance_depth, placed);
        EXPECT_EQ(ray.has_density, 0);
        EXPECT_EQ(ray.hit_shader, 1u) << "the outermost placement has the last word";
        EXPECT_EQ(InstanceNormalMatrices[0].matrices[0].m[0], 0.5f);
        for (int level = 1; level < placed; ++level)
            EXPECT_EQ(InstanceNormalMatrices[0].matrices[level], Matrix3{}) << level;
        SurfacePoint point;
        EvaluateHit(ray, point);
        EXPECT_EQ(point.normal, (Vector{0, 0, 1}));
    }
}

// Kind and number decide alone: the same number in another part is skipped as well.
TEST_F(Walk, SkipsThePrimitiveThatTheRayLeaves)
{
    Objects.assign(1, {});
    for (int n = 0; n < 2; ++n) {
        Part&       part = Objects[0].parts.emplace_back();
        const float z    = static_cast<float>(n);
        part.positions   = {{-1, -1, z}, {1, -1, z}, {1, 1, z}, {-1, 1, z}};
        if (n == 0)
            part.triangles = {{0, 1, 2, 0}, {0, 2, 3, 0}};
        else
            part.triangles = {{0, 1, 2, 0}};
    }
    Finish(Objects[0]);
    RayRecord ray      = MakeRay({0.5f, -0.5f, 3}, {0, 0, -1});
    ray.from_kind      = static_cast<std::uint8_t>(PrimitiveKind::Triangle);
    ray.from_primitive = 0;
    EXPECT_FALSE(TraceClosest(ray)) << "number 0 of both parts is skipped";
    ray.from_kind = static_cast<std::uint8_t>(PrimitiveKind::Tetragon);
    ASSERT_TRUE(TraceClosest(ray));
    EXPECT_EQ(ray.distance, 2.0f);
}

// Panes that let a tenth through: two leave a hundredth, three stop the ray.
TEST_F(Walk, PanesMultiplyUntilNothingIsPresent)
{
    for (const int panes : {0, 1, 2, 3, 4}) {
        Shaders[1].layers[0].Slot(Element::ShadowTransparency).color = {0.1f, 0.1f, 0.05f};
        Objects.assign(1, {});
        Part& part = Objects[0].parts.emplace_back();
        for (int n = 0; n < panes; ++n) {
            const auto  first = static_cast<std::uint32_t>(part.positions.size());
            const float z     = static_cast<float>(n);
            part.positions.insert(part.positions.end(), {{-1, -1, z}, {1, -1, z}, {1, 1, z}, {-1, 1, z}});
            part.tetragons.push_back({first, first + 1, first + 2, first + 3, 1});
        }
        Finish(Objects[0]);
        RayRecord ray    = MakeRay({0.1f, 0.2f, -1}, {0, 0, 1});
        ray.is_secondary = 1;
        // The third leaves 0.001, which is still above the cut-off of 1 / 1024.
        EXPECT_EQ(TraceOcclusion(ray), panes >= 4) << panes;
        EXPECT_NEAR(ray.throughput.r, std::pow(0.1f, static_cast<float>(panes)), 1e-6f);
        EXPECT_NEAR(ray.throughput.b, std::pow(0.05f, static_cast<float>(panes)), 1e-6f);
    }
}

// The first frame counts every blocked ray once in the root, on a leaf lane, and in each placed object on its way.
TEST_F(Walk, FirstFrameCountsBlockedRays)
{
    Random random(3);
    Objects.assign(2, {});
    Objects[1].depth = 1;
    FillSoup(Objects[0], Soup::Scattered, 200, random);
    FillSoup(Objects[1], Soup::Scattered, 50, random);
    Place(0, 1, Rigid(1, false, {0.5f, 0, 0}));
    Finish(Objects[1]);
    Finish(Objects[0]);
    for (Object& object : Objects) ClearVisits(object);
    const auto count = [](const Object& object) {
        std::uint64_t sum = 0;
        for (std::size_t n = 0; n < object.wideNodes.size(); ++n)
            for (std::size_t k = 0; k < 8; ++k)
                if (object.wideNodes[n].count[k] > 0) sum += object.wideVisits[n][k];
        return sum;
    };
    std::uint64_t blocked = 0;
    for (int n = 0; n < 4000; ++n) {
        RayRecord ray = RandomRay(random), later = ray;
        CurrentFrame     = 0;
        const bool first = TraceOcclusion(ray);
        blocked += first;
        CurrentFrame = 1;
        EXPECT_EQ(TraceOcclusion(later), first);
        EXPECT_EQ(ray.throughput, later.throughput);
    }
    EXPECT_GT(blocked, 100u);
    EXPECT_EQ(count(Objects[0]), blocked);
    EXPECT_GT(count(Objects[1]), 0u);
    EXPECT_LT(count(Objects[1]), blocked);
    for (Object& object : Objects) TuneChildOrder(object);
    EXPECT_GT(CompareWithScan(random, 500), 50);
}

TEST_F(Walk, NoRayLeavesAClosedMesh)
{
    Random random(4);
    Show(Ball(6));
    EXPECT_LE(MissesFromInside(random, 0.5f, 200000), 2);
    const char* const data = std::getenv("HV_TEST_DATA");
    if (data == nullptr) GTEST_SKIP() << "HV_TEST_DATA is not set: no scanned model";
    Part model;
    ReadObjFile(model, std::string(data) + "/models/igea.obj");
    for (Triangle& face : model.triangles) face.shader = 0;
    ASSERT_FALSE(model.triangles.empty());
    Show(std::move(model));
    EXPECT_LE(MissesFromInside(random, 0.1f, 100000), 2);
}

TEST_F(Walk, ThreadsSeeTheSame)
{
    Random random(7);
    ShowSoup(random, Soup::Scattered, 2000);
    constexpr int          kRays = 20000;
    std::vector<RayRecord> alone(kRays);
    for (RayRecord& ray : alone) ray = RandomRay(random);
    std::vector<RayRecord> together = alone;
    TakeSum(PrimaryRayCounters);
    for (RayRecord& ray : alone) TraceClosest(ray);
#pragma omp parallel for num_threads(4)
    for (int n = 0; n < kRays; ++n) {
        RayRecord& ray = together[static_cast<std::size_t>(n)];
        ray.thread     = static_cast<std::uint8_t>(omp_get_thread_num());
        TraceClosest(ray);
    }
    EXPECT_EQ(TakeSum(PrimaryRayCounters), 2u * kRays);
    for (std::size_t n = 0; n < kRays && !HasFailure(); ++n) ExpectSameHit(alone[n], together[n]);
}

TEST_F(Walk, RaysThatAreNoneMissAndEmptyScenesAreMissed)
{
    const auto expect_miss = [](const RayRecord& ray) {
        RayRecord closest = ray, probe = ray, shadow = ray;
        EXPECT_FALSE(TraceClosest(closest));
        EXPECT_FALSE(TraceProbe(probe));
        EXPECT_FALSE(TraceOcclusion(shadow));
        EXPECT_EQ(shadow.throughput, kWhite);
    };
    const RayRecord plain = MakeRay({0, 0, 0}, {0, 0, 1}, 7);
    expect_miss(plain);
    Objects.assign(1, {});
    expect_miss(plain);  // not built
    Finish(Objects[0]);
    expect_miss(plain);  // built of nothing

    Random random(8);
    ShowSoup(random, Soup::Scattered, 100);
    for (const float bad : {kNan, kInf, -kInf})
        for (int slot = 0; slot < 6; ++slot) {
            RayRecord ray                                     = plain;
            (slot < 3 ? ray.origin : ray.direction)[slot % 3] = bad;
            expect_miss(ray);
        }
    for (const float distance : {kNan, 0.0f, -1.0f, 1e-7f}) {
        RayRecord probe = MakeRay({0, 0, 0}, {0, 0, 1}, distance), shadow = probe;
        EXPECT_FALSE(TraceProbe(probe)) << distance;
        TraceOcclusion(shadow);  // particles reach an epsilon past the distance; nothing may break
    }
}

// A face seen along an axis from a point in the plane of its box: 0 times infinity may not hide it.
TEST_F(Walk, RaysInBoxPlanesStillHit)
{
    Part part;
    part.positions = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
    part.tetragons = {{0, 1, 2, 3, 0}};
    Show(part);
    for (const float sign : {1.0f, -1.0f})
        for (const float zero : {0.0f, -0.0f})
            for (const float x : {0.0f, 0.5f, 1.0f})
                for (const float y : {0.0f, 1.0f}) {
                    RayRecord ray = MakeRay({x, y, 3 * sign}, {zero, zero, -sign}), shadow = ray;
                    EXPECT_TRUE(TraceClosest(ray)) << x << " " << y;
                    EXPECT_EQ(ray.distance, 3.0f);
                    EXPECT_TRUE(TraceOcclusion(shadow)) << x << " " << y;
                }
}

// Boxes nested like dolls make the deepest trees; the stack must hold them.
TEST_F(Walk, DeepTreesFitTheStack)
{
    Part part;
    for (int n = 0; n < 240; ++n) {
        const auto  first = static_cast<std::uint32_t>(part.positions.size());
        const float size  = std::exp2(0.25f * static_cast<float>(n - 120));
        part.positions.insert(part.positions.end(), {{0, 0, size}, {size, 0, size}, {0, size, size}});
        part.triangles.push_back({first, first + 1, first + 2, 0});
    }
    Show(part);
    Random random(9);
    int    hits = 0;
    for (int n = 0; n < 2000; ++n) {
        const float  scale = std::ldexp(1.0f, static_cast<int>(random() % 50) - 25);
        const Vector p     = Point(random);
        RayRecord    ray = MakeRay(scale * Vector{std::fabs(p.x), std::fabs(p.y), 0}, {0, 0, 1}), scanned = ray;
        const bool   hit = TraceClosest(ray);
        ASSERT_EQ(hit, Scan(Objects[0], scanned, false, 0));
        if (hit) {
            EXPECT_EQ(ray.distance, scanned.distance);
        }
        hits += hit;
    }
    EXPECT_GT(hits, 500);
}
