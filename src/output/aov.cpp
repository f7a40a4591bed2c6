#include "accel/ray.h"
#include "geometry/corners.h"
#include "output/output.h"
#include "session/console.h"
#include "session/settings.h"
#include "shading/surface_point.h"

#include <atomic>
#include <cstddef>
#include <string>

namespace hv {
namespace {

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
    const Corners corners = CornersOf(*ray.hit_part, static_cast<PrimitiveKind>(ray.hit_kind), ray.hit_primitive,
                                      {ray.hit_u, ray.hit_v, ray.hit_w});
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
    for (std::size_t c = 0; c < 3; ++c) {
        std::atomic_ref<float> sum(pixels[first + c]);
        sum.store(sum.load(std::memory_order_relaxed) + value[static_cast<int>(c)], std::memory_order_relaxed);
    }
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
