#include "shading/shading.h"

namespace hv {

std::vector<Shader>       Shaders;
std::vector<std::uint8_t> ShaderTraits;

}  // namespace hv
