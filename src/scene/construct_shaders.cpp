#include "hv.h"
#include "scene/construct.h"
#include "shading/shader.h"

#include <algorithm>

using namespace hv;

namespace {

template <class Store>
void EditLayer(int shader, int layer, Store store)
{
    Edit(Shaders, shader, [&](Shader& record) { Edit(record.layers, layer, store); });
}

template <class Store>
void EditSlot(int shader, int layer, Element element, Store store)
{
    if (!IsEnumerator(element, Element::Reserved15)) return;
    EditLayer(shader, layer, [&](SurfaceShader& record) { store(record.Slot(element)); });
}

template <class Store>
void EditDisplacement(int shader, int entry, Store store)
{
    Edit(Shaders, shader, [&](Shader& record) { Edit(record.geometry_shader.vector, entry, store); });
}

// Meant: the matrices are stored but not marked as present, so lookups go on without them. Only scene files mark them.
void SetImage(ShaderElement& element, const char* path, float gamma, const float (*color_matrix)[4],
              const float (*uv_matrix)[3])
{
    element.image = TextOf(path);
    element.gamma = gamma;
    if (color_matrix != nullptr) std::copy_n(&color_matrix[0][0], 16, element.color_matrix);
    if (uv_matrix != nullptr) std::copy_n(&uv_matrix[0][0], 9, element.uv_matrix);
}

}  // namespace

int hvAddShader() { return Append(Shaders); }

void hvSetShaderName(int shader, const char* name)
{
    Edit(Shaders, shader, [&](Shader& record) { record.name = TextOf(name); });
}

void hvSetShaderVisibility(int shader, Visibility visibility)
{
    if (!IsEnumerator(visibility, Visibility::VisibleToAll)) return;
    Edit(Shaders, shader, [&](Shader& record) { record.geometry_shader.visibility = visibility; });
}

void hvSetShaderSmoothAngle(int shader, float degrees)
{
    Edit(Shaders, shader, [&](Shader& record) { record.geometry_shader.smooth_angle = degrees; });
}

void hvSetShaderRoundCorner(int shader, float value)
{
    Edit(Shaders, shader, [&](Shader& record) { record.geometry_shader.round_corner = value; });
}

void hvSetShaderTime(int, float) {}

int hvAddSurfaceShader(int shader) { return AppendTo(Shaders, shader, &Shader::layers); }

void hvSetSurfaceSideness(int shader, int layer, Sideness sideness)
{
    if (!IsEnumerator(sideness, Sideness::Both)) return;
    EditLayer(shader, layer, [&](SurfaceShader& record) { record.sideness = sideness; });
}

void hvSetSurfaceMaterial(int shader, int layer, Material material)
{
    if (!IsEnumerator(material, Material::ThinDielectric)) return;
    EditLayer(shader, layer, [&](SurfaceShader& record) { record.material = material; });
}

void hvSetSurfaceVirtualLight(int shader, int layer, bool on)
{
    EditLayer(shader, layer, [&](SurfaceShader& record) { record.virtual_light = on; });
}

void hvSetSurfaceColor(int shader, int layer, Element element, float r, float g, float b)
{
    EditSlot(shader, layer, element, [&](ShaderElement& slot) { slot.color = {r, g, b}; });
}

void hvSetSurfaceImage(int shader, int layer, Element element, const char* path, float gamma,
                       const float (*color_matrix)[4], const float (*uv_matrix)[3])
{
    EditSlot(shader, layer, element,
             [&](ShaderElement& slot) { SetImage(slot, path, gamma, color_matrix, uv_matrix); });
}

int hvAddDisplacementShader(int shader)
{
    Shader* const record = Find(Shaders, shader);
    return record != nullptr ? Append(record->geometry_shader.vector) : -1;
}

void hvSetDisplacementVector(int shader, int entry, float x, float y, float z)
{
    EditDisplacement(shader, entry, [&](ShaderElement& record) { record.color = {x, y, z}; });
}

void hvSetDisplacementLevel(int shader, int entry, int level)
{
    EditDisplacement(shader, entry, [&](ShaderElement& record) { record.level = level; });
}

void hvSetDisplacementImage(int shader, int entry, const char* path, float gamma, const float (*color_matrix)[4],
                            const float (*uv_matrix)[3])
{
    EditDisplacement(shader, entry,
                     [&](ShaderElement& record) { SetImage(record, path, gamma, color_matrix, uv_matrix); });
}
