#pragma once

#include "shading/shader.h"

#include <utility>

namespace hv {

/// Finds and loads the pictures of an element. One that cannot be had is told of, and leaves the element at its plain
/// colour.
void BindElement(ShaderElement& element);

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
