#include "shading/shading.h"

namespace hv {

std::vector<Shader>       Shaders;
std::vector<std::uint8_t> ShaderTraits;

const Shader BlackShader = [] {
    Shader shader;
    PrepareShader(shader);
    return shader;
}();

std::uint32_t FindShader(std::string_view name)
{
    for (std::size_t i = 0; i < Shaders.size(); ++i)
        if (Shaders[i].name == name) return static_cast<std::uint32_t>(i);
    return kNone;
}

std::uint32_t FindOrAddShader(std::string_view name)
{
    const std::uint32_t found = FindShader(name);
    if (found != kNone) return found;
    Shaders.emplace_back().name = name;
    return static_cast<std::uint32_t>(Shaders.size() - 1);
}

std::uint32_t EnsureDefaultShader()
{
    const std::uint32_t found = FindShader("undefined");
    if (found != kNone) return found;
    Shader& shader                                               = Shaders.emplace_back();  // born with that name
    shader.layers.emplace_back().Slot(Element::Lambertian).color = {0.85f, 0.85f, 0.85f};
    return static_cast<std::uint32_t>(Shaders.size() - 1);
}

const Shader& ShaderAt(std::uint32_t index)
{
    if (index < Shaders.size()) [[likely]]
        return Shaders[index];
    return Shaders.empty() ? BlackShader : Shaders.front();
}

}  // namespace hv
