// The four primitive tests, against numbers worked out by hand and against a slow twin in double precision.

#include "accel/primitives.h"
#include "accel_scenes.h"
#include "shading/shading.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

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
};

Part UnitTriangle()
{
    Part part;
    part.positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    part.triangles = {{0, 1, 2, 0}};
    return part;
}

Part Ball(float radius)
{
    Part part;
    part.positions         = {{0, 0, 0}};
    part.scalars[0].values = {radius};
    part.particles         = {0};
    return part;
}

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
        {"on an edge", {0.5f, 0, 1}, {0, 0, -1}, kFarAway, true},
        {"on the long edge", {0.5f, 0.5f, 1}, {0, 0, -1}, kFarAway, true},
        {"outside", {0.75f, 0.75f, 1}, {0, 0, -1}, kFarAway, false},
        {"away from it", {0.25f, 0.25f, 1}, {0, 0, 1}, kFarAway, false},
        {"just within the limit", {0.25f, 0.25f, 1}, {0, 0, -1}, 1.0f + 2e-6f, true},
        {"beyond the limit", {0.25f, 0.25f, 1}, {0, 0, -1}, 1.0f, false},
        {"nearer than the epsilon", {0.25f, 0.25f, 0.5e-6f}, {0, 0, -1}, kFarAway, false},
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

TEST_F(Primitives, ParticleFollowsTheRayThatLeftIt)
{
    const Part   part = Ball(1.0f);
    const Vector along{1, 0, 0};
    RayRecord    outside = MakeRay({-3, 0, 0}, along);
    ASSERT_TRUE(IntersectParticle(part, 0, outside));
    EXPECT_EQ(outside.distance, 2.0f);
    EXPECT_EQ(outside.hit_u, -1.0f);
    EXPECT_EQ(outside.front_side, 1);

    // Meant: the far limit lies an epsilon beyond the distance, not before it.
    RayRecord limited = MakeRay({-3, 0, 0}, along, 2.0f), short_of = MakeRay({-3, 0, 0}, along, 1.99f);
    EXPECT_TRUE(IntersectParticle(part, 0, limited));
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
    const Part part = Ball(2.0f);
    float      t;
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
        for (const std::uint8_t depth : {std::uint8_t{0}, std::uint8_t{1}})
            for (const std::uint8_t secondary : {std::uint8_t{0}, std::uint8_t{1}}) {
                RayRecord ray       = MakeRay({0.25f, 0.25f, 1}, {0, 0, -1});
                ray.depth           = depth;
                ray.is_secondary    = secondary;
                const bool  visible = visibility != 0 && (depth > 0 || visibility == 3 || visibility == 1 + secondary);
                TriangleHit hit;
                EXPECT_EQ(IntersectTriangle(part, 0, ray, hit), visible) << visibility << +depth << +secondary;
            }
    }
}

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

// A ray meets a straight strand where it passes the axis at the least distance. The half width falls in steps of 1/7
// over the eight pieces.
TEST_F(Primitives, StraightStrandIsMetAtTheLeastDistance)
{
    Part part     = Strand({{0, 0, 0}, {1, 0, 0}}, {0.14f, 0.0f});
    part.tangents = {{127, 0, 0}, {127, 0, 0}};  // even speed along the axis
    Random random(5);
    int    hits = 0;
    for (int n = 0; n < 40000; ++n) {
        const Vector o = PointIn(random, -2, 2), aim = PointIn(random, -0.2f, 0.2f);
        const Vector d     = Normalized(Vector{Uniform(random, -0.2f, 1.2f), aim.y, aim.z} - o);
        const float  width = std::hypot(d.y, d.z), offset = (o.z * d.y - o.y * d.z) / width;
        const float  t = -(o.y * d.y + o.z * d.z) / (width * width), place = 8 * (o.x + t * d.x);
        const float  piece = std::floor(place), radius = 0.02f * (7 - piece);
        if (std::fabs(std::fabs(offset) - radius) < 1e-3f || std::fabs(place - std::round(place)) < 0.02f) continue;
        const bool  expected = t > 0 && piece >= 0 && piece < 8 && std::fabs(offset) < radius;
        CylinderHit hit;
        ASSERT_EQ(IntersectCylinder(part, 0, MakeRay(o, d), hit), expected) << n;
        if (!expected) continue;
        ++hits;
        EXPECT_NEAR(hit.t, t, 5e-3f);
        EXPECT_NEAR(std::fabs(hit.across), std::fabs(offset) / radius, 2e-2f);
        EXPECT_EQ(hit.along, (piece + 0.5f) / 8);
    }
    EXPECT_GT(hits, 1000);
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

}  // namespace
