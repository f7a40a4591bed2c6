#include "shading/textures.h"

#include "session/console.h"
#include "shading/shading.h"

#include <set>

namespace hv {

void BindElement(ShaderElement& element)
{
    element.image_index         = -1;
    element.fresnel_image_index = -1;
}

void WarnOfPictures()
{
    std::set<std::string_view> warned;
    for (const Shader& shader : Shaders) {
        if (shader.prepared) continue;
        ForEachElement(shader, [&](const ShaderElement& element) {
            for (const std::string* path : {&element.image, &element.fresnel_image})
                if (!path->empty() && warned.insert(*path).second)
                    PrintWarning("image - pictures are not read yet: " + *path);
        });
    }
}

void ReportTextures()
{
    ReportStatistic("textures", 0, 0);
    PrintRule();
}

}  // namespace hv
