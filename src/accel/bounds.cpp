#include "accel/accel.h"
#include "accel/hierarchy.h"
#include "geometry/corners.h"

#include <limits>

namespace hv {

namespace {

constexpr std::uint32_t kRunLength = 4096;

/// Sub-segments of a cylinder's curve.
constexpr int kCurvePieces = 8;

/// Boxes grow by min and max, which drop a non-number without a trace, so each vertex is looked at by itself.
bool GrowFinite(Box& box, const Part& part, std::uint32_t vertex)
{
    if (vertex >= part.positions.size() || !IsFinite(part.positions[vertex])) return false;
    Grow(box, part.positions[vertex]);
    return true;
}

Box Thickened(const Box& box, float radius)
{
    const float  size = std::fabs(radius);
    const Vector margin{size, size, size};
    return {box.min - margin, box.max + margin};
}

Box ParticleBounds(const Part& part, std::uint32_t vertex)
{
    Box box;
    if (!GrowFinite(box, part, vertex)) return {};
    return Thickened(box, RadiusAt(part, vertex));
}

/// Box of the cubic Hermite curve between two vertices of a strand, at the ends of its sub-segments. Thickened by the
/// first vertex's radius only, as the hair test cuts by planes at the second.
Box CylinderBounds(const Part& part, std::uint32_t vertex)
{
    Box ends;
    if (vertex >= part.positions.size() || !GrowFinite(ends, part, vertex) || !GrowFinite(ends, part, vertex + 1))
        return {};
    const Vector p0 = part.positions[vertex], p1 = part.positions[vertex + 1];
    const Vector t0 = TangentAt(part, vertex), t1 = TangentAt(part, vertex + 1);
    Box          box;
    for (int k = 0; k <= kCurvePieces; ++k) {
        const float s = static_cast<float>(k) / kCurvePieces;
        const float h = (2.0f * s - 3.0f) * s * s, h10 = s * (1.0f - s) * (1.0f - s), h11 = s * s * (s - 1.0f);
        Grow(box, p0 + h * (p0 - p1) + h10 * t0 + h11 * t1);
    }
    return Thickened(box, RadiusAt(part, vertex));
}

Box TriangleBounds(const Part& part, const Triangle& triangle)
{
    Box        box;
    const bool finite =
        GrowFinite(box, part, triangle.i0) && GrowFinite(box, part, triangle.i1) && GrowFinite(box, part, triangle.i2);
    return finite ? box : Box{};
}

Box TetragonBounds(const Part& part, const Tetragon& tetragon)
{
    Box        box;
    const bool finite = GrowFinite(box, part, tetragon.i0) && GrowFinite(box, part, tetragon.i1) &&
                        GrowFinite(box, part, tetragon.i2) && GrowFinite(box, part, tetragon.i3);
    return finite ? box : Box{};
}

Box AnyBounds(const Object& object, const PrimitiveRef& ref)
{
    const std::uint32_t i = ref.index;
    if (ref.kind == static_cast<std::uint16_t>(PrimitiveKind::Instance))
        return i < object.instances.size() ? object.instances[i].box : Box{};
    if (ref.part >= object.parts.size()) return {};
    const Part& part = object.parts[ref.part];
    switch (static_cast<PrimitiveKind>(ref.kind)) {
    case PrimitiveKind::Particle:
        return i < part.particles.size() ? ParticleBounds(part, part.particles[i]) : Box{};
    case PrimitiveKind::Cylinder:
        return i < part.cylinders.size() ? CylinderBounds(part, part.cylinders[i]) : Box{};
    case PrimitiveKind::Triangle:
        return i < part.triangles.size() ? TriangleBounds(part, part.triangles[i]) : Box{};
    case PrimitiveKind::Tetragon:
        return i < part.tetragons.size() ? TetragonBounds(part, part.tetragons[i]) : Box{};
    default:
        return {};
    }
}

void ListPart(std::vector<ReferenceRun>& runs, std::uint32_t& position, std::uint16_t part, PrimitiveKind kind,
              std::size_t total)
{
    for (std::size_t first = 0; first < total; first += kRunLength) {
        const auto count = static_cast<std::uint32_t>(std::min<std::size_t>(total - first, kRunLength));
        runs.push_back({{part, static_cast<std::uint16_t>(kind), static_cast<std::uint32_t>(first)}, count, position});
        position += count;
    }
}

/// Bounds of the corners of `box` after a transform, which may be projective.
Box TransformedBounds(const Matrix4& matrix, const Box& box)
{
    Box result;
    for (unsigned corner = 0; corner < 8; ++corner) {
        const Vector p = TransformPoint(
            matrix, {(corner & 1) != 0 ? box.max.x : box.min.x, (corner & 2) != 0 ? box.max.y : box.min.y,
                     (corner & 4) != 0 ? box.max.z : box.min.z});
        if (!IsFinite(p)) return {};
        Grow(result, p);
    }
    return result;
}

/// Whether areas of boxes of this size, times any count, are finite: a build that compares infinite costs splits
/// nothing.
bool IsBuildable(const Box& box)
{
    constexpr float kFarthest = 1e15f;
    const Vector    reach     = Max(Max(box.min, -box.min), Max(box.max, -box.max));
    return IsFinite(box) && reach.x <= kFarthest && reach.y <= kFarthest && reach.z <= kFarthest;
}

}  // namespace

Box PrimitiveBounds(const Object& object, const PrimitiveRef& ref)
{
    const Box box = AnyBounds(object, ref);
    return IsBuildable(box) ? box : Box{};  // a position or radius that is huge or no number
}

bool IsUsable(const Object& object, const PrimitiveRef& ref) { return !IsEmpty(PrimitiveBounds(object, ref)); }

std::vector<ReferenceRun> ListRuns(const Object& object)
{
    std::vector<ReferenceRun> runs;
    std::uint32_t             position = 0;
    const std::size_t         part_count =
        std::min<std::size_t>(object.parts.size(), std::numeric_limits<std::uint16_t>::max() + 1);
    for (std::size_t p = 0; p < part_count; ++p) {
        const Part& part   = object.parts[p];
        const auto  number = static_cast<std::uint16_t>(p);
        ListPart(runs, position, number, PrimitiveKind::Particle, part.particles.size());
        ListPart(runs, position, number, PrimitiveKind::Cylinder, part.cylinders.size());
        ListPart(runs, position, number, PrimitiveKind::Triangle, part.triangles.size());
        ListPart(runs, position, number, PrimitiveKind::Tetragon, part.tetragons.size());
    }
    ListPart(runs, position, 0, PrimitiveKind::Instance, object.instances.size());
    return runs;
}

bool RefreshInstance(Instance& instance)
{
    instance.box          = {};
    const bool invertible = Invert(instance.matrix, instance.inverse);
    if (!invertible) return false;
    instance.directionMatrix = UpperLeft(instance.inverse);
    instance.normalMatrix    = Transposed(instance.directionMatrix);
    if (instance.object >= Objects.size() || !Objects[instance.object].isPrepared) return false;
    const Box& target = Objects[instance.object].box;
    if (IsEmpty(target)) return false;
    instance.box = TransformedBounds(instance.matrix, target);
    return !IsEmpty(instance.box);
}

void RefreshInstances(Object& object)
{
    const auto count = static_cast<std::int64_t>(object.instances.size());
#pragma omp parallel for schedule(static) num_threads(TeamSize()) if (count >= 64)
    for (std::int64_t i = 0; i < count; ++i) RefreshInstance(object.instances[static_cast<std::size_t>(i)]);
}

void RefreshBounds(Object& object)
{
    RefreshInstances(object);
    const std::vector<ReferenceRun> runs  = ListRuns(object);
    const auto                      count = static_cast<std::int64_t>(runs.size());
    std::vector<Box>                boxes(runs.size());
#pragma omp parallel for schedule(dynamic) num_threads(TeamSize()) if (count >= kTeamRuns)
    for (std::int64_t i = 0; i < count; ++i) {
        const ReferenceRun& run = runs[static_cast<std::size_t>(i)];
        Box                 box;
        for (std::uint32_t k = 0; k < run.count; ++k) Grow(box, PrimitiveBounds(object, RefOfRun(run, k)));
        boxes[static_cast<std::size_t>(i)] = box;
    }
    object.box = {};
    for (const Box& box : boxes) Grow(object.box, box);
}

}  // namespace hv
