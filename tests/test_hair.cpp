// Scattering of fibres against its law in double precision: the offset across the fibre integrated without tables, and
// the longitudinal lobe as what it is, a von Mises-Fisher lobe turned about the fibre.

#include "lights/lights.h"
#include "lights/sky_tables.h"
#include "scene_files.h"
#include "scene_fixture.h"
#include "session/sampling.h"
#include "shading/hair.h"

#include <array>
#include <cmath>

namespace hv {
namespace {

using enum Element;
using enum Material;
using std::size_t;

constexpr double kDegree = M_PI / 180;

/// M of d'Eon et al. 2011, exp(a) I0(b) / (2 v sinh(1 / v)).
double Longitudinal(double v, double theta_o, double theta_i)
{
    const double b      = std::cos(theta_o) * std::cos(theta_i) / v;
    const double scaled = b < 500 ? std::cyl_bessel_i(0, b) * std::exp(-b)
                                  : (1 + 1 / (8 * b) + 9 / (128 * b * b)) / std::sqrt(2 * M_PI * b);
    return scaled * std::exp((std::cos(theta_o + theta_i) - 1) / v) / (v * -std::expm1(-2 / v));
}

double Fresnel(double cosine)
{
    constexpr double r0 = (0.55 / 2.55) * (0.55 / 2.55);
    return r0 + (1 - r0) * std::pow(1 - cosine, 5);
}

/// Fresnel's weight of the mirror that joins two directions.
double MirrorFresnel(Vector a, Vector b) { return Fresnel(std::sqrt(std::max(0.0f, 0.5f + 0.5f * Dot(a, b)))); }

/// One lobe of a fibre of index 1.55.
struct Law {
    int    lobe;
    double beta;  ///< of this lobe, radians

    Law(int p, double degrees) : lobe(p), beta(degrees * kDegree * (p + 1)) {}

    /// The mean over all offsets of a quantity of (azimuth where the light leaves, what is left of it). Even steps of
    /// the angle: the grazing ends are as fine as the middle. The way through a unit circle is 2 cos, and counts twice.
    template <class Quantity>
    double Mean(double half_angle, double absorption, const Quantity& quantity) const
    {
        constexpr int kSteps = 128;
        const double  c      = std::cos(half_angle);
        double        sum    = 0;
        for (int i = 0; i < kSteps; ++i) {
            const double in = M_PI * ((i + 0.5) / kSteps - 0.5), f = Fresnel(std::cos(in) * c);
            const double out  = std::asin(std::sin(in) * c / std::sqrt(1.55 * 1.55 - 1 + c * c));
            const double left = lobe == 0 ? 1 : std::pow(1 - f, 2) * std::pow(f, lobe - 1);
            sum += std::cos(in) * M_PI / (2 * kSteps) *
                   quantity(std::remainder(lobe * (M_PI + 2 * out) - 2 * in, 2 * M_PI),
                            left * std::exp(-4 * absorption * std::cos(out) * lobe));
        }
        return sum;
    }

    /// Density over the azimuth (1/rad), or the light that it carries.
    double Azimuth(double half_angle, double phi, bool light, double absorption = 0) const
    {
        return Mean(half_angle, absorption, [&](double leaves, double left) {
            double sum = 0;
            for (const int w : {-1, 0, 1})
                sum += std::exp(-0.5 * std::pow((std::remainder(phi - leaves, 2 * M_PI) - 2 * M_PI * w) / beta, 2));
            return (light ? left : 1) * sum / (beta * std::sqrt(2 * M_PI));
        });
    }

    /// Share of the azimuths from -pi to phi.
    double Below(double half_angle, double phi) const
    {
        return Mean(half_angle, 0, [&](double leaves, double) {
            double sum = 0;
            for (const int w : {-1, 0, 1})
                for (const double sign : {-1.0, 1.0})
                    sum += sign * 0.5 *
                           std::erf(((sign > 0 ? phi : -M_PI) - leaves - 2 * M_PI * w) / (beta * std::sqrt(2.0)));
            return sum;
        });
    }
};

/// Functions of the half angle which are smooth and slow to find.
template <size_t kCount>
struct ByHalfAngle {
    static constexpr int                               kNodes = 16;
    std::array<std::array<double, kCount>, kNodes + 1> nodes;

    template <class Function>
    explicit ByHalfAngle(const Function& function)
    {
        for (size_t i = 0; i < nodes.size(); ++i)
            for (size_t k = 0; k < kCount; ++k) nodes[i][k] = function(static_cast<double>(i) * M_PI / 2 / kNodes, k);
    }
    double operator()(double angle, size_t k) const
    {
        const double x = std::abs(angle) * 2 * kNodes / M_PI;
        const auto   i = static_cast<size_t>(std::min(x, kNodes - 1.0));
        return std::lerp(nodes[i][k], nodes[i + 1][k], x - static_cast<double>(i));
    }
};

struct Hair : testing::Test {
    Hair()
    {
        hvxSetReport(false);
        SetSeed(5);
        FillSamplingTables();
        BeginRandomStream(0, 0);
    }
    ~Hair() override
    {
        ClearSeed();
        hvxSetReport(true);
    }
};

SurfaceShader Layer(double degrees, Material material)
{
    SurfaceShader layer;
    layer.Slot(Roughness).color = Color{1.5f, 1.0f, 0.5f} * static_cast<float>(degrees / 90);
    layer.Slot(Ior).color       = Color{0.9f, 1.0f, 1.1f} * 1.55f;
    layer.material              = material;
    return layer;
}

/// Nothing is taken of the second layer.
HairParameters Prepared(double degrees, Material material = Dielectric)
{
    Shader shader;
    shader.is_hair = true;
    shader.layers  = {Layer(degrees, material), SurfaceShader()};
    PrepareHair(shader);
    return shader.hair;
}

const Vector kTangent = Normalized(Vector{0.3f, -0.5f, 0.8f});
const Vector kAcross  = PerpendicularTo(kTangent);

/// A direction at an angle above the plane across the fibre, turned about it from kAcross.
Vector Direction(double theta, double phi)
{
    const double c = std::cos(theta);
    return static_cast<float>(std::sin(theta)) * kTangent + static_cast<float>(c * std::cos(phi)) * kAcross +
           static_cast<float>(c * std::sin(phi)) * Cross(kTangent, kAcross);
}

constexpr double kOutgoing[] = {0, 35 * kDegree, -70 * kDegree, 88 * kDegree};

// The published polynomials are off by 1.9e-7 in sqrt(x) exp(-x) I0(x), which tends to 0.4; the rest is rounding.
TEST_F(Hair, BesselFunctionAgreesWithTheStandardLibrary)
{
    for (int i = 0; i <= 32000; ++i) {
        const float x = static_cast<float>(i) * 0.0025f;
        ASSERT_NEAR(BesselI0(x) / std::cyl_bessel_i(0, static_cast<double>(x)), 1, x < 3.75f ? 4e-7 : 9e-7) << x;
    }
}

// M cos(theta) integrates to 1 over theta. Below v = 0.2 half of exp(1 / v) stands for sinh(1 / v), 5e-5 more. The
// series that stands for I0(b) above 12 takes 1 / (16 b) for 1 / (8 b) and is so too small by as much, at most 0.57 %.
// Sines that are rounded to floats shift a lobe of the width sqrt(v).
TEST_F(Hair, LongitudinalTermIsNormalised)
{
    for (const double v : {1e-6, 1e-4, 1e-3, 0.01, 0.04, 0.1, 0.1999, 0.2, 0.3, 1.0, 5.0, 1e5}) {
        HairParameters hair;
        hair.variance[1]      = static_cast<float>(v);
        hair.norm[1]          = static_cast<float>(0.5 / (v * std::sinh(1 / v)));
        const double rounding = 2e-6 + 1e-6 / std::sqrt(v) + (v < 0.2 ? 5e-5 : 0);
        for (const double degrees : {0.0, 20.0, -45.0, 70.0, -85.0, 89.0, 90.0}) {
            SCOPED_TRACE(testing::Message() << v << " " << degrees);
            constexpr int kSteps  = 2000;
            const double  theta_o = degrees * kDegree, reach = 12 * std::sqrt(v);
            const double  low = std::max(-M_PI / 2, -theta_o - reach), high = std::min(M_PI / 2, -theta_o + reach);
            const float   so = static_cast<float>(std::sin(theta_o)), co = static_cast<float>(std::cos(theta_o));
            double        sum = 0;
            for (int i = 0; i < kSteps; ++i) {
                const double theta = low + (high - low) * (i + 0.5) / kSteps, ideal = Longitudinal(v, theta_o, theta);
                const float  si = static_cast<float>(std::sin(theta)), ci = static_cast<float>(std::cos(theta));
                const double m = static_cast<double>(HairLongitudinal(hair, 1, so, co, si, ci));
                ASSERT_TRUE(m >= 0 && m < 1e7) << theta;
                const double b = static_cast<double>(co * ci) / v, low_by = v < 0.2 && b > 12 ? 1 / (16 * b) : 0;
                ASSERT_NEAR(ideal > 1e-3 / v ? m / ideal : 1 - low_by, 1 - low_by, 0.1 * low_by + rounding) << theta;
                sum += m * std::cos(theta) * (high - low) / kSteps;
            }
            EXPECT_NEAR(sum, 0.99715, 0.00285 + rounding);
        }
        for (const float s : {-1.0f, 0.0f, 1.0f})
            for (const float c : {0.0f, 1e-20f, 1.0f})
                EXPECT_TRUE(std::isfinite(HairLongitudinal(hair, 1, 1, c, s, c))) << v << ' ' << s << ' ' << c;
    }
}

// Rows run over half angles to 90 degrees, columns over azimuths to 180. An entry is an integral over the offset; the
// ripple of its 128 steps, 0.25 rad apart in azimuth where light grazes, is below 1 % of the peak for lobes as wide as
// that. Both sides of the fibre together have a density of 1.
TEST_F(Hair, TablesHoldTheAzimuthalIntegralsAndAbsorption)
{
    constexpr float kAbsorption[] = {0, 0.1f, 0.5f};
    const auto      number        = static_cast<int>(Shaders.size());
    Shaders.emplace_back().layers = {Layer(12, Dielectric)};
    hvxSetHairAbsorption(number, kAbsorption[0], kAbsorption[1], kAbsorption[2]);
    hvxSetHairAbsorption(number, 0, -1, 0);
    hvxSetHairAbsorption(number, 0, 0, INFINITY);
    hvxSetHairAbsorption(number + 1, 1, 1, 1);
    Shader shader = Shaders.back();
    Shaders.pop_back();
    shader.is_hair = true;
    PrepareHair(shader);
    const HairParameters& hair = shader.hair;
    for (const int p : {0, 1, 2}) {
        const Law    law(p, 12);
        const Image& colors = p == 0 ? hair.lobe_r : p == 1 ? hair.lobe_tt : hair.lobe_trt;
        for (const size_t row : {0, 1, 50, 100, 127}) {
            const double half      = M_PI / 2 * (static_cast<double>(row) + 0.5) / kHairTableSize;
            const float *densities = &hair.lobe_density.pixels32.at(row * 384), *light = &colors.pixels32.at(row * 384);
            double       sum = 0, peak = 0;
            for (int column = 0; column < kHairTableSize; ++column) {
                sum += static_cast<double>(densities[3 * column + p]) * 2 * M_PI / kHairTableSize;
                peak = std::max(peak, static_cast<double>(light[3 * column]));
            }
            EXPECT_NEAR(sum, 1, 1e-4) << p << ' ' << row;
            for (const int column : {0, 1, 31, 64, 90, 126, 127}) {
                SCOPED_TRACE(testing::Message() << "lobe " << p << ", row " << row << ", column " << column);
                const double phi = M_PI * (column + 0.5) / kHairTableSize;
                EXPECT_NEAR(densities[3 * column + p], law.Azimuth(half, phi, false), 2e-3);
                for (const int c : {0, 1, 2})
                    EXPECT_NEAR(light[3 * column + c], law.Azimuth(half, phi, true, kAbsorption[c]), 8e-3 * peak);
            }
        }
    }
}

/// Where in a table of 128 the texel is that a share of the way along it reads, whose number is the whole part of 127
/// shares.
double TexelPlace(double share) { return (std::floor(127 * share) + 0.5) / 128; }

// Half the difference of two angles picks the row. A density holds cos^2 of the incoming angle, a colour does not.
// Light runs both ways alike.
TEST_F(Hair, LobesAreTheTexelsOfTheirAngles)
{
    const HairParameters hair = Prepared(20);
    for (std::uint32_t i = 1; i < 400; ++i) {
        const double theta_o = std::asin(2.0 * RadicalInverse(0, i) - 1), phi = M_PI * RadicalInverse(2, i);
        const double theta_i = std::asin(2.0 * RadicalInverse(1, i) - 1), turn = 6.0 * RadicalInverse(3, i);
        const Vector outgoing = Direction(theta_o, turn), incoming = Direction(theta_i, turn + phi);
        const auto   lobes   = HairLobes(hair, outgoing, incoming, kTangent);
        const auto   reverse = HairLobes(hair, incoming, outgoing, kTangent);
        const double half    = M_PI / 2 * TexelPlace(std::abs(theta_i - theta_o) / M_PI),
                     c2      = std::pow(std::cos(theta_i), 2);
        const double column  = M_PI * TexelPlace(phi / M_PI);
        float        densities[3];
        HairLobeDensities(hair, outgoing, incoming, kTangent, densities);
        for (const int p : {0, 1, 2}) {
            SCOPED_TRACE(testing::Message() << theta_o << ' ' << theta_i << ' ' << phi << " lobe " << p);
            const Law    law(p, 20);
            const double m     = Longitudinal(law.beta * law.beta, theta_o, theta_i);
            const double color = law.Azimuth(half, column, true) * (p == 0 ? MirrorFresnel(outgoing, incoming) : 1);
            EXPECT_NEAR(lobes.densities[p], m * c2 * law.Azimuth(half, column, false), 0.01 * m * c2 + 1e-5);
            EXPECT_NEAR(lobes.colors[p].g, m * color, 0.01 * m + 1e-5);
            EXPECT_NEAR(lobes.colors[p].g, reverse.colors[p].g, 1e-3f * lobes.colors[p].g + 1e-6f);
            EXPECT_EQ(lobes.densities[p], densities[p]);
        }
    }
}

constexpr size_t kRows = 6, kColumns = 16;

/// Shares of a lobe's drawn directions in cells of equal parts of the longitudinal lobe (rows, parted at `edges`) and
/// of the azimuth (columns), and the means of what is left in three channels.
struct Shares {
    double cells[kRows * kColumns] = {}, edges[kRows] = {}, left[3] = {};
};

// Meant: the half angle of a drawn direction is found before its sine is negated. Likely ones have one near 0, where a
// pair of directions evaluated has one near the outgoing angle. So what goes through the fibre is drawn as it is
// evaluated where the outgoing direction is at right angles to it, and with less Fresnel elsewhere: narrow lobes seen
// from 70 degrees send 19 % too much.
Shares SharesOf(double variance, double theta_o, const ByHalfAngle<kColumns + 4>& table)
{
    constexpr int kSteps = 8000;
    Shares        shares;
    double        below = 0;
    size_t        row   = 0;
    for (int i = 0; i < kSteps; ++i) {
        const double theta = M_PI * ((i + 0.5) / kSteps - 0.5), half = 0.5 * (theta - theta_o);
        const double mass = Longitudinal(variance, theta_o, -theta) * std::cos(theta) * M_PI / kSteps;
        for (size_t c = 0; c < kColumns; ++c)
            shares.cells[row * kColumns + c] += mass * (table(half, c + 1) - table(half, c));
        for (size_t c = 0; c < 3; ++c) shares.left[c] += mass * table(half, kColumns + 1 + c);
        below += mass;
        if (row + 1 < kRows && below * kRows >= static_cast<double>(row + 1))
            shares.edges[++row] = std::sin(M_PI * (static_cast<double>(i + 1) / kSteps - 0.5));
    }
    return shares;
}

struct Drawn {
    double cells[kRows * kColumns] = {}, count = 0, left[3] = {}, square[3] = {};
};

/// Pearson's statistic in standard deviations above its mean. Cells that expect few are put together with the next.
double ChiSquareExcess(const Drawn& drawn, const Shares& shares)
{
    double statistic = 0, degrees = -1, seen = 0, expected = 0;
    for (size_t i = 0; i < kRows * kColumns; ++i) {
        seen += drawn.cells[i];
        expected += shares.cells[i] * drawn.count;
        if (expected < 10 && i + 1 < kRows * kColumns) continue;
        statistic += std::pow(seen - expected, 2) / std::max(expected, 1.0);
        seen = expected = 0;
        ++degrees;
    }
    return (statistic - degrees) / std::sqrt(2 * degrees);
}

// Widths on both sides of 0.1 rad, where the way to draw the cone changes (at 5.85 degrees exp(1 / v) is still too
// large for a float), and of v = 0.2. The absorption is set after the tables are made: the sampler reads none.
TEST_F(Hair, DrawnDirectionsFollowTheLobes)
{
    constexpr int    kDraws       = 45000;
    constexpr double absorption[] = {0, 0.1, 0.5};
    for (const double degrees : {2.0, 5.85, 10.0, 40.0}) {
        HairParameters hair = Prepared(degrees);
        for (const int c : {0, 1, 2}) hair.absorption[c] = static_cast<float>(absorption[c]);
        std::vector<ByHalfAngle<kColumns + 4>> tables;
        for (const int p : {0, 1, 2})
            tables.emplace_back([&, law = Law(p, degrees)](double half, size_t k) {
                if (k <= kColumns) return law.Below(half, M_PI * (2.0 * static_cast<double>(k) / kColumns - 1));
                return law.Mean(half, absorption[k - kColumns - 1], [](double, double left) { return left; });
            });
        for (const double theta_o : kOutgoing) {
            const Vector outgoing = Direction(theta_o, 0);
            Shares       expected[3];
            Drawn        drawn[3];
            for (const size_t p : {0, 1, 2})
                expected[p] = SharesOf(std::pow(Law(static_cast<int>(p), degrees).beta, 2), theta_o, tables[p]);
            for (int i = 0; i < kDraws; ++i) {
                const auto [d, weight, lobe] = SampleHair(hair, outgoing, kTangent);
                ASSERT_TRUE(lobe >= 0 && lobe < 3);
                ASSERT_NEAR(Dot(d, d), 1.0f, 1e-3f);
                const float  y = Dot(d, Cross(kTangent, kAcross)), x = Dot(d, kAcross);
                const double sine = static_cast<double>(-Dot(d, kTangent)), turn = std::atan2(y, x) / (2 * M_PI) + 0.5;
                size_t       row = 0;
                while (row + 1 < kRows && sine >= expected[lobe].edges[row + 1]) ++row;
                ++drawn[lobe].cells[row * kColumns + std::min(static_cast<size_t>(turn * kColumns), kColumns - 1)];
                ++drawn[lobe].count;
                const double mirror = lobe == 0 ? MirrorFresnel(outgoing, d) : 0;
                for (const int c : {0, 1, 2}) {
                    const double left = static_cast<double>(weight[c]) / 3;  // one of three was drawn
                    ASSERT_NEAR(lobe == 0 ? left : mirror, mirror, 1e-3);
                    drawn[lobe].left[c] += left;
                    drawn[lobe].square[c] += left * left;
                }
            }
            for (const size_t p : {0, 1, 2}) {
                SCOPED_TRACE(testing::Message() << degrees << " degrees, outgoing " << theta_o << ", lobe " << p);
                const double n = drawn[p].count;
                EXPECT_NEAR(n, kDraws / 3, 5 * std::sqrt(kDraws * 2 / 9.0));
                EXPECT_LT(ChiSquareExcess(drawn[p], expected[p]), 5.0);
                for (const size_t c : {0, 1, 2}) {
                    const double mean  = drawn[p].left[c] / n,
                                 noise = std::sqrt((drawn[p].square[c] / n - mean * mean) / n);
                    EXPECT_NEAR(mean, p == 0 ? mean : expected[p].left[c], 5 * noise + 2e-4) << "channel " << c;
                }
            }
        }
    }
}

// Of light that enters head-on (F at the surface) the lobes carry F, (1-F)^2 and (1-F)^2 F: all but F^2 (1-F), 0.7 % in
// the mean over the offset at an index of 1.55. At steep angles the lobes, of three widths, meet F at different angles
// and carry up to 4 % too much together. Texels are read early by one in 128, so that the last column, where light goes
// straight on, is never read: 2.4 % of narrow lobes. The series for I0 takes another 0.57 %.
TEST_F(Hair, WhiteFibresKeepTheirLight)
{
    constexpr int    kSteps = 360;
    constexpr size_t kTurns = 127;
    const auto       middle = [](size_t j) { return M_PI * (static_cast<double>(j) + 0.5); };
    for (const double degrees : {5.0, 30.0}) {
        const HairParameters hair   = Prepared(degrees);
        double               sum[4] = {};
        for (const int p : {0, 1, 2}) {
            const Law                 law(p, degrees);
            const ByHalfAngle<kTurns> azimuth(
                [&](double half, size_t j) { return law.Azimuth(half, middle(j) / 128, true); });
            for (const size_t o : {0, 1, 2, 3}) {
                const Vector outgoing = Direction(kOutgoing[o], 0);
                double       expected = 0, carried = 0;
                for (int i = 0; i < kSteps; ++i) {
                    const double theta = M_PI * ((i + 0.5) / kSteps - 0.5);
                    const double m     = Longitudinal(law.beta * law.beta, kOutgoing[o], theta);
                    const double row   = M_PI / 2 * TexelPlace(std::abs(theta - kOutgoing[o]) / M_PI);
                    for (size_t j = 0; m > 1e-6 && j < kTurns; ++j) {
                        const Vector incoming = Direction(theta, middle(j) / kTurns);
                        const double area     = std::cos(theta) * M_PI / kSteps * 2 * M_PI / kTurns;
                        expected += area * m * azimuth(row, j) * (p == 0 ? MirrorFresnel(outgoing, incoming) : 1);
                        carried +=
                            area * static_cast<double>(HairLobes(hair, outgoing, incoming, kTangent).colors[p].g);
                    }
                }
                EXPECT_NEAR(carried, expected, 0.006 * expected + 0.004) << degrees << ' ' << p << ' ' << kOutgoing[o];
                sum[o] += carried;
            }
        }
        for (const size_t o : {0, 1, 2, 3}) EXPECT_NEAR(sum[o], o < 2 ? 0.98 : 1.01, o < 2 ? 0.02 : 0.06) << degrees;
    }
}

// Lambert's cylinder: what a cosine about each normal gives, in the mean over the half that is seen as it appears. Its
// integral over the sphere is 1, whatever the outgoing angle.
TEST_F(Hair, DiffuseTermIsThatOfACylinder)
{
    constexpr int kSteps = 100;
    for (const double theta_o : kOutgoing) {
        const Vector outgoing = Direction(theta_o, 0.4);
        double       sum      = 0;
        for (int i = 0; i < kSteps * kSteps; ++i) {
            const double theta = M_PI * ((i / kSteps + 0.5) / kSteps - 0.5), phi = M_PI * ((i % kSteps + 0.5) / kSteps);
            const float  value = HairDiffuse(outgoing, Direction(theta, 0.4 + phi), kTangent);
            double       seen  = 0;
            for (int k = 0; k < 64; ++k) {
                const double normal = M_PI * ((k + 0.5) / 64 - 0.5);
                seen += std::max(0.0, std::cos(normal - phi)) * std::cos(theta) / M_PI * std::cos(normal) * M_PI / 128;
            }
            EXPECT_NEAR(value, seen, 1e-4);
            EXPECT_NEAR(value, HairDiffuse(outgoing, Direction(theta, 0.4 - phi), kTangent), 1e-5);
            sum += 2 * static_cast<double>(value) * std::cos(theta) * (M_PI / kSteps) * (M_PI / kSteps);
        }
        EXPECT_NEAR(sum, 1, 2e-4);
    }
}

// A metal draws the first lobe only; light that is drawn shines through all three all the same. A direction along the
// fibre has no part across it, and must give numbers nevertheless. Without tables all is black.
TEST_F(Hair, OnlyDielectricsDrawAllLobes)
{
    const auto none = HairLobes(HairParameters{}, kAcross, kAcross, kTangent);
    for (const Color& color : none.colors) EXPECT_EQ(color, kBlack);
    EXPECT_EQ(SampleHair(HairParameters{}, kAcross, kTangent).weight, kBlack);
    for (const double degrees : {0.0, 90.0}) {
        const HairParameters glass = Prepared(degrees), metal = Prepared(degrees, Conductor);
        const Vector directions[] = {kTangent, -kTangent, Direction(1.5707, 2), Direction(0, 1), Direction(-1, 3)};
        for (const Vector& outgoing : directions)
            for (const Vector& incoming : directions) {
                const HairSample sample = SampleHair(metal, outgoing, kTangent);
                EXPECT_EQ(sample.lobe, 0);
                EXPECT_TRUE(IsFinite(sample.direction) && IsFinite(SampleHair(glass, outgoing, kTangent).direction));
                EXPECT_NEAR(sample.weight.g, MirrorFresnel(outgoing, sample.direction), 2e-3);
                const auto a = HairLobes(glass, outgoing, incoming, kTangent);
                const auto b = HairLobes(metal, outgoing, incoming, kTangent);
                for (const int p : {0, 1, 2}) {
                    EXPECT_TRUE(std::isfinite(a.colors[p].g) && std::isfinite(a.densities[p]));
                    EXPECT_EQ(a.colors[p], b.colors[p]);
                }
                EXPECT_TRUE(std::isfinite(HairDiffuse(outgoing, incoming, kTangent)));
            }
    }
}

// ---- Renders ----

struct HairPicture : SceneTest {
    /// A grey sky picture of 6 x 4 pixels: even, or with differences up to 1 : 16 from pixel to pixel.
    void Hang(bool even, int samples) const
    {
        std::string text = "#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n-Y 4 +X 6\n";
        for (int n = 0; n < 24; ++n) {
            text.append(3, static_cast<char>(even ? 128 : 128 + 37 * n % 128));
            text += static_cast<char>(even ? 129 : 126 + 5 * n % 4);
        }
        hvSetSkyLightImage(Write("sky.hdr", text).c_str());
        hvSetSkyLightSample(samples);
    }

    /// Upright fibres. The first, thin, stands at the origin; the second 50 m behind the camera, so wide that it fills
    /// half of what the first one sees.
    static int AddFibres(TestScene& scene, int count, Element element, Material material, float ior, float roughness)
    {
        const float positions[] = {0, 0, -1, 0, 0, 1, 0, -50, -1e4f, 0, -50, 1e4f, 0, -50, 1.1e4f};
        const float radii[]     = {1e-3f, 1e-3f, 1e4f, 1e4f, 1e4f};
        const int   segments[]  = {0, 2, 3};  // the first three vertices have tangents, as there are three segments
        const int   shader = scene.AddShader(element, kWhite, material, ior), part = hvAddPart(0);
        scene.SetSlot(shader, Roughness, kWhite * roughness);
        hvSetShaderID(0, part, shader);
        hvAddPositions(0, part, count == 1 ? 2 : 5, positions);
        hvAddRadii(0, part, count == 1 ? 2 : 5, radii);
        hvAddCylinders(0, part, count == 1 ? 1 : 3, segments);
        return shader;
    }
};

/// Light of the sky on a fibre: over cells that directions are drawn from, each of which stands for 4 pi / 393216, with
/// the weight S p / (S p + R f), and over a spiral of scattered rays with R f / (S p + R f). These add up to one, as
/// both take for f what HairLobes calls the density of the lobe, though it holds a cos^2 more than that of the rays.
double SkyOn(const HairParameters& hair, Element element, Vector outgoing, double samples, double rays)
{
    constexpr int kCells = 6 * 256 * 256, kSpiral = 100000;
    double        sum = 0;
    const auto    add = [&](Vector d, bool drawn) {
        HairLobeSet lobes = HairLobes(hair, outgoing, d, {0, 0, 1});
        if (element == Lambertian) {
            lobes              = {};
            lobes.densities[0] = lobes.colors[0].g = HairDiffuse(outgoing, d, {0, 0, 1});
        }
        for (const int p : {0, 1, 2}) {
            const double q     = samples * static_cast<double>(SkyDensity(d)),
                         f     = rays * static_cast<double>(lobes.densities[p]);
            const double light = static_cast<double>(SkyColor(d).g * lobes.colors[p].g) * 4 * M_PI;
            if (q + f > 0) sum += drawn ? light * q / (q + f) / kCells : light * f / (q + f) / kSpiral;
        }
    };
    for (int i = 0; samples > 0 && i < kCells; ++i) add(CubeDirection(i / 65536, i / 256 % 256, i % 256), true);
    for (int i = 0; i < kSpiral; ++i) {
        const float  z = 1 - (2 * static_cast<float>(i) + 1) / kSpiral, ring = std::sqrt(1 - z * z);
        const double turn = 2.39996322972865 * i;  // the golden angle
        add({ring * static_cast<float>(std::cos(turn)), ring * static_cast<float>(std::sin(turn)), z}, false);
    }
    return sum;
}

// An uneven sky tells where light comes from. Matte fibres, and those of a metal that reflects all, are drawn as they
// are evaluated from any side; those of three lobes where they are seen at right angles, but for the column that is
// never read. Many pixels see one point: the matte rays of a hit all start about one random normal.
TEST_F(HairPicture, ScatteredRaysAndDrawnLightAgree)
{
    constexpr int kRays = 64, kPixels = 32;
    const struct {
        Element  element;
        Material material;
        float    ior, roughness;
        Vector   eye;
    } cases[] = {{Lambertian, Conductor, 1.5f, 0.2f, {0.5f, -2, 1.5f}},
                 {Glossy, Conductor, 1e6f, 0.4f, {-2, 0.3f, -3}},
                 {Glossy, Dielectric, 1.55f, 0.2f, {-1.2f, -2, 0}}};
    for (const auto& test : cases)
        for (const int samples : {0, kRays / 2}) {
            TestScene scene(4, kPixels, kPixels);
            Hang(false, samples);
            hvSetRendererSample(kRays);
            const int shader = AddFibres(scene, 1, test.element, test.material, test.ior, test.roughness);
            scene.LookFrom(test.eye, {}, 1e-4f);
            double seen = 0;
            for (const Color& pixel : scene.Render()) seen += static_cast<double>(pixel.g) / (kPixels * kPixels);
            const HairParameters& hair = Shaders[static_cast<size_t>(shader)].hair;
            EXPECT_NEAR(seen / SkyOn(hair, test.element, Normalized(test.eye), samples, kRays), 1, 0.025)
                << "case " << &test - cases << ", " << samples << " samples";
        }
}

// After a bounce both sides weigh single samples, p / (p + f) and f / (p + f), whatever the numbers of samples. Fibres
// of such a metal under an even sky show the sky; a second layer, of which hair takes nothing, is met as often.
TEST_F(HairPicture, MetalFibresShowAnEvenSkyAfterABounce)
{
    for (const int samples : {0, 64}) {
        TestScene scene;
        Hang(true, samples);
        hvSetRendererSample(16384);
        hvSetRendererBounce(2);
        const int shader = AddFibres(scene, 2, Glossy, Conductor, 1e6f, 0.4f);
        hvAddSurfaceShader(shader);
        hvSetSurfaceColor(shader, 1, Glossy, 1, 1, 1);
        EXPECT_NEAR(scene.RenderPixel().g, 1, samples == 0 ? 1e-4f : 0.01f);
    }
}

// All but what the lobes lose head-on, see WhiteFibresKeepTheirLight: rays read no texels.
TEST_F(HairPicture, WhiteFibresShowAnEvenSky)
{
    TestScene scene;
    hvSetRendererSample(1 << 18);
    AddFibres(scene, 1, Glossy, Dielectric, 1.55f, 0.04f);
    EXPECT_NEAR(scene.RenderPixel().g, 0.993f, 0.01f);  // four standard deviations
}

TEST_F(HairPicture, SeededRendersAreEqualForAnyNumberOfThreads)
{
    const auto picture = [&](int threads) {
        hvxSetThreadCount(threads);
        TestScene scene(2, 24, 16);
        Hang(false, 16);
        hvSetRendererBounce(3);
        const int shader = scene.AddShader(Glossy, kWhite, Dielectric, 1.55f), part = hvAddPart(0);
        scene.SetSlot(shader, Lambertian, kWhite * 0.5f);
        scene.SetSlot(shader, Roughness, kWhite * 0.1f);
        hvSetShaderID(0, part, shader);
        const std::vector<float> radii(400, 0.05f);
        for (int i = 0; i < 400; ++i) {  // 40 strands of 9 segments
            const float height = static_cast<float>(i % 10) - 4.5f, turn = 0.5f * static_cast<float>(i / 10);
            const float place[] = {2 * std::cos(turn) + 0.1f * height, 2 * std::sin(turn), height};
            hvAddPositions(0, part, 1, place);
            if (i % 10 < 9) hvAddCylinders(0, part, 1, &i);
        }
        hvAddRadii(0, part, 400, radii.data());
        scene.LookFrom({0, -9, 2}, {}, 40);
        const std::vector<Color> pixels = scene.Render();
        hvxSetThreadCount(0);
        return pixels;
    };
    const std::vector<Color> alone = picture(1);
    for (const int threads : {2, 7}) EXPECT_EQ(picture(threads), alone) << threads;
}

}  // namespace
}  // namespace hv
