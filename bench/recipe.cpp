#include "recipe.h"

#include "model.h"
#include "pcg32.h"
#include "walker.h"

#include <cmath>

namespace {

using hv::Vector;

struct Sphere {
    Vector center;
    float  radius;
};

Sphere SphereAround(const hv::Box& box)
{
    const Vector diagonal = box.max - box.min;
    return {0.5f * (box.min + box.max), 0.5f * std::sqrt(hv::Dot(diagonal, diagonal))};
}

RaySet CameraRays(const Sphere& scene, const View& view)
{
    const Vector towards = hv::Normalized({0.4f, 0.3f, 1.0f});
    const Vector target  = view.has_target ? view.target : scene.center;
    const Vector eye     = view.has_eye ? view.eye : scene.center + 2.2f * scene.radius * towards;
    const Vector forward = hv::Normalized(target - eye);
    const Vector right   = hv::Normalized(hv::Cross(forward, {0, 1, 0}));
    const Vector up      = hv::Cross(right, forward);
    const float  half    = 0.5f * static_cast<float>(view.size);
    const float  film    = half / std::tan(0.5f * view.field_of_view * hv::kRadians);

    RaySet set{"camera", RayKind::Closest, scene.radius, {}};
    Pcg32  random(1, 1);
    for (int y = 0; y < view.size; ++y)
        for (int x = 0; x < view.size; ++x) {
            const float film_x = static_cast<float>(x) - half + random.Uniform();
            const float film_y = half - static_cast<float>(y) - random.Uniform();
            set.rays.push_back(
                {eye, hv::kFarAway, hv::Normalized(film_x * right + film_y * up + film * forward), hv::kNone});
        }
    return set;
}

/// A point just off the surface that a camera ray met, and its normal, turned towards the eye.
struct SurfaceStart {
    Vector        position, normal;
    std::uint32_t triangle;
};

std::vector<SurfaceStart> FindStarts(const hv::Part& part, const RaySet& camera)
{
    std::vector<SurfaceStart> starts;
    std::vector<Answer>       answers(camera.rays.size());
    ShootOwn(camera, 0, camera.rays.size(), 0, answers.data());
    for (std::size_t n = 0; n < answers.size(); ++n) {
        if (answers[n].triangle == hv::kNone) continue;
        const hv::Triangle& face = part.triangles[answers[n].triangle];
        const Vector        p0   = part.positions[face.i0];
        Vector         normal = hv::Normalized(hv::Cross(part.positions[face.i1] - p0, part.positions[face.i2] - p0));
        const FileRay& ray    = camera.rays[n];
        if (hv::Dot(normal, ray.direction) > 0.0f) normal = -normal;
        const Vector position = ray.origin + answers[n].t * ray.direction + 1e-4f * camera.radius * normal;
        starts.push_back({position, normal, answers[n].triangle});
    }
    return starts;
}

/// One ray from each start, over and over until the set is full.
template <class MakeRay>
RaySet WalkStarts(const char* name, RayKind kind, const Sphere& scene, const std::vector<SurfaceStart>& starts,
                  std::size_t count, MakeRay&& make_ray)
{
    RaySet set{name, kind, scene.radius, {}};
    for (std::size_t n = 0; !starts.empty() && n < count; ++n) set.rays.push_back(make_ray(starts[n % starts.size()]));
    return set;
}

FileRay MakeBounceRay(const SurfaceStart& start, Pcg32& random)
{
    const Vector n   = start.normal;
    const float  u   = random.Uniform();
    const float  phi = hv::kTwoPi * random.Uniform();
    const Vector t   = hv::Normalized(hv::Cross(n, std::fabs(n.x) > 0.5f ? Vector{0, 1, 0} : Vector{1, 0, 0}));
    const Vector b   = hv::Cross(n, t);
    const float  r   = std::sqrt(u);
    const Vector d   = r * std::cos(phi) * t + r * std::sin(phi) * b + std::sqrt(1.0f - u) * n;
    return {start.position, hv::kFarAway, hv::Normalized(d), start.triangle};
}

Vector PointOnSphere(const Sphere& sphere, Pcg32& random)
{
    const float z   = 1.0f - 2.0f * random.Uniform();
    const float phi = hv::kTwoPi * random.Uniform();
    const float r   = std::sqrt(std::max(0.0f, 1.0f - z * z));
    return sphere.center + sphere.radius * Vector{r * std::cos(phi), r * std::sin(phi), z};
}

FileRay MakeShadowRay(const SurfaceStart& start, const Sphere& scene, Pcg32& random)
{
    Vector towards;
    for (int attempt = 0; attempt < 64; ++attempt) {
        towards = PointOnSphere(scene, random) - start.position;
        if (hv::Dot(towards, start.normal) > 0.0f) break;
    }
    const float length = std::sqrt(hv::Dot(towards, towards));
    return {start.position, 0.9999f * length, hv::Normalized(towards), start.triangle};
}

}  // namespace

RaySet MakeCameraRays(const hv::Box& bounds, const View& view) { return CameraRays(SphereAround(bounds), view); }

std::array<RaySet, 3> MakeRaySets(const hv::Part& part, const View& view)
{
    const Sphere scene  = SphereAround(UsedBounds(part));
    RaySet       camera = CameraRays(scene, view);
    const auto   starts = FindStarts(part, camera);
    const auto   count  = camera.rays.size();
    Pcg32        bounce_random(2, 2), shadow_random(3, 3);
    RaySet       bounce  = WalkStarts("bounce", RayKind::Closest, scene, starts, count,
                                      [&](const SurfaceStart& start) { return MakeBounceRay(start, bounce_random); });
    const auto   to_lamp = [&](const SurfaceStart& start) { return MakeShadowRay(start, scene, shadow_random); };
    RaySet       shadow  = WalkStarts("shadow", RayKind::Occlusion, scene, starts, count, to_lamp);
    return {std::move(camera), std::move(bounce), std::move(shadow)};
}
