#include "geometry/geometry.h"
#include "geometry/weld.h"
#include "session/console.h"

#include <algorithm>
#include <bit>

namespace hv {

namespace {

constexpr std::size_t kFewestBuckets = 256, kMostBuckets = std::size_t{1} << 28;

/// All that a vertex is welded by.
struct Vertex {
    Vector          position;
    PackedDirection normal, tangent;
    Vector2         uv;
};

// Positions weld by their bits, so that -0 and 0 never meet; the rest by value.
bool HaveEqualBits(Vector a, Vector b)
{
    using Bits = std::array<std::uint32_t, 3>;
    return std::bit_cast<Bits>(a) == std::bit_cast<Bits>(b);
}

// Over everything that must match: positions on a grid share all their low bits, and the seams of a fan one position.
// Which vertices weld does not depend on the hash. Adding 0 makes one of both zeros.
std::uint64_t HashVertex(const Vertex& vertex)
{
    std::uint64_t hash = MixHash(0, HashPair(vertex.position.x, vertex.position.y));
    hash               = MixHash(hash, HashPair(vertex.position.z, std::bit_cast<float>(HashWord(vertex.normal))));
    hash               = MixHash(hash, HashPair(vertex.uv.u + 0.0f, vertex.uv.v + 0.0f));
    return EndHash(MixHash(hash, HashWord(vertex.tangent)));
}

/// Appends staged faces to a part, vertex by vertex.
class Welder {
public:
    Welder(const StagedMesh& staged, Part& part);

    /// Reads, checks and appends one face of 3 or 4 corners; returns false when it is left out. `vertices` receives the
    /// vertex numbers.
    template <std::size_t count>
    bool AddFace(const StagedCorner (&corners)[count], std::uint32_t (&vertices)[count]);

    bool HasBadIndices() const { return has_bad_indices_; }

private:
    template <std::size_t count>
    bool ReadPositions(const StagedCorner (&corners)[count], Vertex (&vertices)[count]);
    template <std::size_t count>
    void ReadNormals(const StagedCorner (&corners)[count], Vertex (&vertices)[count]) const;
    template <std::size_t count>
    void ReadTangents(const StagedCorner (&corners)[count], Vertex (&vertices)[count]) const;

    void          GrowTable(std::size_t vertex_count);
    bool          Matches(std::uint32_t index, const Vertex& vertex) const;
    std::uint32_t Find(const Vertex& vertex, std::uint32_t bucket) const;
    std::uint32_t Append(const Vertex& vertex, std::uint32_t bucket);
    std::uint32_t Weld(const Vertex& vertex, std::uint32_t position);

    Vertex        VertexAt(std::uint32_t index) const;
    std::uint32_t BucketOf(const Vertex& vertex) const
    {
        return static_cast<std::uint32_t>(HashVertex(vertex) & (table_.head.size() - 1));
    }

    const StagedMesh&          staged_;
    Part&                      part_;
    WeldTable&                 table_;
    std::vector<Vector2>&      uvs_;
    const bool                 has_normals_, has_tangents_;
    std::vector<std::uint32_t> latest_;  ///< of each staged position: the last vertex made or met there
    bool                       has_bad_indices_ = false;
};

WeldTable& TableOf(Part& part)
{
    // Empty at first: a scene may hold thousands of small parts, each with its table until it is prepared.
    if (!part.weldBuckets) part.weldBuckets = std::make_unique<WeldTable>();
    if (part.uvs.empty()) part.uvs.push_back({"uv", {}});
    return *part.weldBuckets;
}

Welder::Welder(const StagedMesh& staged, Part& part)
    : staged_(staged),
      part_(part),
      table_(TableOf(part)),
      uvs_(part.uvs[0].values),
      has_normals_(!staged.normals.empty() || !part.normals.empty()),
      has_tangents_(!staged.tangents.empty() || !part.tangents.empty()),
      latest_(staged.positions.size(), kNone)
{
    // Vertices that came without them get the values that stand for "none", so that numbers agree in all arrays.
    const std::size_t count = part.positions.size();
    uvs_.resize(count);
    if (has_normals_) part.normals.resize(count);
    if (has_tangents_) part.tangents.resize(count);
    table_.next.resize(count, kNone);

    const std::size_t expected = count + std::max({staged.positions.size(), staged.uvs.size(), staged.normals.size()});
    part.positions.reserve(expected);
    uvs_.reserve(expected);
    if (has_normals_) part.normals.reserve(expected);
    if (has_tangents_) part.tangents.reserve(expected);
    table_.next.reserve(expected);
    GrowTable(expected);
}

// As many buckets as vertices, so that chains stay short; the vertices welded before move to the new ones.
void Welder::GrowTable(std::size_t vertex_count)
{
    const std::size_t size = std::bit_ceil(std::clamp<std::size_t>(vertex_count, kFewestBuckets, kMostBuckets));
    if (table_.head.size() >= size) return;
    std::vector<std::uint32_t> old(size, kNone);
    old.swap(table_.head);
    for (const std::uint32_t first : old) {
        for (std::uint32_t index = first; index != kNone;) {
            const std::uint32_t following = table_.next[index];
            std::uint32_t&      head      = table_.head[BucketOf(VertexAt(index))];
            table_.next[index]            = head;
            head                          = index;
            index                         = following;
        }
    }
}

Vertex Welder::VertexAt(std::uint32_t index) const
{
    return {part_.positions[index], has_normals_ ? part_.normals[index] : PackedDirection{},
            has_tangents_ ? part_.tangents[index] : PackedDirection{}, uvs_[index]};
}

bool Welder::Matches(std::uint32_t index, const Vertex& vertex) const
{
    return HaveEqualBits(part_.positions[index], vertex.position) && uvs_[index] == vertex.uv &&
           (!has_normals_ || part_.normals[index] == vertex.normal) &&
           (!has_tangents_ || part_.tangents[index] == vertex.tangent);
}

std::uint32_t Welder::Find(const Vertex& vertex, std::uint32_t bucket) const
{
    std::uint32_t index = table_.head[bucket];
    while (index != kNone && !Matches(index, vertex)) index = table_.next[index];
    return index;
}

std::uint32_t Welder::Append(const Vertex& vertex, std::uint32_t bucket)
{
    const auto index = static_cast<std::uint32_t>(part_.positions.size());
    part_.positions.push_back(vertex.position);
    uvs_.push_back(vertex.uv);
    if (has_normals_) part_.normals.push_back(vertex.normal);
    if (has_tangents_) part_.tangents.push_back(vertex.tangent);
    table_.next.push_back(table_.head[bucket]);
    table_.head[bucket] = index;
    return index;
}

// Most corners meet the vertex that the last face at their staged position made: asking that first spares the hash.
std::uint32_t Welder::Weld(const Vertex& vertex, std::uint32_t position)
{
    std::uint32_t& latest = latest_[position];
    if (latest != kNone && Matches(latest, vertex)) return latest;
    const std::uint32_t bucket = BucketOf(vertex);
    const std::uint32_t found  = Find(vertex, bucket);
    latest                     = found != kNone ? found : Append(vertex, bucket);
    return latest;
}

// False when a position does not exist or two are the same.
template <std::size_t count>
bool Welder::ReadPositions(const StagedCorner (&corners)[count], Vertex (&vertices)[count])
{
    for (std::size_t i = 0; i < count; ++i) {
        if (corners[i].position >= staged_.positions.size()) {
            has_bad_indices_ = true;
            return false;
        }
        vertices[i].position = staged_.positions[corners[i].position];
    }
    for (std::size_t i = 0; i < count; ++i)
        for (std::size_t k = i + 1; k < count; ++k)
            if (vertices[i].position == vertices[k].position) return false;
    return true;
}

template <std::size_t count>
Vector FaceDirection(const Vertex (&vertices)[count])
{
    if constexpr (count == 3) {
        const Vector origin = vertices[0].position;
        return Normalized(Cross(vertices[1].position - origin, vertices[2].position - origin));
    } else {
        return Normalized(
            Cross(vertices[2].position - vertices[0].position, vertices[3].position - vertices[1].position));
    }
}

// The face's own direction stands in where a corner has no normal. Normals that all lean over the back are taken as
// turned round.
template <std::size_t count>
void Welder::ReadNormals(const StagedCorner (&corners)[count], Vertex (&vertices)[count]) const
{
    if (staged_.normals.empty()) return;
    const Vector face = FaceDirection(vertices);
    Vector       normals[count];
    bool         all_lean_back = true;
    for (std::size_t i = 0; i < count; ++i) {
        normals[i]    = corners[i].normal < staged_.normals.size() ? staged_.normals[corners[i].normal] : face;
        all_lean_back = all_lean_back && Dot(normals[i], face) < 0.0f;
    }
    for (std::size_t i = 0; i < count; ++i)
        vertices[i].normal = PackDirection(all_lean_back ? -normals[i] : normals[i]);
}

template <std::size_t count>
void Welder::ReadTangents(const StagedCorner (&corners)[count], Vertex (&vertices)[count]) const
{
    if (staged_.tangents.empty()) return;
    const Vector face = FaceDirection(vertices);
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t tangent = corners[i].tangent;
        vertices[i].tangent = PackDirection(tangent < staged_.tangents.size() ? staged_.tangents[tangent] : face);
    }
}

template <std::size_t count>
bool Welder::AddFace(const StagedCorner (&corners)[count], std::uint32_t (&vertices)[count])
{
    Vertex values[count];
    if (!ReadPositions(corners, values)) return false;
    for (std::size_t i = 0; i < count; ++i)
        if (corners[i].uv < staged_.uvs.size()) values[i].uv = staged_.uvs[corners[i].uv];
    ReadNormals(corners, values);
    ReadTangents(corners, values);
    for (std::size_t i = 0; i < count; ++i) vertices[i] = Weld(values[i], corners[i].position);
    return true;
}

}  // namespace

void FlattenStagedMesh(StagedMesh& staged, Part& part)
{
    if (!staged.triangles.empty() || !staged.tetragons.empty()) {
        Welder welder(staged, part);
        part.triangles.reserve(part.triangles.size() + staged.triangles.size());
        part.tetragons.reserve(part.tetragons.size() + staged.tetragons.size());
        for (const StagedTriangle& face : staged.triangles) {
            std::uint32_t v[3];
            if (welder.AddFace(face.corners, v)) part.triangles.push_back({v[0], v[1], v[2], face.shader});
        }
        for (const StagedTetragon& face : staged.tetragons) {
            std::uint32_t v[4];
            if (welder.AddFace(face.corners, v)) part.tetragons.push_back({v[0], v[1], v[2], v[3], face.shader});
        }
        if (welder.HasBadIndices()) PrintError("object - faces with vertices that do not exist are left out");
    }
    staged = {};
}

}  // namespace hv
