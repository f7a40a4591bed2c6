#include "accel/accel.h"
#include "accel/large_array.h"
#include "accel/tube.h"
#include "accel/walk_steps.h"
#include "geometry/object.h"

#include <algorithm>
#include <cstring>

namespace hv {

namespace {

void PackVector(Vector v, int n, int lane, LeafBlock& block)
{
    for (int axis = 0; axis < 3; ++axis) block.values[24 * n + 8 * axis + lane] = v[axis];
}

/// All of the triangle test that does not depend on the ray, in its operation order.
void PackTriangle(const Part& part, std::uint32_t index, int lane, LeafBlock& block)
{
    const Triangle& triangle = part.triangles[index];
    const Vector    p0       = part.positions[triangle.i0];
    const Vector    e1 = part.positions[triangle.i1] - p0, e2 = part.positions[triangle.i2] - p0;
    const Vector    n = Cross(e1, e2);
    PackVector(p0, 0, lane, block);
    PackVector(n, 1, lane, block);
    PackVector(Cross(e2, n), 2, lane, block);
    PackVector(Cross(n, e1), 3, lane, block);
    block.square[lane] = Dot(n, n);
    block.shader[lane] = triangle.shader;
}

void PackTetragon(const Part& part, std::uint32_t index, int lane, LeafBlock& block)
{
    const Tetragon&     tetragon   = part.tetragons[index];
    const std::uint32_t corners[4] = {tetragon.i0, tetragon.i1, tetragon.i2, tetragon.i3};
    for (int corner = 0; corner < 4; ++corner) PackVector(part.positions[corners[corner]], corner, lane, block);
    block.shader[lane] = tetragon.shader;
}

void PackCylinder(const Part& part, std::uint32_t index, int lane, LeafBlock& block)
{
    const Curve curve = CurveOf(part, part.cylinders[index]);
    PackVector(curve.p0, 0, lane, block);
    PackVector(curve.p1, 1, lane, block);
    block.values[8 * kReachRow + lane] = CurveReach(curve);
    for (int axis = 0; axis < 3; ++axis) block.values[8 * (kT0Row + axis) + lane] = curve.t0[axis];
    for (int axis = 0; axis < 2; ++axis) block.values[8 * (kT1Row + axis) + lane] = curve.t1[axis];
    block.square[lane] = curve.t1.z;
    block.shader[lane] = part.cylinders[index];
}

/// What a block can be packed as; None: its references are read one by one. All are of one kind class, so the first
/// tells it but for cylinders, which may stand beside particles and instances. Those of kind None come last.
PrimitiveKind PackedKind(const PrimitiveRef* refs)
{
    const auto kind = static_cast<PrimitiveKind>(refs[0].kind);
    if (kind == PrimitiveKind::Triangle || kind == PrimitiveKind::Tetragon) return kind;
    const bool all = std::all_of(refs, refs + kBlockLength, [](const PrimitiveRef& ref) {
        const auto other = static_cast<PrimitiveKind>(ref.kind);
        return other == PrimitiveKind::Cylinder || other == PrimitiveKind::None;
    });
    return all ? PrimitiveKind::Cylinder : PrimitiveKind::None;
}

/// Written in place: a block that is made elsewhere and copied stalls on the wide reads behind its narrow writes.
void PackBlock(const Object& object, const PrimitiveRef* refs, LeafBlock& block)
{
    std::memset(static_cast<void*>(&block), 0, sizeof(block));
    const PrimitiveKind kind = PackedKind(refs);
    block.kind               = static_cast<std::uint8_t>(kind);
    for (int lane = 0; lane < static_cast<int>(kBlockLength); ++lane) {
        const PrimitiveRef& ref = refs[lane];
        block.index[lane]       = kNone;
        if (ref.kind == static_cast<std::uint16_t>(PrimitiveKind::None)) continue;
        block.index[lane] = ref.index;
        block.part[lane]  = ref.part;
        ++block.used;
        if (kind == PrimitiveKind::Triangle) PackTriangle(object.parts[ref.part], ref.index, lane, block);
        if (kind == PrimitiveKind::Tetragon) PackTetragon(object.parts[ref.part], ref.index, lane, block);
        if (kind == PrimitiveKind::Cylinder) PackCylinder(object.parts[ref.part], ref.index, lane, block);
    }
}

/// Marks the leaves of a node whose references all lie in blocks of cylinders. Returns whether there are any.
bool MarkCurveLeaves(const Object& object, WideNode& node)
{
    bool any = false;
    for (int k = 0; k < 8; ++k) {
        if (node.count[k] == 0) continue;
        bool all = true;
        ForCurveLeaves(object.leafBlocks.data(), node, 1u << k, [&all](const LeafBlock& block, unsigned lanes) {
            const bool is_curves = block.kind == static_cast<std::uint8_t>(PrimitiveKind::Cylinder);
            all                  = all && is_curves && lanes >> block.used == 0;
        });
        if (all) node.blockLanes[k] = kCurveLeaf;
        any |= all;
    }
    return any;
}

/// Marks all leaves of curves and makes the tubes and bundles above them. Objects without any are left as they are.
void MarkCurveLeaves(Object& object)
{
    Release(object.wideTubes);
    Release(object.curveBundles);
    const bool has_cylinders =
        std::any_of(object.parts.begin(), object.parts.end(), [](const Part& part) { return !part.cylinders.empty(); });
    if (!has_cylinders || object.leafBlocks.empty()) return;
    const auto count = static_cast<std::int64_t>(object.wideNodes.size());
    bool       any   = false;
#pragma omp parallel for schedule(static) num_threads(TeamSize()) reduction(|| : any) if (count >= 4096)
    for (std::int64_t n = 0; n < count; ++n) {
        const bool marked = MarkCurveLeaves(object, object.wideNodes[static_cast<std::size_t>(n)]);
        any               = any || marked;
    }
    object.wideNodes[0].reserved = any ? 1 : 0;
    if (any) MakeTubes(object);
}

}  // namespace

void PackLeaves(Object& object)
{
    const auto count = static_cast<std::int64_t>(object.wideRefs.size() / kBlockLength);
    if (object.leafBlocks.size() != static_cast<std::size_t>(count))
        RenewLarge(object.leafBlocks, static_cast<std::size_t>(count));
#pragma omp parallel for schedule(static) num_threads(TeamSize()) if (count >= 4096)
    for (std::int64_t b = 0; b < count; ++b) {
        const auto block = static_cast<std::size_t>(b);
        PackBlock(object, &object.wideRefs[block * kBlockLength], object.leafBlocks[block]);
    }
    MarkCurveLeaves(object);
}

}  // namespace hv
