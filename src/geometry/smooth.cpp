#include "accel/accel.h"
#include "base/per_thread.h"
#include "base/release.h"
#include "geometry/assembly.h"
#include "geometry/corners.h"
#include "geometry/near_sums.h"
#include "geometry/vertex_values.h"
#include "geometry/weld.h"
#include "session/console.h"
#include "shading/shading.h"

#include <algorithm>
#include <atomic>
#include <cmath>

namespace hv {

namespace {

// ---- What a shader asks for ----

/// The regime of a shader's smooth_angle.
struct AngleRule {
    bool  is_known    = false;
    bool  is_faceted  = false;  ///< 0: corners get the triple that stands for no direction
    bool  keeps_given = false;  ///< below 0: directions that vertices came with stay
    float limit       = 0.0f;   ///< faces are near whose directions have at least this cosine
};

bool IsFaceted(float degrees) { return std::fabs(degrees) < 1e-8f; }

template <class Face>
bool AllFaceted(const std::vector<Face>& faces)
{
    return std::all_of(faces.begin(), faces.end(),
                       [](const Face& face) { return IsFaceted(ShaderAt(face.shader).geometry_shader.smooth_angle); });
}

AngleRule RuleOf(float degrees)
{
    const float angle = degrees * kRadians;
    return {true, std::fabs(angle) < 1e-8f, angle < 0.0f, CosineLimit(angle)};
}

/// Rules by shader number, filled in for the shaders that the faces of a part have.
class AngleRules {
public:
    explicit AngleRules(const Part& part) : rules_(std::max<std::size_t>(Shaders.size(), 1))
    {
        for (const Triangle& face : part.triangles) Learn(face.shader);
        for (const Tetragon& face : part.tetragons) Learn(face.shader);
    }
    const AngleRule& Of(std::uint32_t shader) const { return rules_[shader < rules_.size() ? shader : 0]; }

private:
    void Learn(std::uint32_t shader)
    {
        AngleRule& rule = rules_[shader < rules_.size() ? shader : 0];
        if (!rule.is_known) rule = RuleOf(ShaderAt(shader).geometry_shader.smooth_angle);
    }
    std::vector<AngleRule> rules_;
};

// ---- Which vertices are one ----

std::uint64_t Hashed(std::uint64_t hash, float x) { return MixHash(hash, HashPair(Unsigned(x), 0.0f)); }
std::uint64_t Hashed(std::uint64_t hash, Vector2 a) { return MixHash(hash, HashPair(Unsigned(a.u), Unsigned(a.v))); }
std::uint64_t Hashed(std::uint64_t hash, Vector a)
{
    return MixHash(MixHash(hash, HashPair(Unsigned(a.x), Unsigned(a.y))), HashPair(Unsigned(a.z), 0.0f));
}

/// For each vertex the first one at its place.
std::vector<std::uint32_t> WeldPositions(const Part& part)
{
    const std::vector<Vector>& p = part.positions;
    return FirstEqual(
        p.size(), [&p](std::uint32_t i) { return EndHash(Hashed(0, p[i])); },
        [&p](std::uint32_t i, std::uint32_t k) { return IsSame(p[i], p[k]); });
}

std::uint64_t HashValues(const Part& part, std::uint32_t vertex, std::uint64_t hash)
{
    ForEachValues(part, [&](const auto& values) { hash = Hashed(hash, ValueAt(values, vertex)); });
    return EndHash(hash);
}

bool HaveSameValues(const Part& part, std::uint32_t a, std::uint32_t b)
{
    bool same = true;
    ForEachValues(part, [&](const auto& values) { same = same && IsSame(ValueAt(values, a), ValueAt(values, b)); });
    return same;
}

/// For each vertex the first one at its place that carries the same values in all arrays. Empty where there are none.
std::vector<std::uint32_t> WeldValues(const Part& part, const std::vector<std::uint32_t>& places)
{
    bool has_values = false;
    ForEachValues(part, [&](const auto&) { has_values = true; });
    if (!has_values) return {};
    return FirstEqual(
        places.size(), [&](std::uint32_t i) { return HashValues(part, i, MixHash(0, places[i])); },
        [&](std::uint32_t i, std::uint32_t k) { return places[i] == places[k] && HaveSameValues(part, i, k); });
}

// ---- Corners: number 3 f + c is corner c of triangle f; after all of them 4 f + c is that of tetragon f ----

struct CornerFace {
    Corners       vertices;
    std::uint32_t corner;
    std::uint32_t shader;
};

CornerFace FaceAt(const Part& part, std::uint32_t number)
{
    const std::size_t in_triangles = 3 * part.triangles.size();
    if (number < in_triangles) {
        const Triangle& face = part.triangles[number / 3];
        return {{3, {face.i0, face.i1, face.i2}, {}}, number % 3, face.shader};
    }
    const std::size_t rest = number - in_triangles;
    const Tetragon&   face = part.tetragons[rest / 4];
    return {{4, {face.i0, face.i1, face.i2, face.i3}, {}}, static_cast<std::uint32_t>(rest % 4), face.shader};
}

std::uint32_t& VertexAt(Part& part, std::uint32_t number)
{
    const std::size_t in_triangles = 3 * part.triangles.size();
    if (number < in_triangles) return (&part.triangles[number / 3].i0)[number % 3];
    const std::size_t rest = number - in_triangles;
    return (&part.tetragons[rest / 4].i0)[rest % 4];
}

/// Calls visit(vertex) for every corner, in the order of their numbers.
template <class Visit>
void ForEachCorner(const Part& part, const Visit& visit)
{
    for (const Triangle& face : part.triangles)
        for (const std::uint32_t vertex : {face.i0, face.i1, face.i2}) visit(vertex);
    for (const Tetragon& face : part.tetragons)
        for (const std::uint32_t vertex : {face.i0, face.i1, face.i2, face.i3}) visit(vertex);
}

/// The corners that meet at each place, a run for each vertex that stands for one.
struct CornerRuns {
    std::vector<std::uint32_t> ends;     ///< of the run of each vertex; it begins where the one before ends
    std::vector<std::uint32_t> corners;  ///< numbers, ascending in each run

    std::uint32_t Begin(std::size_t place) const { return place > 0 ? ends[place - 1] : 0; }
};

CornerRuns ListRuns(const Part& part, const std::vector<std::uint32_t>& places)
{
    CornerRuns runs;
    runs.ends.assign(places.size() + 1, 0);
    runs.corners.resize(CornerCount(part));
    ForEachCorner(part, [&](std::uint32_t vertex) { ++runs.ends[places[vertex] + 1]; });
    for (std::size_t i = 1; i < runs.ends.size(); ++i) runs.ends[i] += runs.ends[i - 1];
    std::uint32_t number = 0;  // while filling, `ends` moves from the beginning of each run to its end
    ForEachCorner(part, [&](std::uint32_t vertex) { runs.corners[runs.ends[places[vertex]]++] = number++; });
    runs.ends.pop_back();
    return runs;
}

// ---- The vertices of one place ----

/// A vertex of the result: what it copies, and its new directions.
struct NewVertex {
    std::uint32_t   source;
    PackedDirection normal, tangent;
};

/// Everything the corners of a part are smoothed by. Constant while threads work.
struct SmoothInput {
    const Part&                       part;
    const AngleRules&                 rules;
    const CornerRuns&                 runs;
    const std::vector<std::uint32_t>& twins;  ///< of each vertex the first with its place and values; empty: all agree

    std::uint32_t TwinOf(std::uint32_t vertex) const { return twins.empty() ? 0 : twins[vertex]; }
};

/// Makes the vertices of one place after the other. Each thread has its own.
class PlaceSmoother {
public:
    explicit PlaceSmoother(const SmoothInput& input) : input_(input) {}

    /// Appends the vertices that the corners of a run share, and writes the number of each corner's vertex.
    void Smooth(std::uint32_t begin, std::uint32_t end, std::uint32_t* numbers);

    std::vector<NewVertex> vertices;

private:
    struct CornerInfo {
        std::uint32_t    vertex;
        const AngleRule* rule;
    };

    void            AddCorner(std::uint32_t number);
    NewVertex       MakeVertex(std::size_t corner) const;
    std::uint32_t   FindOrAppend(const NewVertex& vertex, std::size_t first);
    void            ShareVertices(std::uint32_t* numbers);
    bool            Matches(const NewVertex& a, const NewVertex& b) const;
    PackedDirection Choose(const CornerInfo& corner, const std::vector<PackedDirection>& given, Vector sum) const;

    const SmoothInput&      input_;
    std::vector<CornerInfo> corners_;
    NearSums                normals_, tangents_;
};

// The tangent of a face is the direction in which u grows on it, where it has one.
void PlaceSmoother::AddCorner(std::uint32_t number)
{
    const Part&      part = input_.part;
    const CornerFace face = FaceAt(part, number);
    const AngleRule& rule = input_.rules.Of(face.shader);
    const Vector     normal =
        FaceNormalOf(face.vertices.count, [&](int n) { return part.positions[face.vertices.vertex[n]]; });
    Vector tangent;
    if (!UvGradient(part, face.vertices, tangent)) tangent = FallbackTangent(normal);
    corners_.push_back({face.vertices.vertex[face.corner], &rule});
    normals_.Add(normal, rule.limit);
    tangents_.Add(tangent, rule.limit);
}

PackedDirection PlaceSmoother::Choose(const CornerInfo& corner, const std::vector<PackedDirection>& given,
                                      Vector sum) const
{
    if (corner.rule->is_faceted) return {};
    if (corner.rule->keeps_given && corner.vertex < given.size()) return given[corner.vertex];
    return PackDirection(Normalized(sum));
}

NewVertex PlaceSmoother::MakeVertex(std::size_t corner) const
{
    const CornerInfo& info = corners_[corner];
    return {info.vertex, Choose(info, input_.part.normals, normals_[corner]),
            Choose(info, input_.part.tangents, tangents_[corner])};
}

bool PlaceSmoother::Matches(const NewVertex& a, const NewVertex& b) const
{
    return a.normal == b.normal && a.tangent == b.tangent && input_.TwinOf(a.source) == input_.TwinOf(b.source);
}

std::uint32_t PlaceSmoother::FindOrAppend(const NewVertex& vertex, std::size_t first)
{
    std::size_t found = first;
    while (found < vertices.size() && !Matches(vertices[found], vertex)) ++found;
    if (found == vertices.size()) vertices.push_back(vertex);
    return static_cast<std::uint32_t>(found);
}

// A run may be as long as the part: then a table finds what matches.
void PlaceSmoother::ShareVertices(std::uint32_t* numbers)
{
    std::vector<NewVertex> made(corners_.size());
    for (std::size_t c = 0; c < made.size(); ++c) made[c] = MakeVertex(c);
    const std::vector<std::uint32_t> first = FirstEqual(
        made.size(),
        [&](std::uint32_t c) {
            const std::uint64_t directions = HashWord(made[c].normal) | std::uint64_t{HashWord(made[c].tangent)} << 32;
            return EndHash(MixHash(MixHash(0, directions), input_.TwinOf(made[c].source)));
        },
        [&](std::uint32_t a, std::uint32_t b) { return Matches(made[a], made[b]); });
    for (std::size_t c = 0; c < made.size(); ++c) {
        numbers[c] = first[c] == c ? static_cast<std::uint32_t>(vertices.size()) : numbers[first[c]];
        if (first[c] == c) vertices.push_back(made[c]);
    }
}

void PlaceSmoother::Smooth(std::uint32_t begin, std::uint32_t end, std::uint32_t* numbers)
{
    constexpr std::uint32_t kLongRun = 64;
    corners_.clear();
    normals_.Clear();
    tangents_.Clear();
    for (std::uint32_t k = begin; k < end; ++k) AddCorner(input_.runs.corners[k]);
    normals_.Sum();
    tangents_.Sum();
    if (end - begin >= kLongRun) return ShareVertices(numbers + begin);
    const std::size_t first = vertices.size();
    for (std::uint32_t k = begin; k < end; ++k) numbers[k] = FindOrAppend(MakeVertex(k - begin), first);
}

// ---- The whole part ----

/// The vertices of a range of places, and their first number in the result. Blocks are cut and joined in the order of
/// places, so that no number depends on the threads.
struct Block {
    std::size_t            first_place = 0, last_place = 0;
    std::vector<NewVertex> vertices;
    std::size_t            base = 0;
};

std::vector<Block> CutBlocks(std::size_t place_count)
{
    constexpr std::size_t kPlaces = 1024;
    std::vector<Block>    blocks((place_count + kPlaces - 1) / kPlaces);
    for (std::size_t b = 0; b < blocks.size(); ++b) {
        blocks[b].first_place = b * kPlaces;
        blocks[b].last_place  = std::min(place_count, (b + 1) * kPlaces);
    }
    return blocks;
}

void SmoothBlock(const SmoothInput& input, PlaceSmoother& smoother, Block& block, std::vector<std::uint32_t>& numbers)
{
    smoother.vertices.clear();
    for (std::size_t place = block.first_place; place < block.last_place; ++place)
        if (input.runs.Begin(place) < input.runs.ends[place])
            smoother.Smooth(input.runs.Begin(place), input.runs.ends[place], numbers.data());
    block.vertices.assign(smoother.vertices.begin(), smoother.vertices.end());
}

/// `numbers`: of each corner of the runs its vertex, counted from the beginning of its block.
void SmoothBlocks(const SmoothInput& input, std::vector<Block>& blocks, std::vector<std::uint32_t>& numbers)
{
    const auto        count      = static_cast<std::int64_t>(blocks.size());
    std::atomic<bool> has_failed = false;  // memory ran out: no exception may leave the region
#pragma omp parallel num_threads(TeamSize()) if (count > 1)
    {
        PlaceSmoother smoother(input);
#pragma omp for schedule(static)
        for (std::int64_t b = 0; b < count; ++b) {
            try {
                SmoothBlock(input, smoother, blocks[static_cast<std::size_t>(b)], numbers);
            } catch (...) {
                has_failed = true;
            }
        }
    }
    if (has_failed) throw std::bad_alloc();
}

/// Returns the number of vertices of all blocks.
std::size_t NumberBlocks(std::vector<Block>& blocks)
{
    std::size_t count = 0;
    for (Block& block : blocks) {
        block.base = count;
        count += block.vertices.size();
    }
    return count;
}

/// Runs work(block) for all blocks in parallel.
template <class Work>
void ForEachBlock(const std::vector<Block>& blocks, const Work& work)
{
    const auto count = static_cast<std::int64_t>(blocks.size());
#pragma omp parallel for schedule(static) num_threads(TeamSize()) if (count > 1)
    for (std::int64_t b = 0; b < count; ++b) work(blocks[static_cast<std::size_t>(b)]);
}

void RenumberFaces(Part& part, const CornerRuns& runs, const std::vector<Block>& blocks,
                   const std::vector<std::uint32_t>& numbers)
{
    ForEachBlock(blocks, [&](const Block& block) {
        const std::uint32_t end = runs.ends[block.last_place - 1];
        for (std::uint32_t k = runs.Begin(block.first_place); k < end; ++k)
            VertexAt(part, runs.corners[k]) = static_cast<std::uint32_t>(block.base + numbers[k]);
    });
}

/// Replaces an array by value(vertex) of all new vertices.
template <class T, class Value>
void Renew(std::vector<T>& values, const std::vector<Block>& blocks, std::size_t count, const Value& value)
{
    std::vector<T> renewed(count);
    ForEachBlock(blocks, [&](const Block& block) {
        for (std::size_t k = 0; k < block.vertices.size(); ++k) renewed[block.base + k] = value(block.vertices[k]);
    });
    values = std::move(renewed);
}

void RenewVertices(Part& part, const std::vector<Block>& blocks, std::size_t count)
{
    ForEachValues(part, [&](auto& values) {
        Renew(values, blocks, count, [&](const NewVertex& vertex) { return ValueAt(values, vertex.source); });
    });
    Renew(part.positions, blocks, count, [&](const NewVertex& vertex) { return part.positions[vertex.source]; });
    Renew(part.normals, blocks, count, [](const NewVertex& vertex) { return vertex.normal; });
    Renew(part.tangents, blocks, count, [](const NewVertex& vertex) { return vertex.tangent; });
}

/// Gives every corner a vertex of its place. Returns the vertices, with the faces renumbered to them.
std::vector<Block> SmoothCorners(Part& part)
{
    const AngleRules                 rules(part);
    std::vector<std::uint32_t>       places = WeldPositions(part);
    const std::vector<std::uint32_t> twins  = WeldValues(part, places);
    const CornerRuns                 runs   = ListRuns(part, places);
    std::vector<Block>               blocks = CutBlocks(places.size());
    Release(places);
    std::vector<std::uint32_t> numbers(runs.corners.size());
    SmoothBlocks({part, rules, runs, twins}, blocks, numbers);
    NumberBlocks(blocks);
    RenumberFaces(part, runs, blocks, numbers);
    return blocks;
}

}  // namespace

// Three regimes of smooth_angle: 0 on every face releases the normals, so that hits use the geometric one; above 0
// corners that meet at a place share the directions of the faces within that angle; below 0 directions that came with a
// vertex stay, and only missing ones are made. Vertices that no face uses vanish.
//
// Vertices at one place are one by value: 0 and -0 meet.
void Smooth(Part& part)
{
    const bool has_faces = !part.triangles.empty() || !part.tetragons.empty();
    if (has_faces && AllFaceted(part.triangles) && AllFaceted(part.tetragons)) return Release(part.normals);
    DropBadFaces(part);
    if (CornerCount(part) > kMostCorners) {
        PrintError("part - more corners than smoothing can count, their normals stay as they are");
        return;
    }
    std::vector<Block> blocks = SmoothCorners(part);
    RenewVertices(part, blocks, NumberBlocks(blocks));
}

}  // namespace hv
