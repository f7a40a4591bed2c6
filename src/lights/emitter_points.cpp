#include "lights/emitter_points.h"

#include "accel/accel.h"
#include "geometry/corners.h"
#include "lights/lights.h"
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

/// One side of a face, and the instances that place it in the world, outermost first.
struct PlacedFace {
    const Part*          part  = nullptr;
    const EmissiveEntry* entry = nullptr;
    const Instance*      instances[kMaxInstanceDepth];
    int                  instance_count = 0;
};

/// Follows u (0 to 1) from the root's list through those of the instances. False when it ends at nothing.
bool DrawFace(float u, PlacedFace& face)
{
    std::uint32_t index = RootObject;
    while (index < Objects.size()) {
        const Object&       object = Objects[index];
        const std::uint32_t pick   = PickIndex(object.virtualLights.sampler, u, &u);
        if (pick >= object.virtualLights.entries.size()) return false;
        const EmissiveEntry& entry = object.virtualLights.entries[pick];
        if (entry.kind != PrimitiveKind::Instance) {
            if (entry.part >= object.parts.size()) return false;
            face.part  = &object.parts[entry.part];
            face.entry = &entry;
            return true;
        }
        // The list names an instance once for every part of its owner. The first naming alone brings light; after the
        // others the point stays dark, or the placed lights would shine that many times.
        if (entry.part != 0 || entry.index >= object.instances.size()) return false;
        const Instance& instance = object.instances[entry.index];
        if (IsEmpty(instance.box) || face.instance_count == kMaxInstanceDepth) return false;  // no ray enters it
        face.instances[face.instance_count++] = &instance;
        index                                 = instance.object;
    }
    return false;
}

/// Parameters of a face, as a hit has them, at (s, t) of the unit square. The root spreads triangles evenly (Turk
/// 1990).
Vector ParametersAt(PrimitiveKind kind, float s, float t)
{
    if (kind == PrimitiveKind::Tetragon) return {s, t, 0.0f};
    const float root = std::sqrt(s);
    return {1.0f - root, root * (1.0f - t), root * t};
}

/// Square metres that the face has per unit of s and t about those parameters. Triangles and parallelograms have their
/// area everywhere; the corners of other tetragons lie more or less close.
float AreaPerUnit(const Vector* p, int corner_count, Vector at)
{
    Vector cross;
    if (corner_count == 3) {
        cross = 0.5f * Cross(p[1] - p[0], p[2] - p[0]);
    } else {
        const Vector along_u = (p[3] - p[0]) * (1.0f - at.y) + (p[2] - p[1]) * at.y;
        const Vector along_v = (p[1] - p[0]) * (1.0f - at.x) + (p[2] - p[3]) * at.x;
        cross                = Cross(along_u, along_v);
    }
    return std::sqrt(Dot(cross, cross));
}

/// The shader that a ray would find on the face: that of the outermost instance which overrides it.
std::uint32_t ShaderOf(const PlacedFace& face)
{
    for (int n = 0; n < face.instance_count; ++n)
        if (face.instances[n]->shader < Shaders.size()) return face.instances[n]->shader;
    const std::uint32_t index = face.entry->index;
    return face.entry->kind == PrimitiveKind::Triangle ? face.part->triangles[index].shader
                                                       : face.part->tetragons[index].shader;
}

/// Emission of all layers of a side together. Black when an instance put a shader there that is no virtual light: rays
/// bring the emission of such a surface in full.
Color EmissionAt(const Shader& shader, bool front, const SurfacePoint& point)
{
    Color sum = kBlack;
    if (!(front ? shader.face_virtual_light : shader.back_virtual_light)) return sum;
    for (std::uint32_t n = 0; n < LayerCount(shader, front); ++n) {
        Color emission;
        ReadSlot(SideLayer(shader, front, n).Slot(Element::Emissive), emission, point);
        sum += emission;
    }
    return sum;
}

/// Takes corners and normal of a face out of its instances, innermost first.
void ToWorld(const PlacedFace& face, Vector* corners, int corner_count, Vector& normal)
{
    for (int n = face.instance_count - 1; n >= 0; --n) {
        const Instance& instance = *face.instances[n];
        for (int i = 0; i < corner_count; ++i) corners[i] = TransformPoint(instance.matrix, corners[i]);
        normal = instance.normalMatrix * normal;
    }
    normal = Normalized(Normalized(normal));  // the first may leave a very short one short
}

/// Indices may be older than the part: whether all corners have a place.
bool HasPlaces(const Part& part, const Corners& corners)
{
    return corners.count >= 3 && Covers(part.positions, corners);
}

/// The point at (s, t) of a face; dark when the face does not emit there.
EmitterPoint PointOn(const PlacedFace& face, float s, float t)
{
    const EmissiveEntry& entry      = *face.entry;
    const bool           front      = entry.side != 0;
    const Vector         parameters = ParametersAt(entry.kind, s, t);
    const Corners        corners    = CornersOf(*face.part, entry.kind, entry.index, parameters);
    if (!HasPlaces(*face.part, corners)) return {};

    SurfacePoint at;
    MixUv(*face.part, corners, at.uv);
    const std::uint32_t shader   = ShaderOf(face);
    const Color         emission = EmissionAt(ShaderAt(shader), front, at);
    if (!IsPresent(emission)) return {};

    Vector p[4];
    for (int n = 0; n < corners.count; ++n) p[n] = face.part->positions[corners.vertex[n]];
    Vector normal = FaceNormal(p, corners.count) * (front ? 1.0f : -1.0f);
    ToWorld(face, p, corners.count, normal);

    EmitterPoint point;
    for (int n = 0; n < corners.count; ++n) point.position += corners.weight[n] * p[n];
    point.normal    = normal;
    point.radiance  = emission * (AreaPerUnit(p, corners.count, parameters) / entry.weight);
    point.shader    = shader;
    point.primitive = entry.index;
    point.kind      = static_cast<std::uint8_t>(entry.kind);
    const Color c   = point.radiance;
    // No weight of the sampler may be below 0 or a non-number.
    const bool is_sound =
        IsFinite(point.position) && IsFinite(normal) && IsFinite(Vector{c.r, c.g, c.b}) && Mean(c) > 0;
    return is_sound ? point : EmitterPoint{};
}

/// Point k of the list: the primitives by strata over their areas, the places on them by a Halton sequence.
EmitterPoint DrawPoint(std::uint32_t k)
{
    const float u = (HardwareRandom() + static_cast<float>(k)) / static_cast<float>(kEmitterPointCount);
    PlacedFace  face;
    return DrawFace(u, face) ? PointOn(face, RadicalInverse(0, k), RadicalInverse(1, k)) : EmitterPoint{};
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
