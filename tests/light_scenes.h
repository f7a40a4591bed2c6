// Floors under lights through the exports, and the closed forms of what reaches them.

#pragma once

#include "scene_fixture.h"

#include <cmath>
#include <vector>

namespace hv {

/// Without sky. The camera stands 2 m before the origin and sees one point, as all its rays are one.
struct DarkScene : TestScene {
    explicit DarkScene(int frames = 4) : TestScene(frames)
    {
        hvxSetThreadCount(1);  // for one pixel a team would only wait
        hvSetSkyLightColor(0, 0, 0);
        LookFrom({0, -2, 0}, {0, 0, 0}, 1e-4f);
    }

    ~DarkScene() { hvxSetThreadCount(0); }

    /// Adds a parallelogram about `centre` with the half edges u and v, whose front is on the side of u x v.
    std::vector<Vector> AddPatch(int shader, Vector centre, Vector u, Vector v)
    {
        AddQuad(shader, {centre - u - v, centre + u - v, centre + u + v, centre - u + v});
        return {centre - u - v, centre + u - v, centre + u + v, centre - u + v};
    }

    /// A one-sided emitter.
    int AddEmitter(Color radiance, bool virtual_light, Sideness sideness = Sideness::Face)
    {
        const int shader = AddShader(Element::Emissive, radiance);
        hvSetSurfaceVirtualLight(shader, 0, virtual_light);
        hvSetSurfaceSideness(shader, 0, sideness);
        return shader;
    }
};

/// The point at a distance from the origin, at an angle to the normal (0, -1, 0) of a screen.
inline Vector At(float degrees, float distance)
{
    return {distance * std::sin(degrees * kRadians), -distance * std::cos(degrees * kRadians), 0.0f};
}

/// A point light that shines alike in all directions: a cone of 180 degrees with a hard edge.
inline int AddPointLight(Vector position, Color color)
{
    const int light = hvAddPointLight();
    hvSetPointLightPosition(light, position.x, position.y, position.z);
    hvSetPointLightColor(light, color.r, color.g, color.b);
    hvSetPointLightInnerAngle(light, 180);
    return light;
}

inline int AddParallelLight(Vector to_light, Color color)
{
    const int light = hvAddParallelLight();
    hvSetParallelLightDirection(light, -to_light.x, -to_light.y, -to_light.z);
    hvSetParallelLightColor(light, color.r, color.g, color.b);
    return light;
}

/// Schlick's reflectance of an interface (Schlick 1994); an index of 1 is none.
inline float Schlick(float ior, float cosine)
{
    if (ior == 1.0f) return 0.0f;
    const float r0 = std::pow((ior - 1.0f) / (ior + 1.0f), 2.0f);
    return r0 + (1.0f - r0) * std::pow(1.0f - cosine, 5.0f);
}

/// What a thin sheet lets pass, all inter-reflections summed.
inline float ThinPass(float ior, float cosine)
{
    const float f = Schlick(ior, cosine);
    return (1.0f - f) * (1.0f - f) / (1.0f - f * f);
}

/// Ward's lobe of one roughness, as a density: in its form without the product of cosines, divided by 4.
inline float Ward(Vector outgoing, Vector incoming, Vector normal, float roughness)
{
    const Vector sum = outgoing + incoming;
    const float  q = Dot(sum, sum), c2 = Dot(sum, normal) * Dot(sum, normal) / q;
    const float  tangent2 = (1.0f - c2) / c2;
    return std::exp(-tangent2 / (roughness * roughness)) / (roughness * roughness * c2 * c2 * q) * kInv4Pi;
}

/// Share of the cosine-weighted hemisphere that a polygon covers (Lambert 1760). It must lie above the horizon.
inline double FormFactor(Vector point, Vector normal, const std::vector<Vector>& polygon)
{
    double sum = 0.0;
    for (std::size_t i = 0; i < polygon.size(); ++i) {
        const Vector a     = Normalized(polygon[i] - point);
        const Vector b     = Normalized(polygon[(i + 1) % polygon.size()] - point);
        const Vector cross = Cross(a, b);
        const double sine = std::sqrt(static_cast<double>(Dot(cross, cross))), angle = std::atan2(sine, Dot(a, b));
        sum += angle * static_cast<double>(Dot(normal, cross)) / sine;
    }
    return std::abs(sum) / (2.0 * 3.14159265358979);
}

/// Mean of a quantity over the unit square, and its standard deviation: what the mean of n draws is compared with.
struct Moments {
    double mean = 0.0, deviation = 0.0;

    float Value() const { return static_cast<float>(mean); }
    /// The standard error of `n` independent draws. That of a low-discrepancy sequence of thousands is below a third of it.
    float Noise(int n) const { return static_cast<float>(deviation / std::sqrt(n)); }
};

template <class Quantity>
Moments MomentsOf(const Quantity& quantity)
{
    constexpr int kSteps = 512;
    double        sum = 0.0, squares = 0.0;
    for (int i = 0; i < kSteps; ++i)
        for (int j = 0; j < kSteps; ++j) {
            const float  step  = 1.0f / static_cast<float>(kSteps);
            const double value = quantity((static_cast<float>(i) + 0.5f) * step, (static_cast<float>(j) + 0.5f) * step);
            sum += value;
            squares += value * value;
        }
    const double mean = sum / (kSteps * kSteps);
    return {mean, std::sqrt(std::max(0.0, squares / (kSteps * kSteps) - mean * mean))};
}

/// State of a light's AOV at the first pixel.
inline Color LightPixel(hvxLight kind, int light, int aov)
{
    hvxImage image{};
    EXPECT_TRUE(hvxGetLightAOV(kind, light, aov, &image));
    return image.pixels ? Color{image.pixels[0], image.pixels[1], image.pixels[2]} : kBlack;
}

}  // namespace hv
