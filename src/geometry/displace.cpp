#include "base/per_thread.h"
#include "base/physical_memory.h"
#include "base/release.h"
#include "geometry/assembly.h"
#include "geometry/patch.h"
#include "geometry/vertex_values.h"
#include "session/console.h"
#include "session/sampling.h"
#include "shading/image_store.h"
#include "shading/shading.h"
#include "shading/texture_lookup.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <string>

namespace hv {

namespace {

/// Item of BeginRandomStream that nothing else has.
constexpr std::uint64_t kDisplacementItem = ~std::uint64_t{3};

const std::vector<ShaderElement>& EntriesOf(std::uint32_t shader) { return ShaderAt(shader).geometry_shader.vector; }

template <class Face>
std::size_t MostEntries(const std::vector<Face>& faces)
{
    std::size_t most = 0;
    for (const Face& face : faces) most = std::max(most, EntriesOf(face.shader).size());
    return most;
}

/// Two triangles for each tetragon, after those that are there.
void SplitTetragons(Part& part)
{
    part.triangles.reserve(part.triangles.size() + 2 * part.tetragons.size());
    for (const Tetragon& face : part.tetragons) {
        part.triangles.push_back({face.i0, face.i1, face.i2, face.shader});
        part.triangles.push_back({face.i2, face.i3, face.i0, face.shader});
    }
    Release(part.tetragons);
}

// ---- What a level makes ----

/// The grid that takes the place of one triangle.
struct Grid {
    Triangle      source;
    std::uint32_t first_point;  ///< among the points of all grids
    std::uint32_t first_face;   ///< among the triangles of all grids
};

/// All grids of one level, in the order of their triangles. Sums are exact where they are small enough to be used.
struct Plan {
    std::size_t           entry = 0;  ///< number of the level: which entry of each shader acts
    std::vector<Triangle> kept;       ///< triangles that stay as they are
    std::vector<Grid>     grids;
    double                point_count = 0, face_count = 0;
    int                   finest = 0;  ///< the largest tessellation count
};

const ShaderElement& EntryOf(const Plan& plan, const Grid& grid) { return EntriesOf(grid.source.shader)[plan.entry]; }

/// Whether all corners of a triangle have the two directions that make its frame.
bool HasFrames(const Part& part, const Triangle& face)
{
    for (const std::uint32_t vertex : {face.i0, face.i1, face.i2})
        if (vertex >= part.normals.size() || vertex >= part.tangents.size() ||
            part.normals[vertex] == PackedDirection{} || part.tangents[vertex] == PackedDirection{})
            return false;
    return true;
}

// A tessellation count below 1 makes nothing, so that the face disappears.
Plan PlanLevel(const Part& part, std::size_t entry)
{
    Plan plan;
    plan.entry = entry;
    for (const Triangle& face : part.triangles) {
        const std::vector<ShaderElement>& entries = EntriesOf(face.shader);
        if (entry >= entries.size() || !HasFrames(part, face)) {
            plan.kept.push_back(face);
            continue;
        }
        if (entries[entry].level < 1) continue;
        const double n = entries[entry].level;
        plan.finest    = std::max(plan.finest, entries[entry].level);
        if (plan.point_count < kNone && plan.face_count < kNone)
            plan.grids.push_back(
                {face, static_cast<std::uint32_t>(plan.point_count), static_cast<std::uint32_t>(plan.face_count)});
        plan.point_count += (n + 1.0) * (n + 2.0) / 2.0;
        plan.face_count += n * n;
    }
    return plan;
}

double BytesOfVertex(const Part& part)
{
    std::size_t bytes = sizeof(Vector) + 2 * sizeof(PackedDirection);
    ForEachValues(part, [&](const auto& values) { bytes += sizeof values[0]; });
    return static_cast<double>(bytes);
}

/// Memory that a level asks for before rays fly: three times what it makes while that is smoothed, or the hierarchy
/// over it while that is built, whichever is more.
double BytesNeeded(double made, double faces)
{
    constexpr double kHierarchyBytes = 240.0;  // of a triangle, at the peak of the build
    return std::max(3.0 * made, made + kHierarchyBytes * faces);
}

/// Whether a level can be built: its vertices and corners can be numbered, and the machine has the memory. Tells why
/// not.
bool IsAffordable(const Part& part, const Plan& plan)
{
    const double vertices = static_cast<double>(part.positions.size()) + plan.point_count;
    const double faces    = static_cast<double>(plan.kept.size()) + plan.face_count;
    const double bytes    = BytesNeeded(vertices * BytesOfVertex(part) + faces * sizeof(Triangle), faces);
    const bool   numbered = vertices < kNone && 3.0 * faces <= static_cast<double>(kMostCorners);
    if (numbered && bytes <= static_cast<double>(PhysicalMemory())) return true;
    char numbers[160];
    std::snprintf(numbers, sizeof numbers, "level %d makes %.0f triangles, which take %.0f megabytes", plan.finest,
                  faces, bytes / 1048576.0);
    PrintError(std::string("part - displacement ") + numbers +
               (numbered ? ", more than there are; it is left out" : ", too many to count; it is left out"));
    return false;
}

// ---- Moving a vertex ----

const Image* ImageOf(const ShaderElement& entry)
{
    const auto index = static_cast<std::size_t>(entry.image_index);
    return entry.image_index >= 0 && index < Images.size() ? &Images[index] : nullptr;
}

/// A lookup that draws random numbers: these are drawn on one thread, in the order of vertices.
bool IsRandom(const ShaderElement& entry)
{
    constexpr std::uint8_t kStochastic = 1;
    return entry.sampler == kStochastic && ImageOf(entry) != nullptr;
}

/// How far a vertex moves along tangent, bitangent and normal, or along the axes: half grey is none.
Vector Displacement(const ShaderElement& entry, Vector2 uv)
{
    const Color        scale = entry.color;
    const Image* const image = ImageOf(entry);
    if (image == nullptr) return {scale.r, scale.g, scale.b};
    const float at[2] = {uv.u, uv.v};
    const Color color = LookupTexture(*image, at, entry);
    return {(color.r - 0.5f) * scale.r, (color.g - 0.5f) * scale.g, (color.b - 0.5f) * scale.b};
}

void MoveVertex(Part& part, const ShaderElement& entry, std::uint32_t vertex)
{
    const Vector2 uv        = part.uvs.empty() ? Vector2{} : ValueAt(part.uvs[0].values, vertex);
    const Vector  d         = Displacement(entry, uv);
    const Vector  direction = entry.direction;
    Vector&       position  = part.positions[vertex];
    if (direction == Vector{}) {
        const Vector n = UnpackDirection(part.normals[vertex]), t = UnpackDirection(part.tangents[vertex]);
        position += d.x * t - d.y * Cross(n, t) + d.z * n;
    } else {
        position += Vector{direction.x * d.x, direction.y * d.y, direction.z * d.z};
    }
}

// ---- Filling the grids ----

using Weights = std::array<float, 3>;

float  Mix(const Weights& b, float x, float y, float z) { return b[0] * x + b[1] * y + b[2] * z; }
Vector Mix(const Weights& b, Vector x, Vector y, Vector z) { return b[0] * x + b[1] * y + b[2] * z; }
Vector Mix(const Weights& b, const Vector (&v)[3]) { return Mix(b, v[0], v[1], v[2]); }

Vector2 Mix(const Weights& b, Vector2 x, Vector2 y, Vector2 z)
{
    return {Mix(b, x.u, y.u, z.u), Mix(b, x.v, y.v, z.v)};
}

/// A level while it is built: the arrays of the part already hold room for all new vertices, behind the old ones, and
/// its triangles for all new ones, behind the kept ones. Every place is written once, whatever the thread.
struct LevelBuild {
    Part&       part;
    const Plan& plan;
    std::size_t old_vertices;  ///< number of the first new one

    std::uint32_t PointCount() const { return static_cast<std::uint32_t>(plan.point_count); }
};

/// One grid while its points are made.
struct GridFrame {
    const Triangle&      source;
    const ShaderElement& entry;
    std::uint32_t        rows;
    std::uint32_t        first_vertex;
    Triangle*            faces;  ///< of this grid
    bool                 moves_at_once;
    Vector               positions[3], normals[3], tangents[3];

    GridFrame(const LevelBuild& build, const Grid& grid)
        : source(grid.source),
          entry(EntryOf(build.plan, grid)),
          rows(static_cast<std::uint32_t>(entry.level)),
          first_vertex(static_cast<std::uint32_t>(build.old_vertices + grid.first_point)),
          faces(build.part.triangles.data() + build.plan.kept.size() + grid.first_face),
          moves_at_once(!IsRandom(entry))
    {
        const std::uint32_t corners[3] = {source.i0, source.i1, source.i2};
        for (int c = 0; c < 3; ++c) {
            positions[c] = build.part.positions[corners[c]];
            normals[c]   = UnpackDirection(build.part.normals[corners[c]]);
            tangents[c]  = UnpackDirection(build.part.tangents[corners[c]]);
        }
    }
};

// The values of a point are mixed straight; only its place follows the patch.
void FillValues(Part& part, const GridFrame& frame, const Weights& b, std::uint32_t vertex)
{
    const Triangle& source = frame.source;
    part.normals[vertex]   = PackDirection(Mix(b, frame.normals));
    part.tangents[vertex]  = PackDirection(Mix(b, frame.tangents));
    ForEachValues(
        part, [&](auto& values) { values[vertex] = Mix(b, values[source.i0], values[source.i1], values[source.i2]); });
}

void FillFaces(const GridFrame& frame, std::uint32_t row, std::uint32_t column)
{
    if (row == frame.rows) return;
    const std::uint32_t base = frame.first_vertex;
    ForTrianglesBelow(row, column, frame.rows, [&](std::uint32_t number, const GridCorners& corners) {
        frame.faces[number] = {base + corners[0], base + corners[1], base + corners[2], frame.source.shader};
    });
}

std::uint32_t RowOf(std::uint32_t point)
{
    return static_cast<std::uint32_t>((std::sqrt(8.0 * point + 1.0) - 1.0) / 2.0);
}

/// Walks the points of a grid in their order.
struct GridPlace {
    std::uint32_t row, column;

    explicit GridPlace(std::uint32_t point) : row(RowOf(point)), column(point - RowStart(row)) {}

    void Advance()
    {
        if (column++ < row) return;
        column = 0;
        ++row;
    }
};

/// Up to eight points from `place` on, which moves behind them.
void FillEight(Part& part, const GridFrame& frame, GridPlace& place, std::uint32_t vertex, int count)
{
    EightWeights weights{};
    for (int lane = 0; lane < count; ++lane, place.Advance()) {
        const Weights b = GridWeights(place.row, place.column, frame.rows);
        for (std::size_t corner = 0; corner < 3; ++corner) weights.b[corner][lane] = b[corner];
        FillValues(part, frame, b, vertex + static_cast<std::uint32_t>(lane));
        FillFaces(frame, place.row, place.column);
    }
    const EightPoints points = SideVertexPatch8(weights, frame.positions, frame.normals);
    for (int lane = 0; lane < count; ++lane) {
        part.positions[vertex + static_cast<std::uint32_t>(lane)] = points[lane];
        if (frame.moves_at_once) MoveVertex(part, frame.entry, vertex + static_cast<std::uint32_t>(lane));
    }
}

/// Points `first` to `last` - 1 of one grid, counted in it.
void FillGrid(const LevelBuild& build, const Grid& grid, std::uint32_t first, std::uint32_t last)
{
    const GridFrame frame(build, grid);
    GridPlace       place(first);
    for (std::uint32_t point = first; point < last; point += 8)
        FillEight(build.part, frame, place, frame.first_vertex + point, static_cast<int>(std::min(last - point, 8u)));
}

/// Points `first` to `last` - 1 of all grids.
void FillPoints(const LevelBuild& build, std::uint32_t first, std::uint32_t last)
{
    const std::vector<Grid>& grids = build.plan.grids;
    const auto is_before           = [](std::uint32_t point, const Grid& other) { return point < other.first_point; };
    auto       grid                = std::upper_bound(grids.begin(), grids.end(), first, is_before);
    for (--grid; first < last; ++grid) {
        const auto          next = grid + 1;
        const std::uint32_t end  = std::min(last, next == grids.end() ? build.PointCount() : next->first_point);
        FillGrid(build, *grid, first - grid->first_point, end - grid->first_point);
        first = end;
    }
}

// Cut by points, not by triangles, so that a pair of finely divided triangles keeps more than two threads busy.
void FillAllPoints(const LevelBuild& build)
{
    constexpr std::uint32_t kPortion = 4096;
    const std::uint32_t     count    = build.PointCount();
    const auto              portions = static_cast<std::int64_t>((std::uint64_t{count} + kPortion - 1) / kPortion);
#pragma omp parallel for schedule(static) num_threads(TeamSize()) if (portions > 1)
    for (std::int64_t k = 0; k < portions; ++k) {
        const auto first = static_cast<std::uint32_t>(k * kPortion);
        FillPoints(build, first, count - first < kPortion ? count : first + kPortion);
    }
}

/// Moves what FillPoints left: with a seed by the same random numbers every time.
void MoveAtRandom(const LevelBuild& build)
{
    BeginRandomStream(kDisplacementItem, static_cast<std::uint32_t>(build.plan.entry));
    for (const Grid& grid : build.plan.grids) {
        const ShaderElement& entry = EntryOf(build.plan, grid);
        if (!IsRandom(entry)) continue;
        const std::size_t   first = build.old_vertices + grid.first_point;
        const std::uint32_t count = RowStart(static_cast<std::uint32_t>(entry.level) + 1);
        for (std::size_t k = 0; k < count; ++k) MoveVertex(build.part, entry, static_cast<std::uint32_t>(first + k));
    }
}

template <class T>
void Grow(std::vector<T>& values, std::size_t count)
{
    values.reserve(count);  // no more than that
    values.resize(count);
}

/// Makes room behind the old vertices. These stay: smoothing drops those that no face uses any more.
void GrowArrays(Part& part, const Plan& plan)
{
    const std::size_t vertex_count = part.positions.size() + static_cast<std::size_t>(plan.point_count);
    ForEachValues(part, [&](auto& values) { Grow(values, vertex_count); });
    Grow(part.positions, vertex_count);
    Grow(part.normals, vertex_count);
    Grow(part.tangents, vertex_count);
    part.triangles = plan.kept;
    Grow(part.triangles, plan.kept.size() + static_cast<std::size_t>(plan.face_count));
}

/// Displaces by one entry of each shader. False when the part cannot go on.
bool DisplaceLevel(Part& part, std::size_t entry)
{
    Smooth(part);
    if (part.normals.empty()) PrintWarning("part - missing vertex normals for displacement mapping");
    if (part.normals.empty() || part.tangents.empty()) return false;
    const Plan plan = PlanLevel(part, entry);
    if (!IsAffordable(part, plan)) return false;
    const LevelBuild build{part, plan, part.positions.size()};
    GrowArrays(part, plan);
    if (!plan.grids.empty()) FillAllPoints(build);
    MoveAtRandom(build);
    return true;
}

}  // namespace

// Level k refines what level k - 1 has made. Smoothing at the start of each level welds the grids of the one before.
void Displace(Part& part)
{
    const std::size_t level_count = std::max(MostEntries(part.triangles), MostEntries(part.tetragons));
    if (level_count == 0) return;
    SplitTetragons(part);
    for (std::size_t entry = 0; entry < level_count; ++entry) {
        if (DisplaceLevel(part, entry)) continue;
        if (part.tangents.empty()) PrintWarning("part - missing vertex normals for displacement mapping");
        PrintRule();
        return;
    }
}

}  // namespace hv
