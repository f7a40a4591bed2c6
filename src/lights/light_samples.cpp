#include "lights/lights.h"

#include <algorithm>
#include <cmath>

namespace hv {

float SpotFactor(const PointLight& light, Vector v)
{
    const float angle = std::acos(std::clamp(Dot(light.direction, v), -1.0f, 1.0f));
    const float share = (light.outer_radians - angle) / (light.outer_radians - light.inner_radians);
    return share > 0.0f ? std::min(share, 1.0f) : 0.0f;  // equal angles give 0 / 0 on their edge: dark
}

Vector PointOnSource(const PointLight& light, float a, float b)
{
    if (!(light.blur > 0.0f)) return light.position;
    const float ring = 2.0f * SafeRoot(b * (1.0f - b)), turn = kTwoPi * a;
    return light.position + light.blur * Vector{ring * std::cos(turn), ring * std::sin(turn), 1.0f - 2.0f * b};
}

Vector ConeDirection(const Light& light, float u, float turn)
{
    const float height = u * light.opening;  // below the pole
    const float s      = std::sqrt(std::max(0.0f, height * (2.0f - height)));
    return s * std::cos(turn) * light.e1 + s * std::sin(turn) * light.e2 + (1.0f - height) * light.axis;
}

Vector SampleConeDirection(const ParallelLight& light, float u1, float u2)
{
    if (!(light.blur > 0.0f)) return light.axis;
    return ConeDirection(light, u2, kTwoPi * u1);
}

}  // namespace hv
