#include "accel/ray.h"
#include "geometry/object.h"
#include "output/output.h"
#include "session/console.h"
#include "session/settings.h"
#include "shading/surface_point.h"

#include <cstddef>
#include <string>

namespace hv {
namespace {

/// The vertices of a hit with their weights, which add up to 1.
struct HitCorners {
    int           count = 0;
    std::uint32_t vertex[4];
    float         weight[4];
};

HitCorners CornersOfHit(const RayRecord& ray)
{
    const Part&         part  = *ray.hit_part;
    const std::uint32_t index = ray.hit_primitive;
    const float         u = ray.hit_u, v = ray.hit_v, w = ray.hit_w;
    switch (static_cast<PrimitiveKind>(ray.hit_kind)) {
    case PrimitiveKind::Particle:
        if (index < part.particles.size()) return {1, {part.particles[index]}, {1.0f}};
        break;
    case PrimitiveKind::Cylinder:
        if (index < part.cylinders.size())
            return {2, {part.cylinders[index], part.cylinders[index] + 1}, {1.0f - w, w}};
        break;
    case PrimitiveKind::Triangle:
        if (index < part.triangles.size()) {
            const Triangle& t = part.triangles[index];
            return {3, {t.i0, t.i1, t.i2}, {u, v, w}};
        }
        break;
    case PrimitiveKind::Tetragon:
        if (index < part.tetragons.size()) {
            const Tetragon& t = part.tetragons[index];
            return {4, {t.i0, t.i1, t.i2, t.i3}, {(1.0f - u) * (1.0f - v), (1.0f - u) * v, u * v, u * (1.0f - v)}};
        }
        break;
    default:
        break;
    }
    return {};
}

Color AsColor(float value) { return {value, value, value}; }
Color AsColor(Vector2 value) { return {value.u, value.v, 0.0f}; }
Color AsColor(Vector value) { return {value.x, value.y, value.z}; }

template <class T>
void LookUp(const std::vector<VertexData<T>>& sets, const std::string& name, std::uint32_t vertex, Color& value)
{
    for (const VertexData<T>& set : sets)
        if (vertex < set.values.size() && set.name == name) value = AsColor(set.values[vertex]);
}

/// Named vertex data at a hit. Of several sets of that name the last one counts, one float before two before three.
Color UserDataAt(const RayRecord& ray, const std::string& name)
{
    Color sum = kBlack;
    if (!ray.hit_part) return sum;
    const HitCorners corners = CornersOfHit(ray);
    for (int i = 0; i < corners.count; ++i) {
        Color value = kBlack;
        LookUp(ray.hit_part->scalars, name, corners.vertex[i], value);
        LookUp(ray.hit_part->uvs, name, corners.vertex[i], value);
        LookUp(ray.hit_part->vectors, name, corners.vertex[i], value);
        sum += value * corners.weight[i];
    }
    return sum;
}

Color MappedToColor(Vector direction)
{
    return {0.5f * (1.0f + direction.x), 0.5f * (1.0f + direction.y), 0.5f * (1.0f + direction.z)};
}

/// What a channel shows of a hit. Returns false for channels that hits do not feed, sets of several bits among them.
bool ChannelValue(const CameraAOV& aov, const RayRecord& ray, const SurfacePoint& point, const PrimaryHit& hit,
                  Color& value)
{
    switch (static_cast<Channel>(aov.channel)) {
    case Channel::Lambertian:
        value = hit.lambertian;
        return true;
    case Channel::LambertianColor:
        value = point.lambertian;
        return true;
    case Channel::Transmissive:
        value = hit.transmissive;
        return true;
    case Channel::TransmissiveColor:
        value = point.transmissive;
        return true;
    case Channel::Glossy:
        value = hit.glossy;
        return true;
    case Channel::GlossyColor:
        value = point.glossy;
        return true;
    case Channel::Specular:
        value = hit.specular;
        return true;
    case Channel::SpecularColor:
        value = point.specular;
        return true;
    case Channel::Emissive:
        value = hit.emission;
        return true;
    case Channel::Normal:
        value = MappedToColor(point.normal);
        return true;
    case Channel::Tangent:
        value = MappedToColor(point.tangent);
        return true;
    case Channel::Position:
        value = AsColor(point.position);
        return true;
    case Channel::Depth:
        value = AsColor(Length(ray.origin - point.position));
        return true;
    case Channel::UserData:
        value = UserDataAt(ray, aov.user_data);
        return true;
    default:
        return false;
    }
}

}  // namespace

void PrepareAOV(CameraAOV& aov, int width, int height)
{
    aov.width  = width;
    aov.height = height;
    if (!AllocateImage(aov.image, width, height, 3, 32, false)) {
        PrintError("image - no memory for a picture of " + std::to_string(width) + " x " + std::to_string(height));
        PrintRule();
    }

    aov.shader = -1;
    for (std::size_t i = 0; i < Shaders.size(); ++i)  // without an early exit: the last shader of that name holds
        if (Shaders[i].name == aov.shader_name) aov.shader = static_cast<int>(i);
}

void AddToAOV(CameraAOV& aov, std::uint32_t pixel, Color value)
{
    const std::size_t   channels = static_cast<std::size_t>(aov.image.channels);
    const std::size_t   first    = pixel * channels;
    std::vector<float>& pixels   = aov.image.pixels32;
    if (channels < 3 || first + 3 > pixels.size()) return;
    // Plain adds: a pixel belongs to one thread within a frame, and a lost photon splat costs one splat.
    pixels[first] += value.r;
    pixels[first + 1] += value.g;
    pixels[first + 2] += value.b;
}

void AddPrimaryHit(const RayRecord& ray, const SurfacePoint& point, const PrimaryHit& hit)
{
    Camera* camera = ActiveCamera();
    if (!camera) return;
    const std::uint32_t pixel  = PixelSlot[ray.thread];
    const float         weight = static_cast<float>(ray.weight_count);
    for (CameraAOV& aov : camera->aovs) {
        Color value;
        if (ChannelValue(aov, ray, point, hit, value)) AddToAOV(aov, pixel, value / weight);
    }
}

void WriteAOVs(const std::vector<CameraAOV>& aovs)
{
    for (const CameraAOV& aov : aovs) WriteImage(aov.image);
}

void WriteCameraAOVs(const Camera& camera) { WriteAOVs(camera.aovs); }

}  // namespace hv
