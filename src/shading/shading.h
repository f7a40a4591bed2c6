#pragma once

#include "shading/surface_point.h"

#include <cstdint>
#include <string_view>

/// Shaders: the registry, their preparation, and what the kernels ask of them at a hit.
namespace hv {

/// Makes the shader "undefined" (matte, albedo 0.85, Ior 1) unless a shader of that name exists; returns its index.
std::uint32_t EnsureDefaultShader();

/// Index of the first shader with this name (exact, case-sensitive); appends a default one with the name otherwise.
std::uint32_t FindOrAddShader(std::string_view name);

/// Index of the first shader with this name, kNone when there is none.
std::uint32_t FindShader(std::string_view name);

/// The shader stage: empty shaders become copies of "undefined", every shader is prepared, ShaderTraits is made, the
/// report line printed. May run again after shaders were added.
void PrepareShaders();

/// Brings one shader into its prepared form: missing side added, side lists, derived flags. Does nothing the second
/// time.
void PrepareShader(Shader& shader);

/// Remakes ShaderTraits from Shaders.
void RefreshShaderTraits();

/// Prepared and black on both sides: stands in where there is nothing to read. Made when the library is loaded.
extern const Shader BlackShader;

/// The shader at an index; out of range the first one, and a black one when there is none at all. Always has both side
/// lists filled when it is prepared.
const Shader& ShaderAt(std::uint32_t index);

/// Layers of a side: number and n-th layer.
inline std::uint32_t LayerCount(const Shader& shader, bool front)
{
    return front ? shader.face_layer_count : shader.back_layer_count;
}
inline const SurfaceShader& SideLayer(const Shader& shader, bool front, std::uint32_t n)
{
    return shader.layers[front ? shader.face_layers[n] : shader.back_layers[n]];
}

/// Chooses the layer that a hit uses: the only one of the side, else one at random in proportion to the mean of its
/// Weight slot at `uv`. Never returns null; a side without layers gives a black one.
const SurfaceShader* PickLayer(const Shader& shader, bool front, const float uv[2]);

/// Reads a slot at a point: colour, times the texture when the slot has an image. Returns whether it is present.
bool ReadSlot(const ShaderElement& slot, Color& out, const SurfacePoint& point);

/// The terms that every evaluator derives last: frame fix, roughness, rotation, Fresnel weights and eta. Needs the
/// frame, `outgoing` and `layer`; `front` is the side that was hit.
void DeriveSurfaceTerms(SurfacePoint& point, bool front);

/// Schlick's reflectance of an interface of relative index `n` at the cosine `c` (Schlick 1994); 0 when n is 1.
float SchlickReflectance(float n, float c);

/// Share of light that passes a surface towards a light: the product over all layers of the side. Needs `layer`-free
/// fields only: uv, cos_outgoing. At most present when the side is not opaque.
Color Transparency(const Shader& shader, bool front, const SurfacePoint& point);

/// Report of the image store: "textures", count and memory.
void ReportTextures();

}  // namespace hv
