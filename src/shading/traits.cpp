#include "shading/shading.h"

namespace hv {

namespace {

/// A slot that is black wherever it is read: its colour multiplies what a texture gives.
bool IsAlwaysBlack(const ShaderElement& slot) { return slot.color == kBlack; }

/// Transparency is a product over the layers of a side, so one layer that is always black decides it.
bool IsCertainlyOpaque(const Shader& shader, bool front)
{
    for (std::uint32_t n = 0; n < LayerCount(shader, front); ++n) {
        const SurfaceShader& layer = SideLayer(shader, front, n);
        const Element        slot  = layer.material == Material::ThinDielectric ? Element::Specular  //
                                                                                : Element::ShadowTransparency;
        if (IsAlwaysBlack(layer.Slot(slot))) return true;
    }
    return false;
}

std::uint8_t TraitsOf(const Shader& shader)
{
    unsigned traits = static_cast<unsigned>(shader.geometry_shader.visibility) & shader_traits::kVisibilityMask;
    if (IsCertainlyOpaque(shader, true)) traits |= shader_traits::kFrontOpaque;
    if (IsCertainlyOpaque(shader, false)) traits |= shader_traits::kBackOpaque;
    return static_cast<std::uint8_t>(traits);
}

}  // namespace

void RefreshShaderTraits()
{
    ShaderTraits.clear();
    for (const Shader& shader : Shaders) ShaderTraits.push_back(TraitsOf(shader));
}

}  // namespace hv
