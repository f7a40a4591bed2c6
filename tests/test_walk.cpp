// The walks over hierarchies, against a linear scan over all primitives with the scalar tests: the same bits, whatever
// the hierarchy and the packing of its leaves.

#include "accel/curve_walk.h"
#include "accel/leaf_tests.h"
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

/// Shader 0 opaque, 1 lets half through, 2 a quarter from behind and nothing from the front, 3 is invisible, 4 hides
/// from the camera. Powers of two, so that products do not depend on their order.
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

struct Walk : testing::Test {
    Walk()
    {
        MakeShaders();
        CurrentFrame = 1;
    }
    ~Walk() override
    {
        Objects.clear();
        Shaders.clear();
        RefreshShaderTraits();
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

bool Write(RayRecord& ray, const Part& part, const PrimitiveRef& ref, float t, std::uint32_t shader, Vector uvw,
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
    return true;
}

bool ScanOne(const Object& object, const PrimitiveRef& ref, RayRecord& ray, bool probe)
{
    const Part& part    = object.parts[ref.part];
    const auto  kind    = static_cast<PrimitiveKind>(ref.kind);
    const bool  is_ball = kind == PrimitiveKind::Particle, is_hair = kind == PrimitiveKind::Cylinder;
    if (probe && (is_ball || is_hair)) return false;
    if (is_ball) return IntersectParticle(part, ref.index, ray);
    // A probe meets the triangle that it leaves, but not the tetragon.
    if (LeftBy(ray, ref) && !(probe && kind == PrimitiveKind::Triangle)) return false;
    if (is_hair) {
        CylinderHit hit;
        return IntersectCylinder(part, ref.index, ray, hit) &&
               Write(ray, part, ref, hit.t, hit.shader, {hit.across, -hit.denominator, hit.along}, true);
    }
    if (kind == PrimitiveKind::Triangle) {
        TriangleHit hit;
        return IntersectTriangle(part, ref.index, ray, hit) &&
               Write(ray, part, ref, hit.t, hit.shader, {hit.b0, hit.b1, hit.b2}, hit.denominator < 0);
    }
    TetragonHit hit;
    return IntersectTetragon(part, ref.index, ray, hit) &&
           Write(ray, part, ref, hit.t, hit.shader, {hit.u, hit.v, 0}, hit.denominator < 0);
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
        EXPECT_TRUE(blocked || shadow.throughput == kWhite * lost) << n;
    }
    return hits;
}

void Place(std::size_t into, std::uint32_t what, const Matrix4& matrix, std::uint32_t shader = kNone)
{
    Instance instance;
    instance.matrix = matrix;
    instance.object = what;
    instance.shader = shader;
    Objects[into].instances.push_back(instance);
}

/// A closed ball of 256 x 128 pairs of triangles that share their vertices.
Part Ball()
{
    constexpr std::uint32_t kAround = 256, kDown = 128;
    Part                    part;
    for (std::uint32_t n = 0; n < kAround * (kDown + 1); ++n) {
        const float azimuth = kTwoPi * static_cast<float>(n % kAround) / kAround;
        const float polar = kPi * static_cast<float>(n / kAround) / kDown, ring = std::sin(polar);
        part.positions.push_back({ring * std::cos(azimuth), ring * std::sin(azimuth), std::cos(polar)});
    }
    for (std::uint32_t n = 0; n < kAround * kDown; ++n) {
        const std::uint32_t next = n % kAround + 1 < kAround ? n + 1 : n + 1 - kAround;
        part.triangles.push_back({n, n + kAround, next, 0});
        part.triangles.push_back({next, n + kAround, next + kAround, 0});
    }
    return part;
}

/// Rays from around the middle of the scene, `jitter` half widths to each side.
int MissesFromInside(Random& random, float jitter, int count)
{
    const Vector center = 0.5f * (Objects[0].box.min + Objects[0].box.max);
    const float  reach  = jitter * (Objects[0].box.max.x - center.x);
    int          misses = 0;
    for (int n = 0; n < count; ++n) {
        const Vector direction = Normalized(Point(random));
        RayRecord    ray       = MakeRay(center + reach * Point(random), direction);
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
            const bool has_ties = soup == Soup::Flat || soup == Soup::Coarse;
            const int  hits     = CompareWithScan(random, count < 40 ? 1500 : 600, has_ties);
            EXPECT_TRUE(count < 400 || hits > 100);
            TuneChildOrder(Objects[0]);  // by the visits of shadow rays of the first frame
            CompareWithScan(random, 200, has_ties);
        }
}

/// Strands of four bent segments that get thinner, near the point `middle`, with tangents that lean off the curve.
Part Tangle(Random& random, unsigned strands, Vector middle)
{
    Part part;
    part.shaderID = 1;
    for (unsigned n = 0; n < strands; ++n) {
        Vector      at = middle + Point(random), ahead = Normalized(Point(random));
        const float length = Uniform(random, 0.9f, 1.5f), radius = Uniform(random, 0.002f, 0.05f);
        for (unsigned k = 0; k <= 4; ++k) {
            part.positions.push_back(at);
            part.tangents.push_back(PackDirection(ahead + 0.3f * Point(random)));
            part.scalars[0].values.push_back(radius * (1.0f - 0.2f * static_cast<float>(k)));
            if (k < 4) part.cylinders.push_back(5 * n + k);
            at += length * ahead;
            ahead = Normalized(ahead + 0.3f * Point(random));
        }
    }
    return part;
}

// Blocks of curves are turned down by a bound before they are tested; none may be lost by it, far from the origin
// neither, nor where a block holds another part's curves, too.
TEST_F(Walk, StrandsEqualAScanOfEverything)
{
    for (const float away : {0.0f, 100.0f}) {
        Random       random(11);
        const Vector middle{away, -away, away};
        Objects.assign(1, {});
        Objects[0].parts = {Tangle(random, 400, middle), Tangle(random, 100, middle)};
        Finish(Objects[0]);
        int hits = 0, shadows = 0;
        for (int n = 0; n < 1200 && !HasFailure(); ++n) {
            // Towards a curve, from near and from far, along it now and then.
            const Part&  part   = Objects[0].parts[random() % 2];
            const auto   vertex = part.cylinders[random() % part.cylinders.size()];
            const Vector target = 0.5f * (part.positions[vertex] + part.positions[vertex + 1]);
            const Vector along  = part.positions[vertex + 1] - part.positions[vertex];
            const Vector from   = n % 4 == 0 ? along + 0.02f * Point(random) : Normalized(Point(random));
            const Vector origin = target + (n % 3 == 0 ? 30.0f : 1.5f) * from + 0.05f * Point(random);
            RayRecord    ray = MakeRay(origin, Normalized(target - origin)), scanned = ray, shadow = ray;
            const bool   hit = TraceClosest(ray);
            EXPECT_EQ(hit, Scan(Objects[0], scanned, false, 0)) << n;
            if (hit) ExpectSameHit(ray, scanned);
            hits += hit;
            shadow.is_secondary = 1;
            shadow.distance     = 1.6f;
            const float lost    = ScanShadow(Objects[0], shadow, 0);
            const bool  blocked = TraceOcclusion(shadow);
            EXPECT_EQ(blocked, !(lost > kPresent)) << n;
            EXPECT_TRUE(blocked || shadow.throughput == kWhite * lost) << n;
            shadows += lost < 1.0f;
        }
        EXPECT_GT(hits, 600);
        EXPECT_GT(shadows, 200);
    }
}

/// Calls `visit` with the node, lane, bundle and number of curves of all bundles.
template <class Visit>
void ForBundles(const Object& object, const Visit& visit)
{
    for (const CurveNode& node : object.curveNodes)
        for (int k = 0; k < 8; ++k)
            for (std::uint32_t i = 0; i < node.count[k]; i += 8)
                visit(node, k, object.curveBundles[node.first[k] + i / 8], std::min(node.count[k] - i, 8u));
}

// Whatever the test of a curve accepts passes the bound, however wildly the curve runs: short segments, whose tangents
// are too long for them, are hit far from where they lie.
TEST_F(Walk, BoundOfCurvesLosesNone)
{
    Random random(12);
    int    hits = 0, turned_down = 0;
    for (int n = 0; n < 2000; ++n) {
        const float size = std::exp2(Uniform(random, -4, 4));
        Part        part;
        for (unsigned v = 0; v < 16; ++v) {
            part.positions.push_back(size * Point(random));
            part.tangents.push_back(v % 5 == 0 ? PackedDirection{} : PackDirection(Point(random)));
            part.scalars[0].values.push_back(Uniform(random, -0.01f, 0.1f));
            if (v % 2 == 0) part.cylinders.push_back(v);
        }
        Show(std::move(part));
        const Part& shown = Objects[0].parts[0];
        ForBundles(Objects[0], [&](const CurveNode& node, int k, const CurveBundle& bundle, std::uint32_t count) {
            for (int r = 0; r < 50; ++r) {
                const Vector  origin = (r % 5 == 0 ? 20.0f : 1.5f) * size * Point(random);
                RayRecord     ray    = MakeRay(origin, Normalized(0.7f * size * Point(random) - origin));
                const Vector8 along  = SplatVector8(ray.direction);
                const LeafRay cast{SplatVector8(ray.origin), along, SumOfSizes(along), {}, {}, {}};
                const auto    near = NearBundled(bundle, node, k, count, cast, Splat8(ray.distance));
                for (unsigned lane = 0; lane < count; ++lane) {
                    CylinderHit hit;
                    const bool  is_hit =
                        IntersectCylinder(shown, Objects[0].curves[bundle.first + lane].index, ray, hit);
                    ASSERT_TRUE(!is_hit || (near >> lane & 1) != 0) << n << ' ' << r << ' ' << lane;
                    hits += is_hit;
                    turned_down += (near >> lane & 1) == 0;
                }
            }
        });
    }
    EXPECT_GT(hits, 10000);
    EXPECT_GT(turned_down, 100000);
}

/// Whether one of the curves that a ray meets lies below a node. Counts the lanes that the tubes turn down: those
/// without such curves, and those with.
bool HasMetCurve(const Object& object, std::uint32_t index, const std::vector<bool>& is_met, const LeafRay& ray,
                 int (&turned_down)[2])
{
    const CurveNode& node = object.curveNodes[index];
    const unsigned   near = NearTubes(node, 255, ray, TubeRounding(ray, object.curveSize));
    bool             any  = false;
    for (int k = 0; k < 8; ++k) {
        if (node.first[k] == kNone) continue;
        bool below = node.count[k] == 0 && HasMetCurve(object, node.first[k], is_met, ray, turned_down);
        for (std::uint32_t i = 0; i < node.count[k]; ++i)
            below |= is_met[object.curves[object.curveBundles[node.first[k] + i / 8].first + i % 8].index];
        turned_down[below] += (near >> k & 1) == 0;
        any |= below;
    }
    return any;
}

// A lane whose tube is turned down holds no curve that is met.
TEST_F(Walk, TubesLoseNone)
{
    for (const float away : {0.0f, 100.0f}) {
        Random random(13);
        Show(Tangle(random, 300, {away, -away, away}));
        const Object& object = Objects[0];
        const Part&   part   = object.parts[0];
        int           met = 0, turned_down[2] = {};
        for (int n = 0; n < 1000; ++n) {
            const auto        vertex = part.cylinders[random() % part.cylinders.size()];
            const Vector      target = part.positions[vertex] + 0.05f * Point(random);
            const Vector      origin = target + 9.0f * Normalized(Point(random));
            RayRecord         cast   = MakeRay(origin, Normalized(target - origin));
            std::vector<bool> is_met(part.cylinders.size());
            for (std::uint32_t c = 0; c < is_met.size(); ++c) {
                CylinderHit hit;
                is_met[c] = IntersectCylinder(part, c, cast, hit);
                met += is_met[c];
            }
            const Vector8 along = SplatVector8(cast.direction);
            HasMetCurve(object, 0, is_met, {SplatVector8(cast.origin), along, SumOfSizes(along), {}, {}, {}},
                        turned_down);
        }
        EXPECT_GT(met, 1000);
        EXPECT_EQ(turned_down[1], 0);
        EXPECT_GT(turned_down[0], 100000);
    }
}

// Exact for rigid placements: a turn by right angles, a mirror and a shift by a power of two lose no bit.
TEST_F(Walk, EqualsAScanThroughNestedInstances)
{
    const Matrix4 turned   = {{0, 1, 0, 0.5f, 0, 0, 1, 0, 1, 0, 0, -0.25f, 0, 0, 0, 1}};
    const Matrix4 mirrored = {{-1, 0, 0, -0.5f, 0, 0, 1, 0.5f, 0, 1, 0, 0, 0, 0, 0, 1}};
    Random        random(2);
    Objects.assign(3, {});
    for (std::size_t n = 0; n < 3; ++n) {
        Objects[n].depth = static_cast<std::uint32_t>(n);
        FillSoup(Objects[n], Soup::Scattered, 40, random);
    }
    Place(1, 2, turned);
    Place(1, 2, mirrored, 1);
    Place(0, 1, turned);
    Place(0, 1, mirrored, 2);
    Place(0, 2, mirrored, 99);  // names no shader: the stamped one stays
    for (std::size_t n = 3; n-- > 0;) Finish(Objects[n]);
    EXPECT_GT(CompareWithScan(random, 2000), 400);
}

// A placement of scale 2: the closest hit is measured in the placed object's units, a shadow ray in the ray's own.
TEST_F(Walk, ScaledInstancesMeasureInTheirOwnUnits)
{
    Objects.assign(2, {});
    Objects[1].parts = {UnitTriangle()};
    Finish(Objects[1]);
    Place(0, 1, {{2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 1}});
    Finish(Objects[0]);

    RayRecord ray = MakeRay({0, 0, 6}, {0, 0, -1}), before = ray, behind = ray;
    ASSERT_TRUE(TraceClosest(ray));
    EXPECT_EQ(ray.distance, 3.0f);
    before.distance = 5.9f;
    behind.distance = 6.1f;
    EXPECT_FALSE(TraceOcclusion(before));
    EXPECT_TRUE(TraceOcclusion(behind));
}

TEST_F(Walk, NestedHitLeavesItsMatricesOutermostFirst)
{
    for (const int placed : {2, kMaxInstanceDepth, kMaxInstanceDepth + 1}) {  // instances one inside the other
        Objects.assign(static_cast<std::size_t>(placed) + 1, {});
        Objects.back().parts = {UnitTriangle()};
        for (std::size_t n = Objects.size(); n-- > 0;) {
            Matrix4 shift;
            shift.m[3]       = 0.125f;
            shift.m[0]       = n == 0 ? 2.0f : 1.0f;  // tells the outermost from the others
            Objects[n].depth = static_cast<std::uint32_t>(n);
            if (n + 1 < Objects.size()) Place(n, static_cast<std::uint32_t>(n + 1), shift, n == 0 ? 1 : 2);
            Finish(Objects[n]);
        }
        RayRecord ray = MakeRay({0.25f * static_cast<float>(placed), 0, 4}, {0, 0, -1});
        ASSERT_EQ(TraceClosest(ray), placed <= kMaxInstanceDepth) << placed;
        if (placed > kMaxInstanceDepth) continue;
        EXPECT_EQ(ray.hit_instance_depth, placed);
        EXPECT_EQ(ray.hit_shader, 1u) << "the outermost placement has the last word";
        EXPECT_EQ(InstanceNormalMatrices[0].matrices[0].m[0], 0.5f);
        for (int level = 1; level < placed; ++level)
            EXPECT_EQ(InstanceNormalMatrices[0].matrices[level], Matrix3{}) << level;
    }
}

// Kind and number decide alone: the same number in another part is skipped as well.
TEST_F(Walk, SkipsThePrimitiveThatTheRayLeaves)
{
    Objects.assign(1, {});
    Objects[0].parts = {UnitTriangle(), UnitTriangle()};
    for (Vector& corner : Objects[0].parts[1].positions) corner.z = 1;
    Finish(Objects[0]);
    RayRecord ray      = MakeRay({0, 0, 3}, {0, 0, -1});
    ray.from_kind      = static_cast<std::uint8_t>(PrimitiveKind::Triangle);
    ray.from_primitive = 0;
    EXPECT_FALSE(TraceClosest(ray)) << "number 0 of both parts is skipped";
    ray.from_kind = static_cast<std::uint8_t>(PrimitiveKind::Tetragon);
    ASSERT_TRUE(TraceClosest(ray));
    EXPECT_EQ(ray.distance, 2.0f);
}

TEST_F(Walk, NoRayLeavesAClosedMesh)
{
    Random random(4);
    Show(Ball());
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

TEST_F(Walk, RaysThatAreNoneMissAndEmptyScenesAreMissed)
{
    const auto expect_miss = [](const RayRecord& ray) {
        RayRecord closest = ray, probe = ray, shadow = ray;
        EXPECT_FALSE(TraceClosest(closest) || TraceProbe(probe) || TraceOcclusion(shadow)) << ray.origin.x;
    };
    Random          random(8);
    const RayRecord plain = MakeRay({0, 0, 0}, {0, 0, 1}, 7);
    expect_miss(plain);
    Objects.assign(1, {});
    expect_miss(plain);  // not built
    Finish(Objects[0]);
    expect_miss(plain);  // built of nothing
    ShowSoup(random, Soup::Scattered, 100);
    for (const float bad : {kNan, kInf, -kInf})
        for (int slot = 0; slot < 6; ++slot) {
            RayRecord ray                                     = plain;
            (slot < 3 ? ray.origin : ray.direction)[slot % 3] = bad;
            expect_miss(ray);
        }
    for (const float distance : {kNan, 0.0f, -1.0f, 1e-7f}) {
        RayRecord probe = MakeRay({0, 0, 0}, {0, 0, 1}, distance);
        EXPECT_FALSE(TraceProbe(probe)) << distance;
    }
}

// A face seen along an axis from a point in the plane of its box: 0 times infinity may not hide it.
TEST_F(Walk, RaysInBoxPlanesStillHit)
{
    Part part;
    part.positions = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
    part.tetragons = {{0, 1, 2, 3, 0}};
    Show(part);
    for (const float zero : {0.0f, -0.0f})
        for (const Vector place : {Vector{0, 0, 3}, {0.5f, 0, 3}, {1, 1, 3}, {0, 0, -3}, {0.5f, 1, -3}, {1, 1, -3}}) {
            RayRecord ray = MakeRay(place, {zero, zero, place.z > 0 ? -1.0f : 1.0f}), shadow = ray;
            EXPECT_TRUE(TraceClosest(ray)) << place.x << ' ' << place.y;
            EXPECT_EQ(ray.distance, 3.0f);
            EXPECT_TRUE(TraceOcclusion(shadow)) << place.x << ' ' << place.y;
        }
}

// Boxes nested like dolls make the deepest trees; the stack must hold them.
TEST_F(Walk, DeepTreesFitTheStack)
{
    Part part;
    for (std::uint32_t n = 0; n < 240; ++n) {
        const float size = std::exp2(0.25f * static_cast<float>(n) - 30);
        part.positions.insert(part.positions.end(), {{0, 0, size}, {size, 0, size}, {0, size, size}});
        part.triangles.push_back({3 * n, 3 * n + 1, 3 * n + 2, 0});
    }
    Show(part);
    Random random(9);
    int    hits = 0;
    for (int n = 0; n < 2000; ++n) {
        const float scale = std::ldexp(1.0f, static_cast<int>(random() % 50) - 25);
        RayRecord   ray = MakeRay(scale * PointIn(random, 0, 1), {0, 0, 1}), scanned = ray;
        const bool  hit = TraceClosest(ray);
        ASSERT_EQ(hit, Scan(Objects[0], scanned, false, 0));
        ASSERT_EQ(ray.distance, scanned.distance);
        hits += hit;
    }
    EXPECT_GT(hits, 500);
}
