#pragma once

#include "output/image.h"
#include "shading/shader.h"

namespace hv {

/// Reads a texture at `uv` through the matrices, sampler, wrap modes and gamma of an element: linear RGB. u = 0 is the
/// left edge, v = 0 the first row in memory. An image without pixels reads black. Any uv is safe, non-numbers included.
Color LookupTexture(const Image& image, const float uv[2], const ShaderElement& element);

/// One texel through wrap and gamma.
Color FetchTexel(const Image& image, int x, int y, const ShaderElement& element);

}  // namespace hv
