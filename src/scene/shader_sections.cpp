#include "scene/sections.h"

namespace hv {

namespace {

// ---- Elements: slots of a layer, the clip map, displacement entries ----

void ReadPixelSampler(SceneReader& reader, ShaderElement& element)
{
    const std::string word = reader.Quoted();
    if (word == "nearest") element.sampler = 0;
    if (word == "stochastic") element.sampler = 1;
    if (word == "bilinear") element.sampler = 2;
}

// A matrix takes effect as soon as one of its numbers could be read.
template <auto matrix, auto is_identity>
void ElementMatrix(SceneReader& reader, ShaderElement& element)
{
    if (reader.Read(element.*matrix) > 0) element.*is_identity = false;
}

constexpr Keyword<ShaderElement> kSampler[] = {
    {"pixel_sampler", ReadPixelSampler},
    {"gamma", Numbers<&ShaderElement::gamma>},
    {"uv_matrix", ElementMatrix<&ShaderElement::uv_matrix, &ShaderElement::uv_matrix_is_identity>},
    {"color_matrix", ElementMatrix<&ShaderElement::color_matrix, &ShaderElement::color_matrix_is_identity>},
};

void ReadSampler(SceneReader& reader, ShaderElement& element) { ReadBlock(reader, element, kSampler); }

constexpr Keyword<ShaderElement> kElement[] = {
    {"color", Numbers<&ShaderElement::color>},
    {"fresnel", Numbers<&ShaderElement::fresnel>},
    {"direction", Numbers<&ShaderElement::direction>},
    {"level", Numbers<&ShaderElement::level>},
    {"image", Text<&ShaderElement::image>},
    {"fresnel_image", Text<&ShaderElement::fresnel_image>},
    {"uv_set", Text<&ShaderElement::uv_set>},
    {"sampler", ReadSampler},
};

void ReadElement(SceneReader& reader, ShaderElement& element) { ReadBlock(reader, element, kElement); }

// ---- Layers ----

template <Element slot>
void ReadSlotBlock(SceneReader& reader, SurfaceShader& layer)
{
    ReadElement(reader, layer.Slot(slot));
}

void ReadSideness(SceneReader& reader, SurfaceShader& layer)
{
    const std::string word = reader.Quoted();
    if (word == "both") layer.sideness = Sideness::Both;
    if (word == "face") layer.sideness = Sideness::Face;
    if (word == "back") layer.sideness = Sideness::Back;
}

constexpr Keyword<SurfaceShader> kSurfaceShader[] = {
    {"emissive", ReadSlotBlock<Element::Emissive>},
    {"specular", ReadSlotBlock<Element::Specular>},
    {"transmissive", ReadSlotBlock<Element::Transmissive>},
    {"lambertian", ReadSlotBlock<Element::Lambertian>},
    {"glossy", ReadSlotBlock<Element::Glossy>},
    {"shadow_transparency", ReadSlotBlock<Element::ShadowTransparency>},
    {"angle", ReadSlotBlock<Element::Angle>},
    {"ior", ReadSlotBlock<Element::Ior>},
    {"thickness", ReadSlotBlock<Element::Thickness>},
    {"roughness", ReadSlotBlock<Element::Roughness>},
    {"anisotropy", ReadSlotBlock<Element::Anisotropy>},
    {"normal", ReadSlotBlock<Element::Normal>},
    {"diffusion", ReadSlotBlock<Element::Diffusion>},
    {"weight", ReadSlotBlock<Element::Weight>},
    {"window", Choice<&SurfaceShader::window, true>},
    {"virtual_light", Choice<&SurfaceShader::virtual_light, true>},
    {"thin_dielectric", Choice<&SurfaceShader::material, Material::ThinDielectric>},
    {"dielectric", Choice<&SurfaceShader::material, Material::Dielectric>},
    {"conductor", Choice<&SurfaceShader::material, Material::Conductor>},
    {"sideness", ReadSideness},
};

void ReadSurfaceShader(SceneReader& reader, SurfaceShader& layer) { ReadBlock(reader, layer, kSurfaceShader); }

// ---- Geometry and volume ----

template <auto list>
void AppendElement(SceneReader& reader, GeometryShader& geometry)
{
    AppendAndRead(reader, geometry.*list, ReadElement);
}

// Each of these keywords stores a whole value, so the last one on wins; none restores what another took.
template <bool is_set_by_one, Visibility visibility>
void StoreVisibility(SceneReader& reader, GeometryShader& geometry)
{
    int value = 0;
    if (reader.Read(value) == 1 && (value == 1) == is_set_by_one) geometry.visibility = visibility;
}

constexpr Keyword<GeometryShader> kGeometryShader[] = {
    {"clip", [](SceneReader& reader, GeometryShader& geometry) { ReadElement(reader, geometry.clip); }},
    {"vector", AppendElement<&GeometryShader::vector>},
    {"radius", AppendElement<&GeometryShader::radius>},
    {"length", AppendElement<&GeometryShader::length>},
    {"height", AppendElement<&GeometryShader::height>},
    {"round_corner", Numbers<&GeometryShader::round_corner>},
    {"smooth_angle", Numbers<&GeometryShader::smooth_angle>},
    {"reduction", Numbers<&GeometryShader::reduction>},
    {"camera_primary", StoreVisibility<false, Visibility::LightPrimary>},
    {"light_primary", StoreVisibility<false, Visibility::CameraPrimary>},
    {"invisible", StoreVisibility<true, Visibility::Invisible>},
    {"flip_face", Flag<&GeometryShader::flip_face>},
    {"trivial_connection", Flag<&GeometryShader::trivial_connection>},
    {"assign_hair_texture_uv", Flag<&GeometryShader::assign_hair_texture_uv>},
};

void ReadGeometryShader(SceneReader& reader, GeometryShader& geometry) { ReadBlock(reader, geometry, kGeometryShader); }

constexpr Keyword<VolumeShader> kVolumeShader[] = {
    {"transmittance", Numbers<&VolumeShader::transmittance>},
    {"average_cosine", Numbers<&VolumeShader::average_cosine>},
    {"albedo", Numbers<&VolumeShader::albedo>},
    {"medium_id", Numbers<&VolumeShader::medium_id>},
};

// ---- The shader as a whole ----

constexpr Keyword<Shader> kShader[] = {
    {"opacity", Numbers<&Shader::opacity>},
    {"name", Text<&Shader::name>},
    {"geometry_shader",
     [](SceneReader& reader, Shader& shader) { ReadGeometryShader(reader, shader.geometry_shader); }},
    {"volume_shader", [](SceneReader& reader, Shader& shader) { ReadVolumeShader(reader, shader.volume_shader); }},
    {"surface_shader",
     [](SceneReader& reader, Shader& shader) { AppendAndRead(reader, shader.layers, ReadSurfaceShader); }},
};

}  // namespace

void ReadVolumeShader(SceneReader& reader, VolumeShader& volume) { ReadBlock(reader, volume, kVolumeShader); }

void ReadShader(SceneReader& reader, Shader& shader) { ReadBlock(reader, shader, kShader); }

}  // namespace hv
