#include "accel/accel.h"
#include "accel/large_array.h"
#include "accel/leaf_tests.h"
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

/// What a block can be packed as; None: its references are read one by one. All are of one kind class, so the first
/// tells it.
PrimitiveKind PackedKind(const PrimitiveRef* refs)
{
    const auto kind = static_cast<PrimitiveKind>(refs[0].kind);
    return kind == PrimitiveKind::Triangle || kind == PrimitiveKind::Tetragon ? kind : PrimitiveKind::None;
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
    }
}

/// Whether there are curves below a lane and nothing else; `is_curves` tells it of the nodes below.
bool IsCurveLane(const Object& object, const WideNode& node, int k, const std::vector<bool>& is_curves)
{
    if (node.first[k] == kNone) return false;
    if (node.count[k] == 0) return is_curves[node.first[k]];
    const PrimitiveRef* const first = &object.wideRefs[node.first[k]];
    return std::all_of(first, first + node.count[k], [](const PrimitiveRef& ref) {
        return ref.kind == static_cast<std::uint16_t>(PrimitiveKind::Cylinder);
    });
}

/// Marks what walks leave to the curve tree. Nodes come before their children.
void MarkCurveLanes(Object& object)
{
    if (object.curveNodes.empty()) return;
    std::vector<bool> is_curves(object.wideNodes.size());
    for (std::size_t n = is_curves.size(); n-- > 0;) {
        WideNode& node = object.wideNodes[n];
        bool      all  = true;
        for (int k = 0; k < 8; ++k) {
            const bool marked = IsCurveLane(object, node, k, is_curves);
            all               = all && (marked || node.first[k] == kNone);
            if (marked) node.blockLanes[k] = kCurveLane;
        }
        is_curves[n] = all;
    }
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
    MarkCurveLanes(object);
}

}  // namespace hv
