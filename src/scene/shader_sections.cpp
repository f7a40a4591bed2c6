#include "scene/sections.h"

namespace hv {

namespace {

// ---- Elements: slots of a layer, the clip map, displacement entries ----

constexpr NamedValue<std::uint8_t> kPixelSamplers[] = {{"stochastic", 1}, {"bilinear", 2}, {"nearest", 0}};

// A matrix takes effect as soon as one of its numbers could be read.
template <auto matrix, auto is_identity>
void ElementMatrix(SceneReader& reader, ShaderElement& element)
{
    if (reader.Read(element.*matrix) > 0) element.*is_identity = false;
}

constexpr Keyword<ShaderElement> kSampler[] = {
    {"pixel_sampler", OneOf<&ShaderElement::sampler, kPixelSamplers>, {"\"nearest\"", "", "what lies between pixels"}},
    {"gamma", Numbers<&ShaderElement::gamma>, {"2.2", "", "power of the picture's channels; 2.2 for most of 8 bits"}},
    {"uv_matrix",
     ElementMatrix<&ShaderElement::uv_matrix, &ShaderElement::uv_matrix_is_identity>,
     {"4 0 0  0 4 0  0 0 1", "", "texture coordinates (u v 1) to those of the picture, row by row"}},
    {"color_matrix",
     ElementMatrix<&ShaderElement::color_matrix, &ShaderElement::color_matrix_is_identity>,
     {"0 0 0 1  0 1 0 0  0 0 1 0  0 0 0 1", "", "picture's colour (r g b 1) to that of the element"}},
};

void ReadSampler(SceneReader& reader, ShaderElement& element) { ReadBlock(reader, element, kSampler); }

constexpr Keyword<ShaderElement> kElement[] = {
    {"color", Numbers<&ShaderElement::color>, {"0.8 0.7 0.6", "RGB", "the value, or what multiplies the picture"}},
    {"fresnel", Numbers<&ShaderElement::fresnel>, {"0 0 0", "RGB", "none: see the slot `ior`", Effect::None}},
    {"direction",
     Numbers<&ShaderElement::direction>,
     {"0 1 0", "", "axes along which vertices move; 0 0 0: along tangent, bitangent, normal", Effect::Sets, "vector"}},
    {"level",
     Numbers<&ShaderElement::level>,
     {"8", "", "each triangle becomes level x level; 0: none is left", Effect::Sets, "vector"}},
    {"image", Text<&ShaderElement::image, Meaning::Picture>, {"\"wood.png\"", "", "picture that `color` multiplies"}},
    {"fresnel_image",
     Text<&ShaderElement::fresnel_image, Meaning::Picture>,
     {"\"wood.png\"", "", "none, but the picture is read", Effect::None}},
    {"uv_set", Text<&ShaderElement::uv_set>, {"\"uv\"", "", "none: the first set serves", Effect::None}},
    {"sampler", ReadSampler, {"", "", "how the picture is read"}},
};

void ReadElement(SceneReader& reader, ShaderElement& element) { ReadBlock(reader, element, kElement); }

// ---- Layers ----

template <Element slot>
void ReadSlotBlock(SceneReader& reader, SurfaceShader& layer)
{
    ReadElement(reader, layer.Slot(slot));
}

constexpr NamedValue<Sideness> kSides[] = {
    {"both", Sideness::Both}, {"face", Sideness::Face}, {"back", Sideness::Back}};

constexpr Keyword<SurfaceShader> kSurfaceShader[] = {
    {"emissive", ReadSlotBlock<Element::Emissive>, {"", "RGB", "radiance of its own"}},
    {"specular", ReadSlotBlock<Element::Specular>, {"", "", "colour of the mirror, or of what is seen through glass"}},
    {"transmissive", ReadSlotBlock<Element::Transmissive>, {"", "", "albedo of light that comes out matte behind"}},
    {"lambertian", ReadSlotBlock<Element::Lambertian>, {"", "", "albedo of matte reflection"}},
    {"glossy", ReadSlotBlock<Element::Glossy>, {"", "", "colour of reflections that `roughness` blurs"}},
    {"shadow_transparency",
     ReadSlotBlock<Element::ShadowTransparency>,
     {"", "", "colour of shadow rays behind it; a `thin_dielectric` takes `specular` instead"}},
    {"angle",
     ReadSlotBlock<Element::Angle>,
     {"", "turns", "turns the tangent of `anisotropy`", Effect::Sets, "", "color 0.25 0.25 0.25"}},
    {"ior",
     ReadSlotBlock<Element::Ior>,
     {"", "", "index of refraction; the larger, the more is reflected", Effect::Sets, "", "color 1.5 1.5 1.5"}},
    {"thickness", ReadSlotBlock<Element::Thickness>, {"", "", "none", Effect::None}},
    {"roughness",
     ReadSlotBlock<Element::Roughness>,
     {"", "", "blur of `glossy`: slope of the facets; of hair: width", Effect::Sets, "", "color 0.2 0.2 0.2"}},
    {"anisotropy",
     ReadSlotBlock<Element::Anisotropy>,
     {"", "", "0 to 1: makes `glossy` narrower along the tangent, wider across; OBJ tangents ignore uv", Effect::Sets,
      "", "color 0.6 0.6 0.6"}},
    {"normal",
     ReadSlotBlock<Element::Normal>,
     {"", "", "normal map; acts with an `image` only; OBJ tangents ignore uv", Effect::Sets, "",
      "image \"bumps.png\""}},
    {"diffusion",
     ReadSlotBlock<Element::Diffusion>,
     {"", "m^2", "variance of the way of light below the surface", Effect::Sets, "", "color 1e-4 4e-5 2e-5"}},
    {"weight",
     ReadSlotBlock<Element::Weight>,
     {"", "", "share of the layer, where a side has several", Effect::Sets, "", "color 0.5 0.5 0.5"}},
    {"window", Choice<&SurfaceShader::window, true>, {"", "", "emits the sky that stands behind it"}},
    {"virtual_light", Choice<&SurfaceShader::virtual_light, true>, {"", "", "`geometry_light` samples what it emits"}},
    {"thin_dielectric",
     Choice<&SurfaceShader::material, Material::ThinDielectric>,
     {"", "", "a pane: reflects, and lets light through unbent"}},
    {"dielectric", Choice<&SurfaceShader::material, Material::Dielectric>, {"", "", "glass: reflects and refracts"}},
    {"conductor", Choice<&SurfaceShader::material, Material::Conductor>, {"", "", "reflects only; the default"}},
    {"sideness", OneOf<&SurfaceShader::sideness, kSides>, {"\"face\"", "", "side of the faces that wears the layer"}},
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
    int value = is_set_by_one ? 0 : 1;
    if (reader.Read(value) == 1 && (value == 1) == is_set_by_one) geometry.visibility = visibility;
}

void ReadClip(SceneReader& reader, GeometryShader& geometry) { ReadElement(reader, geometry.clip); }

constexpr Keyword<GeometryShader> kGeometryShader[] = {
    {"clip", ReadClip, {"", "", "none", Effect::None}},
    {"vector",
     AppendElement<&GeometryShader::vector>,
     {"", "m", "one step of displacement", Effect::Adds, "", "color 0 0 0.1"}},
    {"radius", AppendElement<&GeometryShader::radius>, {"", "", "none", Effect::None}},
    {"length", AppendElement<&GeometryShader::length>, {"", "", "none", Effect::None}},
    {"height", AppendElement<&GeometryShader::height>, {"", "", "none", Effect::None}},
    {"round_corner", Numbers<&GeometryShader::round_corner>, {"1", "", "none", Effect::None}},
    {"smooth_angle",
     Numbers<&GeometryShader::smooth_angle>,
     {"40", "degrees", "faces that meet below it are smoothed; 0: flat; negative: as the file says"}},
    {"reduction", Numbers<&GeometryShader::reduction>, {"1", "", "none", Effect::None}},
    {"camera_primary",
     StoreVisibility<false, Visibility::LightPrimary>,
     {"0", "", "other than 1: the camera looks through it"}},
    {"light_primary",
     StoreVisibility<false, Visibility::CameraPrimary>,
     {"0", "", "other than 1: shadow rays and photons fresh from a light pass it"}},
    {"invisible", StoreVisibility<true, Visibility::Invisible>, {"1", "", "1: no ray meets it"}},
    {"flip_face", Flag<&GeometryShader::flip_face>, {"1", "", "1: turns the faces over"}},
    {"trivial_connection", Flag<&GeometryShader::trivial_connection>, {"0", "", "none", Effect::None}},
    {"assign_hair_texture_uv", Flag<&GeometryShader::assign_hair_texture_uv>, {"0", "", "none", Effect::None}},
};

void ReadGeometryShader(SceneReader& reader, GeometryShader& geometry) { ReadBlock(reader, geometry, kGeometryShader); }

constexpr Keyword<VolumeShader> kVolumeShader[] = {
    {"transmittance",
     Numbers<&VolumeShader::transmittance>,
     {"0.9 0.6 0.3", "RGB", "colour that is left after one metre"}},
    {"average_cosine", Numbers<&VolumeShader::average_cosine>, {"0", "", "none", Effect::None}},
    {"albedo",
     Numbers<&VolumeShader::albedo>,
     {"0 0 0", "RGB", "not black: point lights send photons all around", Effect::Sets, "sky_light"}},
    {"medium_id", Numbers<&VolumeShader::medium_id>, {"0", "", "none", Effect::None}},
};

// ---- The shader as a whole ----

void ReadShaderGeometry(SceneReader& reader, Shader& shader) { ReadGeometryShader(reader, shader.geometry_shader); }
void ReadShaderVolume(SceneReader& reader, Shader& shader) { ReadVolumeShader(reader, shader.volume_shader); }
void ReadShaderLayer(SceneReader& reader, Shader& shader) { AppendAndRead(reader, shader.layers, ReadSurfaceShader); }

constexpr Keyword<Shader> kShader[] = {
    {"name", Text<&Shader::name, Meaning::ShaderName>, {"\"wood\"", "", "by which geometry and lights name it"}},
    {"surface_shader", ReadShaderLayer, {"", "", "a layer; several of a side are drawn by `weight`", Effect::Adds}},
    {"geometry_shader", ReadShaderGeometry, {"", "", "smoothing, displacement, visibility"}},
    {"volume_shader", ReadShaderVolume, {"", "", "the inside of the body"}},
    {"opacity", Numbers<&Shader::opacity>, {"1", "", "none", Effect::None}},
};

}  // namespace

void ReadVolumeShader(SceneReader& reader, VolumeShader& volume) { ReadBlock(reader, volume, kVolumeShader); }

void ReadShader(SceneReader& reader, Shader& shader) { ReadBlock(reader, shader, kShader); }

}  // namespace hv
