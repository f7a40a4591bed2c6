#include "base/float8.h"
#include "base/per_thread.h"
#include "geometry/assembly.h"
#include "geometry/corners.h"
#include "shading/shading.h"

#include <algorithm>
#include <bit>
#include <numeric>

namespace hv {

namespace {

/// First vertex of each strand, and at the end the number of vertices.
std::vector<std::uint32_t> StrandStarts(const Part& part)
{
    std::vector<std::uint32_t> starts;
    for (std::size_t i = 0; i < part.cylinders.size(); ++i)
        if (i == 0 || part.cylinders[i] != part.cylinders[i - 1] + 1) starts.push_back(part.cylinders[i]);
    starts.push_back(static_cast<std::uint32_t>(part.positions.size()));
    return starts;
}

/// Fills (v - s) / (e - s) for each pair of neighbouring starts s, e. Later strands overwrite earlier ones where
/// cylinders come out of order, so strands are taken from last to first and each vertex is written once.
std::vector<float> StrandParameters(const Part& part)
{
    const std::size_t                vertex_count = part.positions.size();
    const std::vector<std::uint32_t> starts       = StrandStarts(part);
    std::vector<float>               parameters(vertex_count, 0.0f);
    std::vector<std::uint32_t>       next_open(vertex_count + 1);  // of each vertex the next that is not written yet
    std::iota(next_open.begin(), next_open.end(), 0u);
    const auto find_open = [&next_open](std::uint32_t vertex) {
        while (next_open[vertex] != vertex) vertex = next_open[vertex] = next_open[next_open[vertex]];
        return vertex;
    };
    for (std::size_t strand = starts.size() - 1; strand-- > 0;) {
        const std::uint32_t begin = starts[strand];
        const std::uint32_t end   = starts[strand + 1];
        if (begin >= vertex_count || end > vertex_count) continue;
        for (std::uint32_t v = find_open(begin); v < end; v = find_open(v)) {
            parameters[v] = static_cast<float>(v - begin) / static_cast<float>(end - begin);
            next_open[v]  = v + 1;
        }
    }
    return parameters;
}

/// Sums of the segments that meet at each vertex. Only as many vertices as there are cylinders get a tangent: of
/// several strands the last vertices of the array stay without one. Meant so.
std::vector<PackedDirection> StrandTangents(const Part& part)
{
    std::vector<Vector> sums(part.positions.size());
    for (const std::uint32_t vertex : part.cylinders) {
        if (vertex >= part.positions.size() || vertex + 1 >= part.positions.size()) continue;
        const Vector segment = part.positions[vertex + 1] - part.positions[vertex];
        sums[vertex] += segment;
        sums[vertex + 1] += segment;
    }
    std::vector<PackedDirection> tangents(part.positions.size());
    const std::size_t            count = std::min(part.cylinders.size(), tangents.size());
    for (std::size_t v = 0; v < count; ++v) tangents[v] = PackDirection(Normalized(Normalized(sums[v])));
    return tangents;
}

/// How far outside a face, in its weights, a point may fall: a root on an edge must not slip between two faces.
constexpr float kEdgeSlack = 1e-5f;

/// The face nearest to a point so far, and the point's foot on it as the parameters of a hit.
struct NearestFace {
    float         square = kFarAway;  ///< of the distance to its plane
    PrimitiveKind kind   = PrimitiveKind::None;
    std::uint16_t part   = 0;
    std::uint32_t index  = 0;
    Vector        hit;
};

Vector8 LoadVectors(const LeafBlock& block, int n)
{
    const float* const values = block.values + 24 * n;
    return {Load8(values), Load8(values + 8), Load8(values + 16)};
}

/// Eight triangles at once. The weights of a point and of its foot are the same: they are taken at right angles to the
/// normal. Unused lanes and triangles without an area divide by zero and fail.
void TryTriangles(const LeafBlock& block, Vector point, NearestFace& nearest)
{
    const Vector8 away   = Vector8{Splat8(point.x), Splat8(point.y), Splat8(point.z)} - LoadVectors(block, 0);
    const Float8  square = Load8(block.square), outside = Splat8(-kEdgeSlack);
    const Float8  height = Dot(away, LoadVectors(block, 1)), distance = height * height / square;
    const Float8  v = Dot(away, LoadVectors(block, 2)) / square, w = Dot(away, LoadVectors(block, 3)) / square;
    const Float8  u      = Splat8(1.0f) - v - w;
    const Float8  inside = LessEqual(outside, u) & LessEqual(outside, v) & LessEqual(outside, w);
    unsigned      closer = Bits(inside & Less(distance, Splat8(nearest.square)));
    if (closer == 0) return;
    alignas(32) float distances[8], weights[3][8];
    Store8(distances, distance);
    Store8(weights[0], u);
    Store8(weights[1], v);
    Store8(weights[2], w);
    for (; closer != 0; closer &= closer - 1) {
        const int lane = std::countr_zero(closer);
        if (!(distances[lane] < nearest.square)) continue;
        nearest = {distances[lane],
                   PrimitiveKind::Triangle,
                   block.part[lane],
                   block.index[lane],
                   {weights[0][lane], weights[1][lane], weights[2][lane]}};
    }
}

/// The weights of the four corners are of one sign where the point is above the face or below it.
void TryTetragon(const LeafBlock& block, int lane, Vector point, NearestFace& nearest)
{
    Vector p[4];
    for (int corner = 0; corner < 4; ++corner)
        for (int axis = 0; axis < 3; ++axis)
            p[corner][axis] = block.values[24 * corner + 8 * axis + lane] - point[axis];
    const Vector n      = Cross(p[2] - p[0], p[3] - p[1]);
    const float  height = Dot(p[0], n), distance = height * height / Dot(n, n);
    if (!(distance < nearest.square)) return;
    float e[4], low = 0.0f, high = 0.0f;
    for (int corner = 0; corner < 4; ++corner) {
        e[corner] = Dot(n, Cross(p[corner], p[(corner + 1) % 4]));
        low       = std::min(low, e[corner]);
        high      = std::max(high, e[corner]);
    }
    if (std::min(high, -low) > kEdgeSlack * std::max(high, -low) || e[0] + e[2] == 0.0f || e[1] + e[3] == 0.0f) return;
    nearest = {distance,
               PrimitiveKind::Tetragon,
               block.part[lane],
               block.index[lane],
               {e[0] / (e[0] + e[2]), e[3] / (e[1] + e[3]), 0.0f}};
}

/// The search for the faces that strands grow on. Hair fills most of its hierarchy, so subtrees without a face are
/// marked first.
class FaceSearch {
public:
    explicit FaceSearch(const Object& object) : object_(object), has_face_(object.wideNodes.size())
    {
        for (std::size_t n = has_face_.size(); n-- > 0;)  // children come behind their parents
            for (int lane = 0; lane < 8; ++lane) has_face_[n] |= HasFace(object.wideNodes[n], lane);
    }

    /// Texture coordinates of the face nearest to a point among those in the nodes around it, or (0, 0).
    Vector2 SurfaceUV(Vector point) const
    {
        NearestFace nearest;
        if (!has_face_.empty() && has_face_[0] != 0) SearchNode(0, point, nearest);
        if (nearest.kind == PrimitiveKind::None) return {};
        const Part& part = object_.parts[nearest.part];
        float       uv[2];
        MixUv(part, CornersOf(part, nearest.kind, nearest.index, nearest.hit), uv);
        return {uv[0], uv[1]};
    }

private:
    /// Calls `visit` with the blocks that hold a leaf, until it returns true.
    template <class Visit>
    bool AnyBlock(const WideNode& node, int lane, const Visit& visit) const
    {
        std::uint32_t place = node.first[lane] % kBlockLength, left = node.count[lane];
        for (std::size_t b = node.first[lane] / kBlockLength; left > 0 && b < object_.leafBlocks.size(); ++b) {
            const LeafBlock& block = object_.leafBlocks[b];
            if (visit(block)) return true;
            left -= std::min<std::uint32_t>(left, block.used - place);
            place = 0;
        }
        return false;
    }

    bool HasFace(const WideNode& node, int lane) const
    {
        if (node.first[lane] == kNone) return false;
        if (node.count[lane] == 0) return has_face_[node.first[lane]] != 0;
        return AnyBlock(node, lane, [](const LeafBlock& block) {
            return block.kind >= static_cast<std::uint8_t>(PrimitiveKind::Triangle);
        });
    }

    void SearchLeaf(const WideNode& node, int lane, Vector point, NearestFace& nearest) const
    {
        AnyBlock(node, lane, [&](const LeafBlock& block) {
            // All of a block is tried: what is not of this leaf is of another one of the same node.
            if (block.kind == static_cast<std::uint8_t>(PrimitiveKind::Triangle)) TryTriangles(block, point, nearest);
            if (block.kind == static_cast<std::uint8_t>(PrimitiveKind::Tetragon))
                for (int slot = 0; slot < block.used; ++slot) TryTetragon(block, slot, point, nearest);
            return false;
        });
    }

    void SearchNode(std::uint32_t index, Vector point, NearestFace& nearest) const
    {
        const WideNode& node = object_.wideNodes[index];
        const Float8    x = Splat8(point.x), y = Splat8(point.y), z = Splat8(point.z);
        const unsigned  around =
            Bits(LessEqual(Load8(node.minX), x) & LessEqual(x, Load8(node.maxX)) & LessEqual(Load8(node.minY), y) &
                 LessEqual(y, Load8(node.maxY)) & LessEqual(Load8(node.minZ), z) & LessEqual(z, Load8(node.maxZ)));
        for (int lane = 0; lane < 8; ++lane) {
            if (node.first[lane] == kNone) continue;
            // Meant: leaves are searched wherever they are, only inner lanes must contain the point.
            if (node.count[lane] > 0)
                SearchLeaf(node, lane, point, nearest);
            else if ((around >> lane & 1u) != 0 && has_face_[node.first[lane]] != 0)
                SearchNode(node.first[lane], point, nearest);
        }
    }

    const Object&             object_;
    std::vector<std::uint8_t> has_face_;  ///< of each wide node: 1 when there is a face below it
};

/// First cylinder of each strand, and at the end that behind the last one. Strands beyond the cylinders are left out.
std::vector<std::size_t> FirstCylinders(const Part& part)
{
    std::vector<std::size_t> firsts{0};
    for (const std::uint32_t size : part.strandSizes) {
        if (firsts.back() + size > part.cylinders.size()) break;
        firsts.push_back(firsts.back() + size);
    }
    return firsts;
}

}  // namespace

void PrepareStrands(Part& part)
{
    part.scalars.push_back({"parameter", StrandParameters(part)});
    part.tangents = StrandTangents(part);
}

void AssignStrandUVs(Object& object)
{
    const auto grows = [](const Part& part) { return !part.strandSizes.empty(); };
    if (std::none_of(object.parts.begin(), object.parts.end(), grows)) return;
    const FaceSearch search(object);
    for (Part& part : object.parts) {
        const std::vector<std::size_t> firsts = FirstCylinders(part);
        std::vector<Vector2>&          uvs    = part.uvs[0].values;
        const auto                     count  = static_cast<std::int64_t>(firsts.size()) - 1;
#pragma omp parallel for schedule(dynamic, 64) num_threads(TeamSize()) if (count >= 256)
        for (std::int64_t strand = 0; strand < count; ++strand) {
            const std::size_t begin = firsts[static_cast<std::size_t>(strand)];
            const std::size_t end   = firsts[static_cast<std::size_t>(strand) + 1];
            if (begin == end || part.cylinders[begin] >= part.positions.size()) continue;
            const Vector2 uv = search.SurfaceUV(part.positions[part.cylinders[begin]]);
            for (std::size_t i = begin; i < end; ++i)
                for (const std::size_t vertex : {std::size_t{part.cylinders[i]}, std::size_t{part.cylinders[i]} + 1})
                    if (vertex < uvs.size()) uvs[vertex] = uv;
        }
    }
}

}  // namespace hv
