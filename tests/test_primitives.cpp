// The four primitive tests, against numbers worked out by hand and against a slow twin in double precision.

#include "accel/accel.h"
#include "accel/primitives.h"
#include "shading/shading.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

using namespace hv;

namespace {

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

class Primitives : public testing::Test {
protected:
    void SetUp() override
    {
        Shaders.clear();
        EnsureDefaultShader();
        PrepareShaders();
    }
    void TearDown() override { Shaders.clear(); }

    static RayRecord MakeRay(Vector origin, Vector direction, float distance = kFarAway)
    {
        RayRecord ray;
        ray.origin    = origin;
        ray.direction = direction;
        ray.distance  = distance;
        return ray;
    }
};

Part UnitTriangle()
{
    Part part;
    part.positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    part.triangles = {{0, 1, 2, 0}};
    return part;
}

}  // namespace

TEST_F(Primitives, TriangleAcceptsItsInsideAndItsEdgesWithinTheLimits)
{
    const struct {
        const char* what;
        Vector      origin, direction;
        float       distance;
        bool        hit;
    } cases[] = {
        {"inside, front", {0.25f, 0.25f, 1}, {0, 0, -1}, kFarAway, true},
        {"inside, back", {0.25f, 0.25f, -1}, {0, 0, 1}, kFarAway, true},
        {"corner", {0, 0, 1}, {0, 0, -1}, kFarAway, true},
        {"on an edge", {0.5f, 0, 1}, {0, 0, -1}, kFarAway, true},
        {"on the long edge", {0.5f, 0.5f, 1}, {0, 0, -1}, kFarAway, true},
        {"outside", {0.75f, 0.75f, 1}, {0, 0, -1}, kFarAway, false},
        {"away from it", {0.25f, 0.25f, 1}, {0, 0, 1}, kFarAway, false},
        {"along its plane", {-1, 0.25f, 0}, {1, 0, 0}, kFarAway, false},
        {"just within the limit", {0.25f, 0.25f, 1}, {0, 0, -1}, 1.0f + 2e-6f, true},
        {"beyond the limit", {0.25f, 0.25f, 1}, {0, 0, -1}, 1.0f, false},
        {"nearer than the epsilon", {0.25f, 0.25f, 0.5e-6f}, {0, 0, -1}, kFarAway, false},
        {"no direction", {0.25f, 0.25f, 1}, {0, 0, 0}, kFarAway, false},
        {"no number", {kNan, 0.25f, 1}, {0, 0, -1}, kFarAway, false},
        {"no limit", {0.25f, 0.25f, 1}, {0, 0, -1}, kNan, false},
    };
    const Part part = UnitTriangle();
    for (const auto& c : cases) {
        TriangleHit hit;
        EXPECT_EQ(IntersectTriangle(part, 0, MakeRay(c.origin, c.direction, c.distance), hit), c.hit) << c.what;
    }
    TriangleHit hit;
    ASSERT_TRUE(IntersectTriangle(part, 0, MakeRay({0.5f, 0.25f, 2}, {0, 0, -1}), hit));
    EXPECT_EQ(hit.t, 2.0f);
    EXPECT_EQ(hit.b0, 0.25f);
    EXPECT_EQ(hit.b1, 0.5f);
    EXPECT_EQ(hit.b2, 0.25f);
    EXPECT_LT(hit.denominator, 0.0f) << "counter-clockwise from the front";
}

TEST_F(Primitives, FacesWithoutAreaAreNeverHit)
{
    Part part;
    part.positions = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {3, 0, 0}};
    part.triangles = {{0, 0, 0, 0}, {0, 1, 1, 0}, {0, 1, 2, 0}};
    part.tetragons = {{0, 0, 0, 0, 0}, {0, 1, 2, 3, 0}};
    for (const Vector origin : {Vector{0, 0, 1}, Vector{0.5f, 0, 1}, Vector{1, 0, 1}}) {
        TriangleHit triangle;
        TetragonHit tetragon;
        for (std::uint32_t n = 0; n < 3; ++n)
            EXPECT_FALSE(IntersectTriangle(part, n, MakeRay(origin, {0, 0, -1}), triangle));
        for (std::uint32_t n = 0; n < 2; ++n)
            EXPECT_FALSE(IntersectTetragon(part, n, MakeRay(origin, {0, 0, -1}), tetragon));
    }
}

// The corner weights (1-u)(1-v), (1-u)v, uv, u(1-v) put the hit back where it is.
TEST_F(Primitives, TetragonParametersRebuildTheHitPoint)
{
    Part part;
    part.positions = {{0, 0, 0}, {2, 0, 0}, {2, 1, 0}, {0, 1, 0}};
    part.tetragons = {{0, 1, 2, 3, 0}};
    for (const float side : {1.0f, -1.0f})
        for (const float x : {0.0f, 0.5f, 1.25f, 2.0f})
            for (const float y : {0.0f, 0.25f, 1.0f}) {
                TetragonHit hit;
                ASSERT_TRUE(IntersectTetragon(part, 0, MakeRay({x, y, side}, {0, 0, -side}), hit)) << x << " " << y;
                const float w[4] = {(1 - hit.u) * (1 - hit.v), (1 - hit.u) * hit.v, hit.u * hit.v, hit.u * (1 - hit.v)};
                Vector      p;
                for (int n = 0; n < 4; ++n) p += w[n] * part.positions[static_cast<std::size_t>(n)];
                EXPECT_NEAR(p.x, x, 1e-6f);
                EXPECT_NEAR(p.y, y, 1e-6f);
                EXPECT_EQ(hit.denominator<0, side> 0);
            }
    TetragonHit hit;
    EXPECT_FALSE(IntersectTetragon(part, 0, MakeRay({2.1f, 0.5f, 1}, {0, 0, -1}), hit));
    EXPECT_FALSE(IntersectTetragon(part, 0, MakeRay({-1, 0.5f, 0}, {1, 0, 0}), hit)) << "along its plane";
}

// One side collapsed to a point: no parameter may come out as a non-number.
TEST_F(Primitives, CollapsedTetragonGivesNumbers)
{
    Part part;
    part.positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    part.tetragons = {{0, 0, 1, 2, 0}};
    int hits       = 0;
    for (int y = 0; y <= 8; ++y)
        for (int x = 0; x + y <= 8; ++x) {
            TetragonHit  hit;
            const Vector origin{static_cast<float>(x) / 8, static_cast<float>(y) / 8, 1};
            if (!IntersectTetragon(part, 0, MakeRay(origin, {0, 0, -1}), hit)) continue;
            ++hits;
            EXPECT_TRUE(std::isfinite(hit.u) && std::isfinite(hit.v));
        }
    EXPECT_GT(hits, 0);
}

TEST_F(Primitives, ParticleFollowsTheRayThatLeftIt)
{
    Part part;
    part.positions         = {{0, 0, 0}};
    part.scalars[0].values = {1.0f};
    part.particles         = {0};
    const Vector along{1, 0, 0};

    RayRecord outside = MakeRay({-3, 0, 0}, along);
    ASSERT_TRUE(IntersectParticle(part, 0, outside));
    EXPECT_EQ(outside.distance, 2.0f);
    EXPECT_EQ(outside.hit_u, -1.0f);
    EXPECT_EQ(outside.front_side, 1);

    RayRecord inside = MakeRay({0, 0, 0}, along);
    ASSERT_TRUE(IntersectParticle(part, 0, inside));
    EXPECT_EQ(inside.distance, 1.0f);

    // Meant: the far limit lies an epsilon beyond the distance, not before it.
    RayRecord limited = MakeRay({-3, 0, 0}, along, 2.0f);
    EXPECT_TRUE(IntersectParticle(part, 0, limited));
    RayRecord short_of = MakeRay({-3, 0, 0}, along, 1.99f);
    EXPECT_FALSE(IntersectParticle(part, 0, short_of));

    for (int element = 0; element <= 7; ++element) {
        RayRecord leaving      = MakeRay({0, 0, 0}, along);
        leaving.from_kind      = 1;
        leaving.from_primitive = 0;
        leaving.element        = static_cast<ElementCode>(element);
        const bool reflected   = element == 2 || element == 4 || element == 6;
        EXPECT_EQ(IntersectParticle(part, 0, leaving), !reflected) << element;
    }
}

// Shadow rays use the discriminant in place of its root: through the centre of a sphere of radius 2 that is 4, not 2.
TEST_F(Primitives, ShadowRaysSeeAnotherSphere)
{
    Part part;
    part.positions         = {{0, 0, 0}};
    part.scalars[0].values = {2.0f};
    part.particles         = {0};
    float t;
    ASSERT_TRUE(OccludeParticle(part, 0, MakeRay({-10, 0, 0}, {1, 0, 0}), t));
    EXPECT_EQ(t, 6.0f);
    RayRecord ray = MakeRay({-10, 0, 0}, {1, 0, 0});
    ASSERT_TRUE(IntersectParticle(part, 0, ray));
    EXPECT_EQ(ray.distance, 8.0f);
}

TEST_F(Primitives, VisibilitySpeaksOfPrimaryRaysOnly)
{
    const Part part = UnitTriangle();
    for (int visibility = 0; visibility <= 3; ++visibility) {
        Shaders[0].geometry_shader.visibility = static_cast<Visibility>(visibility);
        RefreshShaderTraits();
        for (int depth = 0; depth <= 1; ++depth)
            for (int secondary = 0; secondary <= 1; ++secondary) {
                RayRecord ray       = MakeRay({0.25f, 0.25f, 1}, {0, 0, -1});
                ray.depth           = static_cast<std::uint8_t>(depth);
                ray.is_secondary    = static_cast<std::uint8_t>(secondary);
                const bool  visible = visibility != 0 && (depth > 0 || visibility == 3 || visibility == 1 + secondary);
                TriangleHit hit;
                EXPECT_EQ(IntersectTriangle(part, 0, ray, hit), visible) << visibility << depth << secondary;
            }
    }
}

namespace {

/// A strand of segments, with tangents along the polyline.
Part Strand(const std::vector<Vector>& points, const std::vector<float>& radii)
{
    Part part;
    part.positions         = points;
    part.scalars[0].values = radii;
    for (std::size_t n = 0; n < points.size(); ++n) {
        const Vector ahead = points[std::min(n + 1, points.size() - 1)] - points[n == 0 ? 0 : n - 1];
        part.tangents.push_back(PackDirection(ahead));
        if (n + 1 < points.size()) part.cylinders.push_back(static_cast<std::uint32_t>(n));
    }
    return part;
}

struct Wide {
    double x, y, z;
};
Wide   Widen(Vector v) { return {v.x, v.y, v.z}; }
Wide   Add(Wide a, Wide b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
Wide   Scale(double s, Wide a) { return {s * a.x, s * a.y, s * a.z}; }
Wide   Subtract(Wide a, Wide b) { return Add(a, Scale(-1, b)); }
double Inner(Wide a, Wide b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
Wide   Outer(Wide a, Wide b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
Wide   Unit(Wide a) { return Scale(1 / std::sqrt(Inner(a, a)), a); }

/// The cylinder test piece by piece in double precision. `margin` is the least by which any decision was taken.
bool SlowCylinder(const Part& part, std::uint32_t index, const RayRecord& ray, double& t, double& across, double& along,
                  double& margin)
{
    const std::uint32_t i  = part.cylinders[index];
    const Wide          p0 = Widen(part.positions[i]), p1 = Widen(part.positions[i + 1]);
    const Wide t0 = Widen(UnpackDirection(part.tangents[i])), t1 = Widen(UnpackDirection(part.tangents[i + 1]));
    const Wide o = Widen(ray.origin), d = Widen(ray.direction);
    const auto curve = [&](double s) {
        const double h = 2 * s * s * s - 3 * s * s;
        return Add(Add(p0, Scale(h, Subtract(p0, p1))),
                   Add(Scale(s * (1 - s) * (1 - s), t0), Scale(s * s * (s - 1), t1)));
    };
    const auto cut = [&](double s) { return Add(t0, Scale(s, Subtract(t1, t0))); };
    bool       any = false;
    t              = 1e30;
    margin         = 1e30;
    for (int k = 0; k < 8; ++k) {
        const Wide   a = curve(k / 8.0), b = curve((k + 1) / 8.0), e = Subtract(b, a);
        const double r        = RadiusAt(part, i) * ((7 - k) / 7.0) + RadiusAt(part, i + 1) * (k / 7.0);
        const Wide   sideways = Unit(Outer(d, e));
        const double offset   = Inner(sideways, Subtract(a, o));
        margin                = std::min(margin, std::fabs(std::fabs(offset) - r));
        if (std::fabs(offset) >= r) continue;
        const Wide   facing = Unit(Outer(e, sideways));
        const double hit    = Inner(facing, Subtract(a, o)) / Inner(facing, d);
        if (!(hit > 1e-6 && hit + 1e-6 < ray.distance)) continue;
        const Wide   position = Add(o, Scale(hit, d));
        const double start    = Inner(cut(k / 8.0), Subtract(position, a)),
                     end      = Inner(cut((k + 1) / 8.0), Subtract(position, b));
        margin                = std::min({margin, std::fabs(start), std::fabs(end)});
        if (!(start >= 0 && end < 0) || hit >= t) continue;
        any    = true;
        t      = hit;
        across = offset / r;
        along  = (k + 0.5) / 8;
    }
    return any;
}

}  // namespace

TEST_F(Primitives, CylinderAgreesWithItsSlowTwin)
{
    std::mt19937                          random(5);
    std::uniform_real_distribution<float> uniform(-1, 1);
    const auto point = [&] { return Vector{uniform(random), uniform(random), uniform(random)}; };
    int        hits = 0, undecided = 0;
    for (int n = 0; n < 20000; ++n) {
        const Part   part   = Strand({point(), point(), point()}, {0.1f, 0.2f, 0.05f});
        const Vector origin = 4.0f * point();
        RayRecord    ray    = MakeRay(origin, Normalized(0.5f * point() - origin));
        CylinderHit  hit;
        double       t, across = 0, along = 0, margin;
        const bool   expected = SlowCylinder(part, 0, ray, t, across, along, margin);
        if (margin < 2e-3) {  // the fast root decides such cases either way
            ++undecided;
            continue;
        }
        ASSERT_EQ(IntersectCylinder(part, 0, ray, hit), expected) << n;
        if (!expected) continue;
        ++hits;
        EXPECT_NEAR(hit.t, t, 5e-3);
        EXPECT_NEAR(hit.across, across, 5e-3);
        EXPECT_EQ(hit.along, static_cast<float>(along));
    }
    EXPECT_GT(hits, 500);
    EXPECT_LT(undecided, 10000);
}

// The pieces end at planes that neighbours share: a ray through a bent strand meets it once at each joint.
TEST_F(Primitives, StrandJointsNeitherGapNorOverlap)
{
    const Part part = Strand({{0, 0, 0}, {1, 0, 0}, {2, 0.2f, 0}, {3, 0.2f, 0}}, {0.1f, 0.1f, 0.1f, 0.1f});
    for (int n = 0; n <= 400; ++n) {
        const float x = 0.5f + 0.005f * static_cast<float>(n);
        // Aimed at the axis, so that the joints' planes alone decide.
        const float y     = x < 1 ? 0.0f : (x < 2 ? 0.2f * (x - 1.0f) : 0.2f);
        int         count = 0;
        for (std::uint32_t i = 0; i < 3; ++i) {
            CylinderHit hit;
            count += IntersectCylinder(part, i, MakeRay({x, y, 1}, {0, 0, -1}), hit);
        }
        EXPECT_EQ(count, 1) << x;
    }
}

// The half width runs to 0 at the last piece: steps of 1/7.
TEST_F(Primitives, TaperedStrandEndsBeforeItsTip)
{
    Part        part = Strand({{0, 0, 0}, {8, 0, 0}}, {0.7f, 0.0f});
    CylinderHit hit;
    part.tangents = {PackedDirection{}, PackedDirection{}};
    EXPECT_FALSE(IntersectCylinder(part, 0, MakeRay({4, 0, 1}, {0, 0, -1}), hit)) << "no tangents, no planes";
    part.tangents = {{127, 0, 0}, {127, 0, 0}};
    ASSERT_TRUE(IntersectCylinder(part, 0, MakeRay({4.1f, 0.02f, 1}, {0, 0, -1}), hit));
    EXPECT_FALSE(IntersectCylinder(part, 0, MakeRay({7.99f, 0, 1}, {0, 0, -1}), hit));
    EXPECT_FALSE(IntersectCylinder(part, 0, MakeRay({4.1f, 0.65f, 1}, {0, 0, -1}), hit));
}

TEST_F(Primitives, FrameHelpersAreOrthogonal)
{
    for (const Vector n :
         {Vector{1, 0, 0}, Vector{0, 1, 0}, Vector{0, 0, 1}, Normalized({1, 1, -1}), Normalized({-1, 2, 3})}) {
        const Vector tangent = FallbackTangent(n);
        EXPECT_NEAR(Dot(tangent, tangent), 1.0f, 1e-5f);
        EXPECT_NEAR(Dot(tangent, n), 0.0f, 1e-5f);
    }
    const Vector square[4] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
    EXPECT_EQ(FaceNormal(square, 3), (Vector{0, 0, 1}));
    EXPECT_EQ(FaceNormal(square, 4), (Vector{0, 0, 1}));
}
