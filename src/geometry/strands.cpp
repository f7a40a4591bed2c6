#include "geometry/assembly.h"
#include "shading/shading.h"

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

/// The nearest face found so far and the texture coordinates at the point's foot on it.
struct NearestFace {
    float   distance = kFarAway;
    Vector2 uv;
};

template <std::size_t N>
Vector2 MixUVs(const Part& part, const std::uint32_t (&vertices)[N], const float (&weights)[N])
{
    Vector2     mix;
    const auto& uvs = part.uvs[0].values;
    for (std::size_t corner = 0; corner < N; ++corner) {
        if (vertices[corner] >= uvs.size()) return {};
        mix.u += weights[corner] * uvs[vertices[corner]].u;
        mix.v += weights[corner] * uvs[vertices[corner]].v;
    }
    return mix;
}

bool SameSign(std::initializer_list<float> values)
{
    bool all_positive = true, all_negative = true;
    for (const float value : values) {
        all_positive = all_positive && value >= 0.0f;
        all_negative = all_negative && value <= 0.0f;
    }
    return all_positive || all_negative;
}

void TryTriangle(const Part& part, const Triangle& face, Vector point, NearestFace& nearest)
{
    const Vector p0 = part.positions[face.i0], p1 = part.positions[face.i1], p2 = part.positions[face.i2];
    const Vector n        = Cross(p1 - p0, p2 - p0);
    const Vector unit     = Normalized(n);
    const float  height   = Dot(point - p0, unit);
    const float  distance = std::fabs(height);
    if (!(distance < nearest.distance)) return;
    const Vector foot = point - unit * height;
    const float  w0 = Dot(Cross(p1 - foot, p2 - foot), n), w1 = Dot(Cross(p2 - foot, p0 - foot), n);
    const float  w2  = Dot(Cross(p0 - foot, p1 - foot), n);
    const float  sum = w0 + w1 + w2;
    if (!SameSign({w0, w1, w2}) || sum == 0.0f) return;
    nearest = {distance, MixUVs(part, {face.i0, face.i1, face.i2}, {w0 / sum, w1 / sum, w2 / sum})};
}

void TryTetragon(const Part& part, const Tetragon& face, Vector point, NearestFace& nearest)
{
    const std::uint32_t indices[4] = {face.i0, face.i1, face.i2, face.i3};
    Vector              p[4];
    for (int corner = 0; corner < 4; ++corner) p[corner] = part.positions[indices[corner]];
    const Vector n        = Normalized(Cross(p[2] - p[0], p[3] - p[1]));
    const float  distance = std::fabs(Dot(point - p[0], n));
    if (!(distance < nearest.distance)) return;
    float e[4];
    for (int corner = 0; corner < 4; ++corner)
        e[corner] = Dot(n, Cross(p[corner] - point, p[(corner + 1) % 4] - point));
    if (!SameSign({e[0], e[1], e[2], e[3]}) || e[0] + e[2] == 0.0f || e[1] + e[3] == 0.0f) return;
    const float u = e[0] / (e[0] + e[2]), v = e[3] / (e[1] + e[3]);
    nearest = {distance, MixUVs(part, indices, {(1 - u) * (1 - v), (1 - u) * v, u * v, u * (1 - v)})};
}

void TryReference(const Object& object, const PrimitiveRef& ref, Vector point, NearestFace& nearest)
{
    const Part& part = object.parts[ref.part];
    if (ref.kind == static_cast<int>(PrimitiveKind::Triangle)) {
        TryTriangle(part, part.triangles[ref.index], point, nearest);
    } else if (ref.kind == static_cast<int>(PrimitiveKind::Tetragon)) {
        TryTetragon(part, part.tetragons[ref.index], point, nearest);
    }
}

bool LaneContains(const WideNode& node, int lane, Vector p)
{
    return p.x >= node.minX[lane] && p.x <= node.maxX[lane] && p.y >= node.minY[lane] && p.y <= node.maxY[lane] &&
           p.z >= node.minZ[lane] && p.z <= node.maxZ[lane];
}

/// Texture coordinates of the face nearest to a point among those in the nodes around it.
Vector2 SurfaceUV(const Object& object, Vector point)
{
    NearestFace                nearest;
    std::vector<std::uint32_t> stack;
    if (!object.wideNodes.empty()) stack.push_back(0);
    while (!stack.empty()) {
        const WideNode& node = object.wideNodes[stack.back()];
        stack.pop_back();
        for (int lane = 0; lane < 8; ++lane) {
            if (node.first[lane] == kNone) continue;
            if (node.count[lane] == 0) {
                if (LaneContains(node, lane, point)) stack.push_back(node.first[lane]);
                continue;
            }
            std::uint32_t left = node.count[lane];  // slots of kind None fill up blocks and do not count
            for (std::size_t slot = node.first[lane]; left > 0 && slot < object.wideRefs.size(); ++slot) {
                if (object.wideRefs[slot].kind == 0) continue;
                TryReference(object, object.wideRefs[slot], point, nearest);
                --left;
            }
        }
    }
    return nearest.uv;
}

}  // namespace

void PrepareStrands(Part& part)
{
    if (part.shaderID < Shaders.size()) Shaders[part.shaderID].is_hair = true;
    part.scalars.push_back({"parameter", StrandParameters(part)});
    part.tangents = StrandTangents(part);
}

void AssignStrandUVs(Object& object)
{
    for (Part& part : object.parts) {
        std::size_t cylinder = 0;
        auto&       uvs      = part.uvs[0].values;
        for (const std::uint32_t size : part.strandSizes) {
            if (cylinder + size > part.cylinders.size()) break;
            if (size > 0 && part.cylinders[cylinder] < part.positions.size()) {
                const Vector2 uv = SurfaceUV(object, part.positions[part.cylinders[cylinder]]);
                for (std::size_t i = cylinder; i < cylinder + size; ++i)
                    for (const std::size_t vertex :
                         {std::size_t{part.cylinders[i]}, std::size_t{part.cylinders[i]} + 1})
                        if (vertex < uvs.size()) uvs[vertex] = uv;
            }
            cylinder += size;
        }
    }
}

}  // namespace hv
