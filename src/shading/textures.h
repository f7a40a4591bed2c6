#pragma once

#include "shading/shader.h"

#include <utility>

namespace hv {

/// Resolves the pictures of an element into the image store. The store takes no pictures yet: every element keeps its
/// plain colour.
void BindElement(ShaderElement& element);

/// Warns once of every distinct picture that the shaders not yet prepared name.
void WarnOfPictures();

/// Calls `visit` for every element of a shader, in the order of binding: clip map, displacement lists, layers.
template <class ShaderType, class Visit>
void ForEachElement(ShaderType& shader, Visit&& visit)
{
    auto& geometry = shader.geometry_shader;
    visit(geometry.clip);
    for (auto* list : {&geometry.vector, &geometry.radius, &geometry.length, &geometry.height})
        for (auto& element : *list) visit(element);
    for (auto& layer : shader.layers)
        for (auto& slot : layer.slots) visit(slot);
}

}  // namespace hv
