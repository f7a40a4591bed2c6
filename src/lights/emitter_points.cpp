#include "lights/emitter_points.h"

#include "lights/lights.h"
#include "lights/placed_face.h"
#include "session/sampling.h"
#include "shading/shading.h"

#include <algorithm>
#include <cmath>

namespace hv {

namespace {

/// Item of the random numbers that choose the primitives; no pixel and no photon has it.
constexpr std::uint64_t kEmitterItem = ~std::uint64_t{2};

struct EmitterList {
    std::vector<EmitterPoint> points;       ///< kEmitterPointCount, or none
    AreaSampler               sampler;      ///< over the mean of their radiance
    std::vector<const Part*>  parts;        ///< that points may lie on, in the order of their addresses
    float                     area = 0.0f;  ///< square metres that they stand for together
};

/// Filled by BuildEmitterPoints, emptied by ReleaseEmitterPoints; frozen while rays fly.
EmitterList Emitters;

/// Whether the shader on a face is a virtual light there. An instance may have put one on it that is none: rays bring
/// the emission of such a surface in full.
bool IsVirtualLight(const Shader& shader, bool front)
{
    return front ? shader.face_virtual_light : shader.back_virtual_light;
}

/// The point at (s, t) of a face; dark when the face does not emit there.
EmitterPoint PointOn(const PlacedFace& face, float s, float t)
{
    const std::uint32_t shader = ShaderOf(face);
    FacePlace           place;
    if (!IsVirtualLight(ShaderAt(shader), face.entry->side != 0) || !PlaceOn(face, s, t, place)) return {};
    if (!IsPresent(place.emission)) return {};

    EmitterPoint point;
    point.position  = place.position;
    point.normal    = place.normal;
    point.radiance  = place.emission * place.stretch;
    point.shader    = shader;
    point.primitive = face.entry->index;
    point.kind      = static_cast<std::uint8_t>(face.entry->kind);
    const Color c   = point.radiance;
    // No weight of the sampler may be below 0 or a non-number.
    const bool is_sound =
        IsFinite(point.position) && IsFinite(point.normal) && IsFinite(Vector{c.r, c.g, c.b}) && Mean(c) > 0;
    return is_sound ? point : EmitterPoint{};
}

/// Point k of the list: the primitives by strata over their areas, the places on them by a Halton sequence.
EmitterPoint DrawPoint(std::uint32_t k)
{
    const float u = (HardwareRandom() + static_cast<float>(k)) / static_cast<float>(kEmitterPointCount);
    PlacedFace  face;
    return DrawFace(&Object::virtualLights, u, face) ? PointOn(face, RadicalInverse(0, k), RadicalInverse(1, k))
                                                     : EmitterPoint{};
}

/// Adds the parts that the draws from an object's list lead to. `seen` keeps each object to one visit.
void CollectParts(std::uint32_t index, std::vector<bool>& seen, std::vector<const Part*>& parts)
{
    if (index >= Objects.size() || seen[index]) return;
    seen[index]          = true;
    const Object& object = Objects[index];
    for (const EmissiveEntry& entry : object.virtualLights.entries) {
        if (entry.part >= object.parts.size()) continue;
        if (entry.kind != PrimitiveKind::Instance)
            parts.push_back(&object.parts[entry.part]);
        else if (entry.index < object.instances.size())
            CollectParts(object.instances[entry.index].object, seen, parts);
    }
}

std::vector<const Part*> PartsWithPoints()
{
    std::vector<const Part*> parts;
    std::vector<bool>        seen(Objects.size());
    CollectParts(RootObject, seen, parts);
    std::sort(parts.begin(), parts.end());
    parts.erase(std::unique(parts.begin(), parts.end()), parts.end());
    return parts;
}

}  // namespace

void BuildEmitterPoints()
{
    ReleaseEmitterPoints();
    if (GeometryLight.sample < 1 || RootObject >= Objects.size()) return;
    const Object& root = Objects[RootObject];
    if (!(root.emitterArea > 0.0f) || !(root.virtualLightArea > 0.0f)) return;

    Emitters.points.resize(kEmitterPointCount);
    std::vector<float> weights(kEmitterPointCount);
    BeginRandomStream(kEmitterItem, 0);
    for (std::uint32_t k = 0; k < kEmitterPointCount; ++k) {
        Emitters.points[k] = DrawPoint(k);
        weights[k]         = Mean(Emitters.points[k].radiance);
    }
    BuildAreaSampler(Emitters.sampler, weights);
    if (!Emitters.sampler.IsUsable()) return ReleaseEmitterPoints();  // all dark
    for (std::uint32_t k = 0; k < kEmitterPointCount; ++k) Emitters.points[k].probability = Emitters.sampler.weights[k];
    Emitters.area  = root.virtualLightArea;
    Emitters.parts = PartsWithPoints();
}

void ReleaseEmitterPoints() { Emitters = EmitterList(); }

bool HasEmitterList() { return !Emitters.points.empty(); }

bool MayHoldEmitterPoint(const Part& part, PrimitiveKind kind, std::uint32_t primitive, bool front)
{
    std::uint32_t index;
    if (kind == PrimitiveKind::Triangle && primitive < part.triangles.size())
        index = part.triangles[primitive].shader;
    else if (kind == PrimitiveKind::Tetragon && primitive < part.tetragons.size())
        index = part.tetragons[primitive].shader;
    else
        return false;
    const Shader& shader = ShaderAt(index);
    return (front ? shader.face_virtual_light : shader.back_virtual_light) &&
           std::binary_search(Emitters.parts.begin(), Emitters.parts.end(), &part);
}

float EmitterPointArea() { return Emitters.area; }

const EmitterPoint* PickEmitterPoint(float u)
{
    const std::uint32_t index = PickIndex(Emitters.sampler, u);
    return index < Emitters.points.size() ? &Emitters.points[index] : nullptr;
}

}  // namespace hv
