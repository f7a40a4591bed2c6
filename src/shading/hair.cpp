#include "shading/hair.h"

#include "base/per_thread.h"
#include "session/console.h"
#include "session/sampling.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace hv {

namespace {

constexpr float kDegreesToRadians = 0.0174532924f;
constexpr float kLog2             = 0.6931472f;
constexpr float kMinBeta          = 0.001f;
constexpr float kMaxBeta          = 1e4f;   ///< as good as no width at all, and its square stays finite
constexpr float kWideVariance     = 0.2f;   ///< from here on M is formed without logarithms
constexpr float kAsymptoticBessel = 12.0f;  ///< beyond it I0 is replaced by its asymptote, which cannot overflow
constexpr int   kOffsetSteps      = 128;    ///< steps of the integral over the width of the fibre
constexpr float kTableStep        = 0.0078125f;

float Fifth(float x) { return x * x * x * x * x; }

float Schlick(float r0, float cosine) { return r0 + (1.0f - r0) * Fifth(1.0f - cosine); }

float ClampedAsin(float x) { return std::asin(std::clamp(x, -1.0f, 1.0f)); }

// ---- The fibre's cross-section ----

/// A ray that meets the circle at the offset h from its axis, in units of the radius.
struct Crossing {
    float angle_outside;  ///< to the normal, radians
    float angle_inside;
    float fresnel;   ///< share that is reflected
    Color absorbed;  ///< what one way through the fibre leaves
};

/// cos_difference: cosine of half the difference of the two longitudinal angles, which tilts the section that the ray
/// sees (Bravais index, Marschner et al. 2003).
Crossing CrossFibre(const HairParameters& hair, float h, float cos_difference)
{
    const float inside = std::clamp(
        h * cos_difference / SafeRoot(hair.ior * hair.ior - 1.0f + cos_difference * cos_difference), -1.0f, 1.0f);
    const float cos_inside = SafeRoot(1.0f - inside * inside);

    Crossing crossing;
    crossing.angle_outside = ClampedAsin(h);
    crossing.angle_inside  = std::asin(inside);
    crossing.fresnel       = Schlick(hair.r0, std::cos(crossing.angle_outside) * cos_difference);
    const float path       = 2.0f * (1.0f + std::cos(2.0f * crossing.angle_inside)) / cos_inside;
    for (int c = 0; c < 3; ++c) crossing.absorbed[c] = std::exp(-hair.absorption[c] * path);
    return crossing;
}

/// What a crossing leaves of a lobe that enters the fibre: transmitted, or reflected once inside.
Color Attenuation(const Crossing& crossing, int lobe)
{
    const float leaves = (1.0f - crossing.fresnel) * (1.0f - crossing.fresnel);
    if (lobe == 1) return crossing.absorbed * leaves;
    return crossing.absorbed * crossing.absorbed * (leaves * crossing.fresnel);
}

/// Azimuth at which a ray leaves in a lobe, against the azimuth at which it came.
float ExitAzimuth(const Crossing& crossing, int lobe)
{
    const auto order = static_cast<float>(lobe);
    return order * kPi - 2.0f * crossing.angle_outside + 2.0f * order * crossing.angle_inside;
}

// ---- Tables ----

/// A Gaussian of width beta over the circle: five of its turns. Terms whose exponential is zero are left out.
float Detector(float x, float beta)
{
    constexpr float kVanishing = 104.0f;  // exp(-104) is below the smallest float
    float           sum        = 0.0f;
    for (int turn = -2; turn <= 2; ++turn) {
        const float away     = (x - 2.0f * kPi * static_cast<float>(turn)) / beta;
        const float exponent = 0.5f * away * away;
        if (exponent < kVanishing) sum += std::exp(-exponent);
    }
    return sum / (beta * std::sqrt(2.0f * kPi));
}

/// Sums of one texel over the width of the fibre.
struct TexelSums {
    Color density, reflected, transmitted, inside;
};

TexelSums IntegrateTexel(const HairParameters& hair, const Crossing (&crossings)[kOffsetSteps], float azimuth)
{
    TexelSums sums;
    for (const Crossing& crossing : crossings) {
        float seen[kHairLobeCount];
        for (int lobe = 0; lobe < kHairLobeCount; ++lobe)
            seen[lobe] = Detector(azimuth - ExitAzimuth(crossing, lobe), hair.beta[lobe]);
        sums.density += Color{seen[0], seen[1], seen[2]};
        sums.reflected += kWhite * seen[0];  // its Fresnel factor is known when it is read
        sums.transmitted += Attenuation(crossing, 1) * seen[1];
        sums.inside += Attenuation(crossing, 2) * seen[2];
    }
    return sums;
}

void StoreTexel(Image& table, int index, Color value)
{
    for (int c = 0; c < 3; ++c) table.pixels32[static_cast<std::size_t>(3 * index + c)] = value[c] * kTableStep;
}

void FillRow(HairParameters& hair, int row)
{
    const float cos_difference = std::cos(kTableStep * 0.5f * kPi * (0.5f + static_cast<float>(row)));
    Crossing    crossings[kOffsetSteps];
    for (int m = 0; m < kOffsetSteps; ++m)
        crossings[m] = CrossFibre(hair, (static_cast<float>(m - kOffsetSteps / 2) + 0.5f) * 0.015625f, cos_difference);

    for (int column = 0; column < kHairTableSize; ++column) {
        const float     azimuth = kTableStep * kPi * (0.5f + static_cast<float>(column));
        const TexelSums sums    = IntegrateTexel(hair, crossings, azimuth);
        const int       index   = row * kHairTableSize + column;
        StoreTexel(hair.lobe_density, index, sums.density);
        StoreTexel(hair.lobe_r, index, sums.reflected);
        StoreTexel(hair.lobe_tt, index, sums.transmitted);
        StoreTexel(hair.lobe_trt, index, sums.inside);
    }
}

bool AllocateTables(HairParameters& hair)
{
    for (Image* table : {&hair.lobe_density, &hair.lobe_r, &hair.lobe_tt, &hair.lobe_trt}) {
        if (!AllocateImage(*table, kHairTableSize, kHairTableSize, 3, 32, false)) return false;
        table->loaded = true;
    }
    return true;
}

void SetParameters(HairParameters& hair, const SurfaceShader& layer, const float (&absorption)[3])
{
    const float beta = Mean(layer.Slot(Element::Roughness).color) * 90.0f * kDegreesToRadians;
    const float ior  = Mean(layer.Slot(Element::Ior).color);
    hair.all_lobes   = layer.material == Material::Dielectric;
    hair.ior         = std::isfinite(ior) ? ior : 1.0f;
    const float root = (hair.ior - 1.0f) / (hair.ior + 1.0f);
    hair.r0          = root * root <= 1.0f ? root * root : 1.0f;
    for (int c = 0; c < 3; ++c) hair.absorption[c] = absorption[c];

    hair.beta[0] = beta > kMinBeta ? std::min(beta, kMaxBeta) : kMinBeta;
    hair.beta[1] = 2.0f * hair.beta[0];
    hair.beta[2] = 3.0f * hair.beta[0];
    for (int lobe = 0; lobe < kHairLobeCount; ++lobe) {
        const float v       = hair.beta[lobe] * hair.beta[lobe];
        hair.variance[lobe] = v;
        hair.norm[lobe]     = v >= kWideVariance ? 1.0f / (2.0f * v * std::sinh(1.0f / v)) : 0.0f;
    }
}

// ---- Directions about the fibre ----

/// A unit direction in the frame of a fibre.
struct FibreAngles {
    Vector across;  ///< its part in the plane at right angles to the fibre, unit length; zero along the fibre
    float  sine;    ///< of the angle to that plane
    float  cosine;
};

FibreAngles AnglesOf(Vector d, Vector tangent)
{
    FibreAngles angles;
    angles.sine   = Dot(d, tangent);
    angles.across = Normalized(d - angles.sine * tangent);
    angles.cosine = Dot(d, angles.across);
    return angles;
}

/// Two directions, and the texel of the tables that they share.
struct DirectionPair {
    FibreAngles   outgoing, incoming;
    std::uint32_t texel;  ///< offset of its first channel

    DirectionPair(Vector o, Vector i, Vector tangent) : outgoing(AnglesOf(o, tangent)), incoming(AnglesOf(i, tangent))
    {
        constexpr float kCells     = kHairTableSize - 1;
        const float     difference = std::atan2(incoming.sine * outgoing.cosine - incoming.cosine * outgoing.sine,
                                                incoming.cosine * outgoing.cosine + incoming.sine * outgoing.sine);
        const float     azimuth    = std::acos(std::clamp(Dot(outgoing.across, incoming.across), -1.0f, 1.0f));
        const int       row = ClampToInt(kCells * std::fabs(0.5f * difference) / (0.5f * kPi), 0, kHairTableSize - 1);
        const int       column = ClampToInt(kCells * azimuth / kPi, 0, kHairTableSize - 1);
        texel                  = static_cast<std::uint32_t>(3 * (row * kHairTableSize + column));
    }
};

void Longitudinals(const HairParameters& hair, const DirectionPair& pair, float (&m)[kHairLobeCount])
{
    for (int lobe = 0; lobe < kHairLobeCount; ++lobe)
        m[lobe] = HairLongitudinal(hair, lobe, pair.outgoing.sine, pair.outgoing.cosine, pair.incoming.sine,
                                   pair.incoming.cosine);
}

void Densities(const HairParameters& hair, const DirectionPair& pair, const float (&m)[kHairLobeCount],
               float (&densities)[kHairLobeCount])
{
    const float* const seen   = &hair.lobe_density.pixels32[pair.texel];
    const float        square = pair.incoming.cosine * pair.incoming.cosine;
    for (int lobe = 0; lobe < kHairLobeCount; ++lobe) densities[lobe] = seen[lobe] * square * m[lobe];
}

Color TexelAt(const Image& table, std::uint32_t texel)
{
    const float* const t = &table.pixels32[texel];
    return {t[0], t[1], t[2]};
}

bool HasTables(const HairParameters& hair) { return hair.lobe_trt.loaded; }

/// Fresnel factor of the reflected lobe, whose half angle follows from the two directions.
float ReflectedShare(const HairParameters& hair, Vector outgoing, Vector incoming)
{
    const float cosine = std::clamp(Dot(outgoing, incoming), -1.0f, 1.0f);
    return Schlick(hair.r0, std::sqrt(0.5f * (1.0f + cosine)));  // cos(acos(c) / 2)
}

// ---- Sampling ----

/// Cosine about the axis of a von Mises-Fisher lobe of concentration 1 / v (Jakob 2012, "Numerically stable sampling of
/// the von Mises-Fisher distribution on S2" for narrow lobes). In double precision: sinh(100) is beyond floats.
float SampleCone(float beta, float v)
{
    const float u = std::clamp(HardwareRandom(), 1e-8f, 1.0f);
    if (beta < 0.1f) return 1.0f + v * (SafeLog(u) + SafeLog(1.0f - (u - 1.0f) / u * std::exp(-2.0f / v)));
    const double width = v;
    return static_cast<float>(width * std::log(std::exp(-1.0 / width) + 2.0 * u * std::sinh(1.0 / width)));
}

/// Sine of the longitudinal angle of a new direction, not yet turned to the far side of the fibre's plane.
float SampleLongitude(const HairParameters& hair, int lobe, float theta_outgoing)
{
    const float z = std::clamp(SampleCone(hair.beta[lobe], hair.variance[lobe]), -1.0f, 1.0f);
    const float r = SafeRoot(1.0f - z * z);
    const float u = HardwareRandom();
    return z * std::sin(theta_outgoing) + r * std::cos(2.0f * kPi * u) * std::cos(theta_outgoing);
}

/// A normally distributed number (Box and Muller 1958).
float SampleGaussian()
{
    const float u1 = HardwareRandom(), u2 = HardwareRandom();
    return SafeRoot(-2.0f * SafeLog(u1)) * std::cos(2.0f * kPi * u2);
}

}  // namespace

void PrepareHair(Shader& shader)
{
    if (!shader.is_hair || shader.layers.empty()) return;
    const std::int64_t start = Milliseconds();
    HairParameters&    hair  = shader.hair;
    SetParameters(hair, shader.layers[0], shader.volume_shader.hair_absorption);
    if (!AllocateTables(hair)) {
        PrintError("hair - not enough memory for the tables of " + shader.name);
        return PrintRule();
    }
#pragma omp parallel for schedule(dynamic, 1) num_threads(TeamSize())
    for (int row = 0; row < kHairTableSize; ++row) FillRow(hair, row);
    ReportValue("bcsdf lut", static_cast<float>(Milliseconds() - start) * 0.001f, "seconds");
    PrintRule();
}

float BesselI0(float x)
{
    if (x < 3.75f) {
        const float t = x / 3.75f * (x / 3.75f);
        return 1.0f + t * (3.5156229f +
                           t * (3.0899424f + t * (1.2067492f + t * (0.2659732f + t * (0.0360768f + t * 0.0045813f)))));
    }
    const float t = 3.75f / x;
    const float series =
        0.39894228f +
        t * (0.01328592f +
             t * (0.00225319f +
                  t * (-0.00157565f +
                       t * (0.00916281f +
                            t * (-0.02057706f + t * (0.02635537f + t * (-0.01647633f + t * 0.00392377f)))))));
    return std::exp(x) / std::sqrt(x) * series;
}

// With a = -so si / v and b = co ci / v the text-book form is exp(a) I0(b) / (2 v sinh(1 / v)). For narrow lobes all
// three factors leave the range of floats, so their exponents are added first. a + b - 1 / v is (cos d - 1) / v with d
// the sum of both angles, and 1 - cos d is sin^2 d / (1 + cos d): no digits are lost however small v is.
float HairLongitudinal(const HairParameters& hair, int lobe, float sin_outgoing, float cos_outgoing, float sin_incoming,
                       float cos_incoming)
{
    const float v = hair.variance[lobe];
    const float b = cos_outgoing * cos_incoming / v;
    if (v >= kWideVariance) return std::exp(-sin_outgoing * sin_incoming / v) * hair.norm[lobe] * BesselI0(b);

    const float sine     = sin_outgoing * cos_incoming + cos_outgoing * sin_incoming;
    const float cosine   = cos_outgoing * cos_incoming - sin_outgoing * sin_incoming;
    const float versine  = cosine > 0.0f ? sine * sine / (1.0f + cosine) : 1.0f - cosine;
    const float exponent = kLog2 - versine / v + SafeLog(1.0f / (2.0f * v));
    if (b <= kAsymptoticBessel) return std::exp(exponent - b + SafeLog(BesselI0(b)));
    return std::exp(exponent + 0.5f * (1.0f / (8.0f * b) - SafeLog(2.0f * kPi) + SafeLog(1.0f / b)));
}

HairLobeSet HairLobes(const HairParameters& hair, Vector outgoing, Vector incoming, Vector tangent)
{
    HairLobeSet set;
    if (!HasTables(hair)) return set;
    const DirectionPair pair(outgoing, incoming, tangent);
    float               m[kHairLobeCount];
    Longitudinals(hair, pair, m);
    Densities(hair, pair, m, set.densities);
    set.colors[0] = TexelAt(hair.lobe_r, pair.texel) * (m[0] * ReflectedShare(hair, outgoing, incoming));
    set.colors[1] = TexelAt(hair.lobe_tt, pair.texel) * m[1];
    set.colors[2] = TexelAt(hair.lobe_trt, pair.texel) * m[2];
    return set;
}

void HairLobeDensities(const HairParameters& hair, Vector outgoing, Vector incoming, Vector tangent,
                       float (&densities)[kHairLobeCount])
{
    std::fill(std::begin(densities), std::end(densities), 0.0f);
    if (!HasTables(hair)) return;
    const DirectionPair pair(outgoing, incoming, tangent);
    float               m[kHairLobeCount];
    Longitudinals(hair, pair, m);
    Densities(hair, pair, m, densities);
}

float HairDiffuse(Vector outgoing, Vector incoming, Vector tangent)
{
    const FibreAngles in    = AnglesOf(incoming, tangent);
    const float       c     = std::clamp(Dot(AnglesOf(outgoing, tangent).across, in.across), -1.0f, 1.0f);
    const float       angle = std::acos(c);
    return std::fabs((kPi - angle) * c + std::sin(angle)) * in.cosine * kInv4Pi;
}

HairSample SampleHair(const HairParameters& hair, Vector outgoing, Vector tangent)
{
    HairSample sample;
    if (!HasTables(hair)) return sample;
    const FibreAngles out            = AnglesOf(outgoing, tangent);
    const Vector      w              = out.across == Vector{} ? PerpendicularTo(tangent) : out.across;
    const Vector      v              = Cross(tangent, w);
    const float       theta_outgoing = std::atan2(out.sine, out.cosine);

    const float h        = 2.0f * HardwareRandom() - 1.0f;
    sample.lobe          = hair.all_lobes ? std::min(static_cast<int>(HardwareRandom() * kHairLobeCount), 2) : 0;
    const float sine     = SampleLongitude(hair, sample.lobe, theta_outgoing);
    const float cosine   = SafeRoot(1.0f - sine * sine);
    const float incoming = std::atan2(sine, cosine);

    // Meant: the difference is taken before the sine changes its sign below.
    const Crossing crossing = CrossFibre(hair, h, std::cos(0.5f * (incoming - theta_outgoing)));
    const float    azimuth  = ExitAzimuth(crossing, sample.lobe) + SampleGaussian() * hair.beta[sample.lobe];
    sample.direction = Normalized((cosine * std::sin(azimuth)) * v + (cosine * std::cos(azimuth)) * w - sine * tangent);
    sample.weight    = sample.lobe == 0 ? kWhite * ReflectedShare(hair, outgoing, sample.direction)
                                        : Attenuation(crossing, sample.lobe);
    if (hair.all_lobes) sample.weight *= static_cast<float>(kHairLobeCount);
    return sample;
}

}  // namespace hv
