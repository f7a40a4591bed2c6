#include "session/console.h"
#include "shading/shading.h"
#include "shading/textures.h"

#include <algorithm>

namespace hv {

namespace {

/// A lone one-sided layer gets a black layer for the other side.
void CompleteSides(Shader& shader)
{
    if (shader.layers.empty()) shader.layers.emplace_back();
    if (shader.layers.size() != 1 || shader.layers[0].sideness == Sideness::Both) return;
    const Sideness other = shader.layers[0].sideness == Sideness::Face ? Sideness::Back : Sideness::Face;
    shader.layers.emplace_back().sideness = other;
}

void AddToSide(std::uint32_t& count, std::uint8_t (&list)[kMaxSideLayers], std::size_t layer)
{
    // The lists hold bytes, so a layer that a byte cannot name takes no part either.
    if (count < kMaxSideLayers && layer <= 255) list[count++] = static_cast<std::uint8_t>(layer);
}

void ListSides(Shader& shader)
{
    shader.face_layer_count = shader.back_layer_count = 0;
    std::fill(std::begin(shader.face_layers), std::end(shader.face_layers), std::uint8_t{0});
    std::fill(std::begin(shader.back_layers), std::end(shader.back_layers), std::uint8_t{0});
    for (std::size_t i = 0; i < shader.layers.size(); ++i) {
        const Sideness sideness = shader.layers[i].sideness;
        if (sideness != Sideness::Back) AddToSide(shader.face_layer_count, shader.face_layers, i);
        if (sideness != Sideness::Face) AddToSide(shader.back_layer_count, shader.back_layers, i);
    }
}

void PrepareGeometryShader(GeometryShader& geometry)
{
    // A non-number becomes 0.
    geometry.reduction      = std::min(std::max(0.0f, geometry.reduction), 1.0f);
    geometry.round_corner   = std::min(std::max(0.0f, geometry.round_corner), 1.0f);
    geometry.has_clip_image = geometry.clip.image_index >= 0;
}

void DeriveLayerFlags(SurfaceShader& layer)
{
    const auto present = [&](Element element) { return IsPresent(layer.Slot(element).color); };
    const bool rough   = present(Element::Roughness);

    layer.has_image           = std::any_of(std::begin(layer.slots), std::end(layer.slots),
                                            [](const ShaderElement& slot) { return slot.image_index >= 0; });
    layer.has_normal_map      = layer.Slot(Element::Normal).image_index >= 0;
    layer.has_lambertian      = present(Element::Lambertian);
    layer.has_transmissive    = present(Element::Transmissive);
    layer.has_glossy          = present(Element::Glossy);
    layer.has_specular        = present(Element::Specular);
    layer.has_diffusion       = present(Element::Diffusion);
    layer.is_glossy_rough     = rough && layer.has_glossy;
    layer.is_anisotropic      = layer.is_glossy_rough && present(Element::Anisotropy);
    layer.needs_tangent_frame = layer.has_normal_map || layer.is_anisotropic;
    layer.frame_is_rotated    = layer.needs_tangent_frame && present(Element::Angle);
    layer.has_diffuse         = layer.has_lambertian || layer.has_transmissive;
    layer.has_reflection      = layer.has_specular || layer.has_glossy;
    layer.is_plain_diffuse    = !layer.has_image && !layer.has_reflection;
}

template <class Test>
bool AnyLayer(const Shader& shader, bool front, Test&& test)
{
    for (std::uint32_t n = 0; n < LayerCount(shader, front); ++n)
        if (test(SideLayer(shader, front, n))) return true;
    return false;
}

void SummariseSides(Shader& shader)
{
    const auto virtual_light = [](const SurfaceShader& layer) { return layer.virtual_light; };
    const auto emissive     = [](const SurfaceShader& layer) { return IsPresent(layer.Slot(Element::Emissive).color); };
    const auto lambertian   = [](const SurfaceShader& layer) { return layer.has_lambertian; };
    const auto transmissive = [](const SurfaceShader& layer) { return layer.has_transmissive; };

    shader.face_virtual_light = AnyLayer(shader, true, virtual_light);
    shader.back_virtual_light = AnyLayer(shader, false, virtual_light);
    shader.face_emissive      = AnyLayer(shader, true, emissive);
    shader.back_emissive      = AnyLayer(shader, false, emissive);
    shader.face_lambertian    = AnyLayer(shader, true, lambertian);
    shader.back_lambertian    = AnyLayer(shader, false, lambertian);
    shader.face_transmissive  = AnyLayer(shader, true, transmissive);
    shader.back_transmissive  = AnyLayer(shader, false, transmissive);
}

}  // namespace

void PrepareShader(Shader& shader)
{
    if (shader.prepared) return;
    CompleteSides(shader);
    ListSides(shader);
    ForEachElement(shader, BindElement);
    PrepareGeometryShader(shader.geometry_shader);
    for (SurfaceShader& layer : shader.layers) DeriveLayerFlags(layer);
    SummariseSides(shader);
    shader.prepared = true;
}

void PrepareShaders()
{
    const std::uint32_t undefined = EnsureDefaultShader();
    PrepareShader(Shaders[undefined]);
    for (Shader& shader : Shaders) {
        if (shader.layers.empty())
            shader = Shaders[undefined];
        else
            PrepareShader(shader);
    }
    RefreshShaderTraits();

    const auto count = static_cast<std::int64_t>(Shaders.size());
    ReportStatistic("shaders ", count, count * static_cast<std::int64_t>(sizeof(Shader)));
    PrintRule();
}

}  // namespace hv
