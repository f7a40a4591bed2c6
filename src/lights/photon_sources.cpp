#include "lights/lights.h"
#include "lights/placed_face.h"

#include "accel/accel.h"
#include "geometry/object.h"
#include "session/sampling.h"
#include "shading/shading.h"

#include <cmath>

namespace hv {

namespace {

/// Number of a photon in its sequence, which repeats itself after 2^32.
std::uint32_t SequenceNumber(std::uint64_t index) { return static_cast<std::uint32_t>(index); }

/// What all photons start with.
void StartPhoton(RayRecord& photon, std::uint64_t index, const LinkList& links, float refraction)
{
    photon.jitter[0] = photon.jitter[1] = 0.0f;
    photon.sample_index                 = SequenceNumber(index);
    photon.throughput                   = kWhite;
    photon.photon_links                 = &links;
    photon.refraction                   = refraction;
    photon.hit_kind = photon.from_kind = kNoKind;
    photon.hit_primitive = photon.from_primitive = kNone;
    photon.element = photon.element_before = ElementCode::Photon;
    photon.depth = photon.diffuse_bounces = photon.glossy_bounces = photon.specular_bounces = 0;
    photon.is_secondary                                                                     = 1;
}

struct DiscPoint {
    float x, y;
};

/// Uniform point on the unit disc (Shirley and Chiu 1997, in the form of two quadrants with a signed radius).
DiscPoint SignedDisc(float a, float b)
{
    const float x = 2.0f * a - 1.0f, y = 2.0f * b - 1.0f;
    float       radius, angle;
    if (x * x > y * y) {
        radius = x;
        angle  = 0.25f * kPi * (y / x);
    } else {
        radius = y;
        angle  = y == 0.0f ? 0.0f : kHalfPi - 0.25f * kPi * (x / y);
    }
    return {radius * std::cos(angle), radius * std::sin(angle)};
}

/// A point of the disc across the scene's sphere, pushed to the sphere's side in the unit direction `towards`.
Vector PointOnSceneDisc(Vector e1, Vector e2, Vector towards, float a, float b)
{
    const DiscPoint disc = SignedDisc(a, b);
    return SceneCenter + SceneRadius * (disc.x * e1 + disc.y * e2 + towards);
}

/// Direction of a photon of a point light: into the cone that holds the scene, or all around from inside it.
Vector PointLightDirection(const PointLight& light, float u, float turn)
{
    if (light.outside) {
        const float ring = 2.0f * SafeRoot(u * (1.0f - u));
        return {ring * std::cos(turn), ring * std::sin(turn), 1.0f - 2.0f * u};
    }
    return ConeDirection(light, u, turn);
}

}  // namespace

void PointLight::GeneratePhoton(RayRecord& record, std::uint64_t index) const
{
    StartPhoton(record, index, link_shaders, ior);
    const std::uint32_t k = SequenceNumber(index);
    // Hammersley's pairing: radical inverses beside even steps.
    const auto turn        = static_cast<float>(static_cast<double>(index) / static_cast<double>(photon)) * kTwoPi;
    record.direction       = PointLightDirection(*this, RadicalInverse(0, k), turn);
    record.origin          = PointOnSource(*this, RadicalInverse(1, k), RadicalInverse(2, k));
    record.power           = photon_power * (SpotFactor(*this, record.direction) / static_cast<float>(photon));
    record.dimension       = blur > 0.0f ? 3 : 1;
    record.stores_caustics = 1;
}

void ParallelLight::GeneratePhoton(RayRecord& record, std::uint64_t index) const
{
    StartPhoton(record, index, link_shaders, ior);
    const std::uint32_t k  = SequenceNumber(index);
    record.direction       = SampleConeDirection(*this, RadicalInverse(2, k), RadicalInverse(3, k));
    record.origin          = PointOnSceneDisc(e1, e2, -axis, RadicalInverse(0, k), RadicalInverse(1, k));
    record.power           = photon_power / static_cast<float>(photon);
    record.dimension       = blur > 0.0f ? 4 : 2;
    record.stores_caustics = 1;
}

void GenerateSkyPhoton(RayRecord& photon, std::uint64_t index)
{
    StartPhoton(photon, index, SkyLight.link_shaders, SkyLight.ior);
    const std::uint32_t k = SequenceNumber(index);
    Vector              towards;
    if (HasSkyTables()) {
        const SkySample sample = SampleSky(RadicalInverse(1, k), RadicalInverse(0, k));
        towards                = sample.direction;
        // The probability of a cell, of which the sphere has as many as if all were like it: 65536 p = density 4 pi.
        const float cells = sample.density * 4.0f * kPi;
        photon.power      = cells >= 65536e-8f ? sample.radiance * SkyLight.sky_scale / cells : kBlack;
    } else {
        const float u = RadicalInverse(0, k), v = RadicalInverse(1, k);
        const float ring = 2.0f * SafeRoot(v * (1.0f - v));
        towards          = {ring * std::cos(kTwoPi * u), ring * std::sin(kTwoPi * u), 1.0f - 2.0f * v};
        photon.power     = SkyColor(towards) * SkyLight.sky_scale;
    }
    const Vector e2        = PerpendicularTo(towards);
    const Vector e1        = Cross(e2, towards);
    photon.power           = photon.power / static_cast<float>(SkyLight.photon);
    photon.origin          = PointOnSceneDisc(e1, e2, towards, RadicalInverse(2, k), RadicalInverse(3, k));
    photon.direction       = -towards;
    photon.dimension       = 4;
    photon.stores_caustics = 0;
}

bool StartEmitterPhoton(RayRecord& photon, std::uint64_t index, std::uint64_t count, SurfacePoint& point)
{
    StartPhoton(photon, index, GeometryLight.link_shaders, 1.0f);
    const std::uint32_t k = SequenceNumber(index);
    photon.power          = kBlack;
    photon.dimension      = 4;
    const auto pick       = static_cast<float>((static_cast<double>(index % count) + 0.5) / static_cast<double>(count));
    PlacedFace face;
    FacePlace  place;
    if (!DrawFace(&Object::emitters, pick, face)) return false;
    if (!PlaceOn(face, RadicalInverse(0, k), RadicalInverse(1, k), place)) return false;

    // The surface as a ray would find it that meets it straight on.
    const EmissiveEntry& entry = *face.entry;
    RayRecord            ray;
    ray.origin             = place.position;
    ray.direction          = -place.normal;
    ray.distance           = 0.0f;
    ray.hit_part           = face.part;
    ray.hit_primitive      = entry.index;
    ray.hit_kind           = static_cast<std::uint8_t>(entry.kind);
    ray.hit_shader         = ShaderOf(face);
    ray.front_side         = entry.side;
    ray.hit_u              = place.parameters.x;
    ray.hit_v              = place.parameters.y;
    ray.hit_w              = place.parameters.z;
    ray.thread             = photon.thread;
    ray.hit_instance_depth = static_cast<std::uint8_t>(face.instance_count);
    for (int n = 0; n < face.instance_count; ++n)
        InstanceNormalMatrices[photon.thread].matrices[n] = face.instances[n]->normalMatrix;
    EvaluateHit(ray, point);

    const Shader& shader   = ShaderAt(ray.hit_shader);
    photon.origin          = place.position;
    photon.power           = place.emission * GeometryLight.power_scale * place.stretch;
    photon.from_kind       = ray.hit_kind;
    photon.from_primitive  = ray.hit_primitive;
    photon.from_shader     = ray.hit_shader;
    photon.stores_caustics = (entry.side != 0 ? shader.face_virtual_light : shader.back_virtual_light) ? 1 : 0;
    return true;
}

}  // namespace hv
