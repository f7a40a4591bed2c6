#include "session/sampling.h"
#include "shading/image_store.h"
#include "shading/shading.h"
#include "shading/texture_lookup.h"

#include <algorithm>
#include <cmath>

namespace hv {

SurfaceShader::SurfaceShader()
{
    for (const Element element : {Element::Ior, Element::Normal, Element::Reserved13}) Slot(element).color = kWhite;
}

namespace {

/// A slot at texture coordinates: its colour, times the texture.
Color SlotValue(const ShaderElement& slot, const float uv[2])
{
    if (slot.image_index < 0) return slot.color;
    return LookupTexture(Images[static_cast<std::size_t>(slot.image_index)], uv, slot) * slot.color;
}

/// What one layer lets through. The slab's (1 - F)^2 / (1 - F^2) is written as (1 - F) / (1 + F), which is 0 and not 0
/// / 0 at a grazing angle.
Color LayerTransparency(const SurfaceShader& layer, const SurfacePoint& point)
{
    if (layer.material != Material::ThinDielectric) return SlotValue(layer.Slot(Element::ShadowTransparency), point.uv);
    const float n           = Mean(SlotValue(layer.Slot(Element::Ior), point.uv));
    const float reflectance = SchlickReflectance(n, std::fabs(point.cos_outgoing));
    return SlotValue(layer.Slot(Element::Specular), point.uv) * ((1.0f - reflectance) / (1.0f + reflectance));
}

}  // namespace

const SurfaceShader* PickLayer(const Shader& shader, bool front, const float uv[2])
{
    const std::uint32_t count = LayerCount(shader, front);
    if (count == 1) return &SideLayer(shader, front, 0);
    if (count == 0) return &BlackShader.layers.front();

    float running[kMaxSideLayers];
    std::fill(std::begin(running), std::end(running), kFarAway);
    float sum = 0.0f;
    for (std::uint32_t n = 0; n < count; ++n) {
        sum += Mean(SlotValue(SideLayer(shader, front, n).Slot(Element::Weight), uv));
        running[n] = sum;
    }
    const float* pick     = std::upper_bound(std::begin(running), std::end(running), HardwareRandom() * sum);
    const auto   position = static_cast<std::uint32_t>(pick - running);
    // Weights that are all black lead to the first unused entry.
    return &SideLayer(shader, front, std::min(position, count - 1));
}

bool ReadSlot(const ShaderElement& slot, Color& out, const SurfacePoint& point)
{
    out = SlotValue(slot, point.uv);
    return IsPresent(out);
}

Color Transparency(const Shader& shader, bool front, const SurfacePoint& point)
{
    Color product = kWhite;
    for (std::uint32_t n = 0; n < LayerCount(shader, front); ++n)
        product *= LayerTransparency(SideLayer(shader, front, n), point);
    return product;
}

}  // namespace hv
