// Directions of the scattering lobes: samplers against their densities, refraction against Snell's law.

#include "base/constants.h"
#include "transport/branches.h"
#include "transport/transport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>
#include <vector>

namespace hv {
namespace {

/// A frame that lies along no axis.
SurfacePoint TiltedPoint(float roughness_x = 0.0f, float roughness_y = 0.0f)
{
    SurfacePoint point;
    point.normal      = Normalized(Vector{0.3f, -0.5f, 0.8f});
    point.tangent     = PerpendicularTo(point.normal);
    point.bitangent   = Cross(point.normal, point.tangent);
    point.roughness_x = roughness_x;
    point.roughness_y = roughness_y;
    return point;
}

Vector Local(const SurfacePoint& point, Vector v)
{
    return {Dot(v, point.tangent), Dot(v, point.bitangent), Dot(v, point.normal)};
}

Vector World(const SurfacePoint& point, Vector v)
{
    return v.x * point.tangent + v.y * point.bitangent + v.z * point.normal;
}

Vector Spherical(double cosine, double phi)
{
    const double sine = std::sqrt(std::max(0.0, 1.0 - cosine * cosine));
    return {static_cast<float>(sine * std::cos(phi)), static_cast<float>(sine * std::sin(phi)),
            static_cast<float>(cosine)};
}

constexpr int kRows = 12, kColumns = 16;

/// Cell of a direction in the upper half: rows of equal steps of the cosine, columns of the azimuth.
std::size_t CellOf(Vector local)
{
    const double turn = std::atan2(local.y, local.x) / (2 * M_PI);
    const int    row  = std::min(static_cast<int>(local.z * kRows), kRows - 1);
    const int    col  = std::min(static_cast<int>((turn < 0 ? turn + 1 : turn) * kColumns), kColumns - 1);
    return static_cast<std::size_t>(row * kColumns + col);
}

/// Share of a density (1/sr) that falls into each cell, by the midpoint rule.
std::vector<double> CellShares(const std::function<double(Vector)>& density)
{
    constexpr int       kSteps = 40;
    std::vector<double> shares(kRows * kColumns);
    for (int row = 0; row < kRows * kSteps; ++row)
        for (int col = 0; col < kColumns * kSteps; ++col) {
            const double cosine = (row + 0.5) / (kRows * kSteps), phi = 2 * M_PI * (col + 0.5) / (kColumns * kSteps);
            const Vector v = Spherical(cosine, phi);
            shares[CellOf(v)] += density(v) * (1.0 / (kRows * kSteps)) * (2 * M_PI / (kColumns * kSteps));
        }
    return shares;
}

/// Pearson's statistic of drawn directions against the shares, in standard deviations above its mean. Cells that expect
/// fewer than 10 are put together with the lower half, which holds what the shares lack to 1.
double ChiSquareExcess(const std::vector<double>& shares, const std::function<Vector()>& draw)
{
    constexpr int       kDraws = 200000;
    std::vector<double> drawn(shares.size());
    for (int i = 0; i < kDraws; ++i)
        if (const Vector v = draw(); v.z >= 0) ++drawn[CellOf(v)];
    double statistic = 0, rest_drawn = kDraws, rest_expected = kDraws, degrees = 0;
    for (std::size_t i = 0; i < shares.size(); ++i) {
        const double mean = shares[i] * kDraws;
        if (mean < 10) continue;
        statistic += (drawn[i] - mean) * (drawn[i] - mean) / mean;
        rest_drawn -= drawn[i];
        rest_expected -= mean;
        ++degrees;
    }
    EXPECT_NEAR(rest_drawn, rest_expected, 5 * std::sqrt(std::max(rest_expected, 0.0)) + 1e-3 * kDraws);
    return (statistic - degrees) / std::sqrt(2 * degrees);
}

class Random {
public:
    float operator()() { return distribution_(generator_); }

private:
    std::mt19937                          generator_{7};
    std::uniform_real_distribution<float> distribution_{0.0f, 1.0f};
};

TEST(Lobes, CosineDirectionsFollowTheCosine)
{
    const SurfacePoint        point  = TiltedPoint();
    const std::vector<double> shares = CellShares([](Vector v) { return v.z / M_PI; });
    for (const float side : {1.0f, -1.0f}) {
        Random     random;
        const auto draw = [&] {
            const Vector v = SampleCosine(point, random(), random(), side);
            EXPECT_NEAR(Dot(v, v), 1.0f, 1e-4f);
            const Vector local = Local(point, v);
            return Vector{local.x, local.y, side * local.z};
        };
        EXPECT_LT(ChiSquareExcess(shares, draw), 5.0);
    }
}

// A torn map would be as uniform, but would lose the even spread of the numbers.
TEST(Lobes, NeighbouringNumbersGiveNeighbouringDirections)
{
    const SurfacePoint point = TiltedPoint();
    const auto         disc  = [&](int i, int j) {
        const Vector v =
            Local(point, SampleCosine(point, static_cast<float>(i) / 100, static_cast<float>(j) / 100, 1.0f));
        return Vector{v.x, v.y, 0};
    };
    for (int i = 1; i <= 100; ++i)
        for (int j = 1; j <= 100; ++j) {
            EXPECT_LT(Length(disc(i, j) - disc(i - 1, j)), 0.04f) << i << " " << j;
            EXPECT_LT(Length(disc(i, j) - disc(i, j - 1)), 0.04f) << i << " " << j;
        }
}

/// Density of Ward's half vectors per steradian (Ward 1992, eq. 7 to 9).
double WardHalfDensity(Vector h, double rx, double ry)
{
    const double c = h.z, tangent2 = (h.x * h.x / (rx * rx) + h.y * h.y / (ry * ry)) / (c * c);
    return std::exp(-tangent2) / (M_PI * rx * ry * c * c * c);
}

constexpr float kRoughness[][2] = {{0.2f, 0.2f}, {0.5f, 0.5f}, {0.2f, 0.6f}, {0.7f, 0.25f}};

// Half vectors follow their density. One, h, of density p makes a reflected direction of density p / (4 o.h), and the
// lobe's value is that density over 4 c (o.h), with c the cosine of h: value * 4 c (o.h) is what the drawn directions
// must follow. What that lacks to 1 is what goes below the surface.
TEST(Lobes, DrawnDirectionsFollowWardsDensity)
{
    for (const auto& r : kRoughness) {
        SCOPED_TRACE(testing::Message() << r[0] << " " << r[1]);
        const SurfacePoint        point  = TiltedPoint(r[0], r[1]);
        const std::vector<double> halves = CellShares([&](Vector h) { return WardHalfDensity(h, r[0], r[1]); });
        Random                    random;
        const auto                half = [&] { return SampleWardHalf(point, random(), 1.0f - random()); };
        EXPECT_LT(ChiSquareExcess(halves, [&] { return Local(point, half()); }), 5.0);
        for (const double angle : {0.0, 0.6}) {
            const Vector              outgoing = World(point, Spherical(std::cos(angle), 0.8));
            const std::vector<double> shares   = CellShares([&](Vector v) {
                const Vector incoming = World(point, v), h = Normalized(outgoing + incoming);
                return 4.0 * WardLobe(outgoing, incoming, point) * Dot(h, point.normal) * Dot(h, outgoing);
            });
            const auto                draw     = [&] {
                const Vector h = half();
                return Local(point, 2.0f * Dot(outgoing, h) * h - outgoing);
            };
            EXPECT_LT(ChiSquareExcess(shares, draw), 5.0) << angle;
        }
    }
}

TEST(Lobes, WardLobeIsReciprocalAndFinite)
{
    Random random;
    for (const auto& r : kRoughness) {
        const SurfacePoint point = TiltedPoint(r[0], r[1]);
        for (int i = 0; i < 1000; ++i) {
            const Vector a  = World(point, Spherical(random(), 6.28 * random()));
            const Vector b  = World(point, Spherical(random(), 6.28 * random()));
            const float  ab = WardLobe(a, b, point);
            EXPECT_NEAR(ab, WardLobe(b, a, point), 1e-4f * ab);
        }
        EXPECT_EQ(WardLobe(point.tangent, -point.tangent, point), 0.0f);
    }
    const SurfacePoint smooth = TiltedPoint();
    EXPECT_EQ(WardLobe(smooth.normal, smooth.normal, smooth), 0.0f);
    EXPECT_NEAR(Dot(SampleWardHalf(smooth, 0.3f, 0.5f), smooth.normal), 1.0f, 1e-6f);
}

TEST(Lobes, RefractionFollowsSnell)
{
    const Vector normal = TiltedPoint().normal, tangent = TiltedPoint().tangent;
    for (const double eta : {1.0 / 1.5, 1.0 / 1.33, 1.0, 1.33, 1.5, 2.4})
        for (const double degrees : {0.0, 10.0, 30.0, 41.0, 43.0, 60.0, 85.0}) {
            const double sine = std::sin(degrees * M_PI / 180), cosine = std::cos(degrees * M_PI / 180);
            const Vector d = static_cast<float>(sine) * tangent - static_cast<float>(cosine) * normal;
            Vector       out;
            const bool   total = Refract(out, d, normal, static_cast<float>(eta), static_cast<float>(cosine));
            ASSERT_EQ(total, eta * sine > 1.0) << eta << " " << degrees;
            if (total) continue;
            EXPECT_NEAR(Dot(out, tangent), eta * sine, 2e-6);
            EXPECT_LT(Dot(out, normal), 0.0f);
            EXPECT_NEAR(Dot(out, out), 1.0f, 1e-5f);
        }
}

// All frames together walk one sequence without gap or repetition, whose length is the share of the budget.
TEST(Branches, FramesShareOneSequence)
{
    Cameras.assign(1, Camera{});
    const struct {
        float       mean;
        int         budget, frames;
        std::size_t total;
    } cases[] = {{0.5f, 64, 16, 32}, {0.9f, 64, 16, 48}, {1.0f, 64, 17, 51}, {0.0f, 64, 5, 5},
                 {7.0f, 64, 1, 64},  {0.5f, -3, 4, 4},   {NAN, 64, 2, 2}};
    for (const auto& test : cases) {
        Cameras[0].sample = test.frames;
        std::vector<int> visits(test.total);
        for (CurrentFrame = 0; CurrentFrame < test.frames; ++CurrentFrame) {
            const Branches branches = SplitBranches({}, test.mean, test.budget);
            for (std::uint32_t k = branches.first; k < branches.end; k += branches.stride) ++visits.at(k);
        }
        EXPECT_EQ(visits, std::vector<int>(test.total, 1));
    }
    RayRecord later;
    later.diffuse_bounces = 1;
    EXPECT_EQ(SplitBranches(later, 1.0f, 64).count, 1u);
    CurrentFrame = 0;
    Cameras.clear();
}

}  // namespace
}  // namespace hv
