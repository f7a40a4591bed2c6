#include "geometry/assembly.h"
#include "shading/shading.h"

namespace hv {

namespace {

void Append(EmissiveList& list, float& total_area, const EmissiveEntry& entry)
{
    list.entries.push_back(entry);
    total_area += entry.weight;
}

/// Lists one face on each side that emits.
void AppendFace(Object& object, std::uint32_t part, PrimitiveKind kind, std::uint32_t index, std::uint32_t shader_index,
                float area)
{
    const Shader& shader = ShaderAt(shader_index);
    if (shader.face_emissive) Append(object.emitters, object.emitterArea, {part, index, kind, 1, area});
    if (shader.back_emissive) Append(object.emitters, object.emitterArea, {part, index, kind, 0, area});
    if (shader.face_virtual_light) Append(object.virtualLights, object.virtualLightArea, {part, index, kind, 1, area});
    if (shader.back_virtual_light) Append(object.virtualLights, object.virtualLightArea, {part, index, kind, 0, area});
}

void AppendFaces(Object& object, std::uint32_t part_index)
{
    const Part& part = object.parts[part_index];
    const auto& p    = part.positions;
    for (std::uint32_t i = 0; i < part.triangles.size(); ++i) {
        const Triangle& face = part.triangles[i];
        AppendFace(object, part_index, PrimitiveKind::Triangle, i, face.shader,
                   TriangleArea(p[face.i0], p[face.i1], p[face.i2]));
    }
    for (std::uint32_t i = 0; i < part.tetragons.size(); ++i) {
        const Tetragon& face = part.tetragons[i];
        AppendFace(object, part_index, PrimitiveKind::Tetragon, i, face.shader,
                   TetragonArea(p[face.i0], p[face.i1], p[face.i2], p[face.i3]));
    }
}

void AppendInstances(Object& object, std::uint32_t part)
{
    for (std::uint32_t i = 0; i < object.instances.size(); ++i) {
        const std::uint32_t target = object.instances[i].object;
        if (target >= Objects.size()) continue;
        Append(object.emitters, object.emitterArea, {part, i, PrimitiveKind::Instance, 1, Objects[target].emitterArea});
        Append(object.virtualLights, object.virtualLightArea,
               {part, i, PrimitiveKind::Instance, 1, Objects[target].virtualLightArea});
    }
}

void BuildSampler(EmissiveList& list)
{
    std::vector<float> weights;
    weights.reserve(list.entries.size());
    for (const EmissiveEntry& entry : list.entries) weights.push_back(entry.weight);
    BuildAreaSampler(list.sampler, weights);
}

float Square(float x) { return x * x; }

float SquaredDistance(Vector a, Vector b) { return Dot(b - a, b - a); }

}  // namespace

float TriangleArea(Vector p0, Vector p1, Vector p2)
{
    // Heron's formula in squared side lengths.
    const float a = SquaredDistance(p0, p1), b = SquaredDistance(p1, p2), c = SquaredDistance(p2, p0);
    return 0.25f * SafeRoot(Square(a + b + c) - 2.0f * (a * a + b * b + c * c));
}

float TetragonArea(Vector p0, Vector p1, Vector p2, Vector p3)
{
    // Bretschneider's formula in squared diagonals and sides.
    const float p = SquaredDistance(p0, p2), q = SquaredDistance(p1, p3);
    const float a = SquaredDistance(p0, p1), b = SquaredDistance(p1, p2), c = SquaredDistance(p2, p3);
    const float d = SquaredDistance(p3, p0);
    return 0.25f * SafeRoot(4.0f * p * q - Square(a + c - b - d));
}

void BuildEmitterLists(Object& object)
{
    object.emitters = object.virtualLights = {};
    object.emitterArea = object.virtualLightArea = 0.0f;
    for (std::uint32_t part = 0; part < object.parts.size(); ++part) {
        AppendFaces(object, part);
        // Inside the loop over parts, so an object lists its instances once a part, and none without parts. Meant so.
        AppendInstances(object, part);
    }
    BuildSampler(object.emitters);
    BuildSampler(object.virtualLights);
}

}  // namespace hv
