#include "lights/placed_face.h"

#include "accel/accel.h"
#include "geometry/corners.h"
#include "shading/shading.h"

#include <cmath>

namespace hv {

namespace {

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

Color EmissionAt(const Shader& shader, bool front, const SurfacePoint& point)
{
    Color sum = kBlack;
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

/// The list may be older than the part: whether an entry names one of its faces.
bool IsFaceOf(const Part& part, const EmissiveEntry& entry)
{
    if (entry.kind == PrimitiveKind::Triangle) return entry.index < part.triangles.size();
    return entry.kind == PrimitiveKind::Tetragon && entry.index < part.tetragons.size();
}

/// So may indices of a face be: whether all corners have a place.
bool HasPlaces(const Part& part, const Corners& corners)
{
    return corners.count >= 3 && Covers(part.positions, corners);
}

}  // namespace

bool DrawFace(EmissiveList Object::*list, float u, PlacedFace& face)
{
    std::uint32_t index = RootObject;
    while (index < Objects.size()) {
        const Object&       object   = Objects[index];
        const EmissiveList& emitters = object.*list;
        const std::uint32_t pick     = PickIndex(emitters.sampler, u, &u);
        if (pick >= emitters.entries.size()) return false;
        const EmissiveEntry& entry = emitters.entries[pick];
        if (entry.kind != PrimitiveKind::Instance) {
            if (entry.part >= object.parts.size() || !IsFaceOf(object.parts[entry.part], entry)) return false;
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

std::uint32_t ShaderOf(const PlacedFace& face)
{
    for (int n = 0; n < face.instance_count; ++n)
        if (face.instances[n]->shader < Shaders.size()) return face.instances[n]->shader;
    const std::uint32_t index = face.entry->index;
    return face.entry->kind == PrimitiveKind::Triangle ? face.part->triangles[index].shader
                                                       : face.part->tetragons[index].shader;
}

bool PlaceOn(const PlacedFace& face, float s, float t, FacePlace& place)
{
    const EmissiveEntry& entry = *face.entry;
    const bool           front = entry.side != 0;
    place.parameters           = ParametersAt(entry.kind, s, t);
    const Corners corners      = CornersOf(*face.part, entry.kind, entry.index, place.parameters);
    if (!HasPlaces(*face.part, corners)) return false;

    SurfacePoint at;
    MixUv(*face.part, corners, at.uv);
    place.emission = EmissionAt(ShaderAt(ShaderOf(face)), front, at);

    Vector p[4];
    for (int n = 0; n < corners.count; ++n) p[n] = face.part->positions[corners.vertex[n]];
    place.normal = FaceNormal(p, corners.count) * (front ? 1.0f : -1.0f);
    ToWorld(face, p, corners.count, place.normal);

    place.position = {};
    for (int n = 0; n < corners.count; ++n) place.position += corners.weight[n] * p[n];
    place.stretch = AreaPerUnit(p, corners.count, place.parameters) / entry.weight;
    return true;
}

}  // namespace hv
