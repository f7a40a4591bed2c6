#include "transport/spawn.h"

#include "output/camera.h"
#include "shading/surface_point.h"
#include "transport/branches.h"

#include <cmath>

namespace hv {

namespace {

void CountBounce(RayRecord& child)
{
    switch (child.element) {
    case ElementCode::Lambertian:
    case ElementCode::Transmissive:
        ++child.diffuse_bounces;
        break;
    case ElementCode::GlossyReflection:
    case ElementCode::GlossyRefraction:
        ++child.glossy_bounces;
        break;
    case ElementCode::SpecularReflection:
    case ElementCode::SpecularRefraction:
        ++child.specular_bounces;
        break;
    case ElementCode::Photon:
    case ElementCode::Shadow:
        break;
    }
}

}  // namespace

float RefractionBehind(const RayRecord& ray, float eta)
{
    constexpr float kRounding = 4e-7f;
    const float     product   = ray.refraction * eta;
    const Camera*   camera    = ActiveCamera();
    const float     start     = camera ? camera->ior : 1.0f;
    if (std::fabs(product - start) <= kRounding) return start;
    return std::fabs(product - 1.0f) <= kRounding ? 1.0f : product;
}

RayRecord SpawnChild(const RayRecord& parent, const SurfacePoint& point, ElementCode element, Vector direction,
                     Color throughput)
{
    RayRecord child;
    child.jitter[0]        = parent.jitter[0];
    child.jitter[1]        = parent.jitter[1];
    child.sample_index     = parent.sample_index;
    child.dimension        = parent.dimension + (IsSpecular(element) ? 0 : 2);
    child.origin           = point.position;
    child.direction        = direction;
    child.throughput       = throughput;
    child.power            = parent.power;
    child.from_surface     = &point;
    child.refraction       = parent.refraction;
    child.weight_count     = parent.weight_count;
    child.share_gain       = parent.share_gain;
    child.from_shader      = parent.hit_shader;
    child.from_primitive   = parent.hit_primitive;
    child.from_kind        = parent.hit_kind;
    child.hit_kind         = kNoKind;
    child.element          = element;
    child.element_before   = parent.element == element ? parent.element_before : parent.element;
    child.thread           = parent.thread;
    child.depth            = static_cast<std::uint8_t>(parent.depth + 1);
    child.diffuse_bounces  = parent.diffuse_bounces;
    child.glossy_bounces   = parent.glossy_bounces;
    child.specular_bounces = parent.specular_bounces;
    child.is_secondary     = parent.is_secondary;
    child.stores_caustics  = parent.stores_caustics;
    CountBounce(child);
    return child;
}

}  // namespace hv
