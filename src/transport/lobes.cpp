#include "base/constants.h"
#include "transport/transport.h"

#include <cmath>

namespace hv {

namespace {

struct DiscPoint {
    float x, y;
};

/// Uniform point on the unit disc (Shirley and Chiu 1997, concentric map).
DiscPoint ConcentricDisc(float a, float b)
{
    const float x = 2.0f * a - 1.0f, y = 2.0f * b - 1.0f;
    const auto  ratio = [](float p, float q) { return q == 0.0f ? 0.0f : p / q; };

    // The centre makes both divisors 0; its radius is 0, so that its angle does not matter.
    float radius, eighth;  // the angle in units of pi / 4
    if (x > -y) {
        if (x > y) {
            radius = x;
            eighth = ratio(y, x);
        } else {
            radius = y;
            eighth = 2.0f - ratio(x, y);
        }
    } else if (y > x) {
        radius = -x;
        eighth = ratio(y, x) + 4.0f;
    } else {
        radius = -y;
        eighth = 6.0f - ratio(x, y);
    }
    const float angle = eighth * (0.25f * kPi);
    return {radius * std::cos(angle), radius * std::sin(angle)};
}

float Square(float x) { return x * x; }

}  // namespace

Vector SampleCosine(const SurfacePoint& point, float a, float b, float side)
{
    const DiscPoint disc   = ConcentricDisc(a, b);
    const float     height = SafeRoot(1.0f - disc.x * disc.x - disc.y * disc.y);
    return disc.x * point.tangent + disc.y * point.bitangent + side * height * point.normal;
}

Vector SampleWardHalf(const SurfacePoint& point, float a, float b)
{
    const float phi = kTwoPi * a;
    float       x   = point.roughness_x * std::cos(phi);
    float       y   = point.roughness_y * std::sin(phi);

    const float square = x * x + y * y;
    const float scale  = square == 0.0f ? 1.0f : 1.0f / SafeRoot(square);
    x *= scale;
    y *= scale;
    const float falloff = x * x / std::fmax(Square(point.roughness_x), 1e-8f) +
                          (1.0f - x * x) / std::fmax(Square(point.roughness_y), 1e-8f);
    const float theta = std::atan2(SafeRoot(-SafeLog(b)), SafeRoot(falloff));
    const float sine  = std::sin(theta);
    return Normalized(x * sine * point.tangent + y * sine * point.bitangent + std::cos(theta) * point.normal);
}

float WardLobe(Vector outgoing, Vector incoming, const SurfacePoint& point)
{
    const float rx = point.roughness_x, ry = point.roughness_y;
    if (rx == 0.0f || ry == 0.0f) return 0.0f;
    const Vector sum   = outgoing + incoming;
    const Vector half  = Normalized(sum);
    const float  c2    = Square(Dot(half, point.normal));
    const float  slope = Square(Dot(half, point.tangent) / rx) + Square(Dot(half, point.bitangent) / ry);
    const float  value = std::exp(-slope / c2) / (rx * ry * c2 * c2 * Dot(sum, sum)) * kInv4Pi;
    return std::isfinite(value) ? value : 0.0f;
}

bool Refract(Vector& out, Vector d, Vector n, float eta, float c)
{
    if (std::fabs(eta - 1.0f) < 1e-8f) {
        out = d;
        return false;
    }
    const float k = 1.0f - eta * eta * (1.0f - c * c);
    if (k < 0.0f) return true;
    out = Normalized((eta * c - SafeRoot(k)) * n + eta * d);
    return false;
}

}  // namespace hv
