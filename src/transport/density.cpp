#include "transport/density.h"

#include "geometry/geometry.h"
#include "session/console.h"
#include "session/settings.h"
#include "shading/shading.h"
#include "transport/order_free_sums.h"
#include "transport/transport.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>

namespace hv {

namespace {

constexpr float         kSmallestArea = 1e-5f;       ///< square metres; smaller faces take no light
constexpr std::uint64_t kCellBytes    = 24;          ///< of both sides
constexpr std::uint64_t kLimit        = 1073741824;  ///< bytes of the cells of one kind of faces of one part

DensityObserver density_observer      = nullptr;
void*           density_observer_data = nullptr;  // belongs to the line above

/// Sums of all cells, front cells before back cells. On while photons are cast with a seed.
OrderFreeSums DepositSums;

float AreaOf(const Part& part, const Triangle& face)
{
    const auto& p = part.positions;
    return TriangleArea(p[face.i0], p[face.i1], p[face.i2]);
}

float AreaOf(const Part& part, const Tetragon& face)
{
    const auto& p = part.positions;
    return TetragonArea(p[face.i0], p[face.i1], p[face.i2], p[face.i3]);
}

/// A face that light does not leave diffusely has one cell.
bool HoldsLight(const Shader& shader)
{
    return shader.face_lambertian || shader.back_lambertian || shader.face_transmissive || shader.back_transmissive;
}

/// Calls use(grid size) for each face.
template <class Face, class Use>
void ForEachGrid(const Part& part, const std::vector<Face>& faces, float resolution, const Use& use)
{
    for (const Face& face : faces)
        use(HoldsLight(ShaderAt(face.shader)) ? DensityGridSize(AreaOf(part, face), resolution) : 1u);
}

template <class Face>
std::uint64_t CellCount(const Part& part, const std::vector<Face>& faces, float resolution)
{
    std::uint64_t count = 0;
    ForEachGrid(part, faces, resolution, [&](std::uint64_t size) { count += size * size; });
    return count;
}

/// Calls use(part, faces, cells) for both kinds of faces of all parts of the root.
template <class Use>
void ForEachSet(const Use& use)
{
    if (RootObject >= Objects.size()) return;
    for (Part& part : Objects[RootObject].parts) {
        use(part, part.triangles, part.triangleCells);
        use(part, part.tetragons, part.tetragonCells);
    }
}

/// Memory that cells ask for.
struct DensityBytes {
    std::uint64_t largest = 0;  ///< of one kind of faces of one part
    std::uint64_t total   = 0;
};

DensityBytes BytesAt(float resolution)
{
    DensityBytes bytes;
    ForEachSet([&](const Part& part, const auto& faces, const DensityCells&) {
        const std::uint64_t set = CellCount(part, faces, resolution) * kCellBytes;
        bytes.largest           = std::max(bytes.largest, set);
        bytes.total += set;
    });
    return bytes;
}

/// A resolution near the smallest at which every set fits; 0 when the faces alone are too many.
float FittingResolution()
{
    if (BytesAt(kFarAway).largest > kLimit) return 0.0f;  // one cell a face
    float low = Settings.Resolution, high = low;
    while (BytesAt(high).largest > kLimit) {
        low = high;
        high *= 2.0f;
    }
    while (high > 1.01f * low) {
        const float middle                              = std::sqrt(low * high);
        (BytesAt(middle).largest > kLimit ? low : high) = middle;
    }
    return high;
}

/// Meant: there is no way on. Nothing has been rendered yet.
[[noreturn]] void EndForDensity()
{
    if (density_observer) {
        const DensityBytes bytes = BytesAt(Settings.Resolution);
        density_observer(static_cast<double>(bytes.largest) / 1048576.0, static_cast<double>(bytes.total) / 1048576.0,
                         FittingResolution(), density_observer_data);
    }
    PrintTitle("density estimator consumes more than 1GB memory.");
    PrintRule();
    std::exit(EXIT_FAILURE);
}

/// Numbers the cells of the faces of one kind. The limit keeps their count in 32 bits.
template <class Face>
void PrepareCells(const Part& part, const std::vector<Face>& faces, DensityCells& cells)
{
    if (CellCount(part, faces, Settings.Resolution) * kCellBytes > kLimit) EndForDensity();
    cells.grids.reserve(faces.size());
    std::uint32_t total = 0;
    ForEachGrid(part, faces, Settings.Resolution, [&](std::uint32_t size) {
        cells.grids.push_back({total, size});
        total += size * size;
    });
    cells.back.assign(total, kBlack);
    cells.front.assign(total, kBlack);  // last: where memory runs out in between there are no cells
}

std::size_t BytesOf(const DensityCells& cells)
{
    return cells.grids.size() * sizeof(DensityCells::Grid) + (cells.front.size() + cells.back.size()) * sizeof(Color);
}

/// A cell of the part that a ray has hit.
struct CellPlace {
    const DensityCells* cells = nullptr;  ///< null: none was hit
    std::size_t         index = 0;
    std::uint32_t       size  = 0;  ///< of the grid
};

/// Step of a parameter (0 to 1) on a grid.
int Step(float parameter, int size) { return ClampToInt(parameter * static_cast<float>(size), 0, size - 1); }

int TriangleCell(const RayRecord& ray, int size)
{
    const int r = Step(1.0f - ray.hit_u, size), j = Step(1.0f - ray.hit_v, size), k = Step(1.0f - ray.hit_w, size);
    // The parameters add up to 1 but for rounding, which must not lead out of the row.
    return r * r + std::clamp(r + j - k, 0, 2 * r);
}

int TetragonCell(const RayRecord& ray, int size) { return size * Step(ray.hit_u, size) + Step(ray.hit_v, size); }

CellPlace PlaceOf(const RayRecord& ray)
{
    if (!ray.has_density || !ray.hit_part) return {};
    const auto kind = static_cast<PrimitiveKind>(ray.hit_kind);
    if (kind != PrimitiveKind::Triangle && kind != PrimitiveKind::Tetragon) return {};
    const bool          is_triangle = kind == PrimitiveKind::Triangle;
    const DensityCells& cells       = is_triangle ? ray.hit_part->triangleCells : ray.hit_part->tetragonCells;
    if (ray.hit_primitive >= cells.grids.size()) return {};
    const DensityCells::Grid grid  = cells.grids[ray.hit_primitive];
    const int                size  = static_cast<int>(grid.size);
    const int                cell  = is_triangle ? TriangleCell(ray, size) : TetragonCell(ray, size);
    const std::size_t        index = std::size_t{grid.base} + static_cast<std::size_t>(cell);
    return index < cells.front.size() ? CellPlace{&cells, index, grid.size} : CellPlace{};
}

Color ReadCell(const RayRecord& ray, bool front)
{
    const CellPlace place = PlaceOf(ray);
    if (!place.cells) return kBlack;
    return (front ? place.cells->front : place.cells->back)[place.index];
}

/// Light of a face to radiance of one of its cells, per square metre.
float CellScale(float area, std::uint32_t size)
{
    return area > kSmallestArea ? static_cast<float>(size * size) / area : 0.0f;
}

float HitArea(const RayRecord& ray)
{
    const Part& part = *ray.hit_part;
    return static_cast<PrimitiveKind>(ray.hit_kind) == PrimitiveKind::Triangle
               ? AreaOf(part, part.triangles[ray.hit_primitive])
               : AreaOf(part, part.tetragons[ray.hit_primitive]);
}

/// Plain add: a lost update costs one photon, a lock costs the cast.
void RacingAdd(Color& cell, Color value)
{
    for (int c = 0; c < 3; ++c) {
        std::atomic_ref<float> channel(cell[c]);
        channel.store(channel.load(std::memory_order_relaxed) + value[c], std::memory_order_relaxed);
    }
}

/// Adds the sums of one kind of faces to its cells. `side`: where the sums of that side begin.
template <class Face>
void FoldSums(const Part& part, const std::vector<Face>& faces, const DensityCells& cells, std::size_t side,
              std::vector<Color>& colors)
{
    const std::size_t count = std::min(faces.size(), cells.grids.size());
    for (std::size_t i = 0; i < count; ++i) {
        const DensityCells::Grid grid  = cells.grids[i];
        const float              scale = CellScale(AreaOf(part, faces[i]), grid.size);
        for (std::size_t cell = grid.base; cell < std::size_t{grid.base} + grid.size * grid.size; ++cell)
            colors[cell] += DepositSums.At(side + cells.first + cell) * scale;
    }
}

}  // namespace

std::uint32_t DensityGridSize(float area, float resolution)
{
    // The root is within rounding of the answer; the loops decide by the rule itself.
    const auto enough = [&](int n) { return resolution * static_cast<float>(n * n) > area; };
    int        n      = ClampToInt(std::sqrt(area / resolution), 1, 255);
    while (n > 1 && enough(n - 1)) --n;
    while (n < 255 && !enough(n)) ++n;
    return static_cast<std::uint32_t>(n);
}

void SetDensityObserver(DensityObserver observer, void* user)
{
    density_observer      = observer;
    density_observer_data = user;
}

void PrepareDensity(Part& part)
{
    part.triangleCells = part.tetragonCells = {};
    if (!(Settings.Resolution >= 1e-8f)) return;
    PrepareCells(part, part.triangles, part.triangleCells);
    PrepareCells(part, part.tetragons, part.tetragonCells);
    const std::size_t bytes = BytesOf(part.triangleCells) + BytesOf(part.tetragonCells);
    ReportValue("density estimator buffer", static_cast<float>(bytes) / 1048576.0f, "M bytes");
    PrintRule();
}

void DepositDensity(const RayRecord& photon, Color value)
{
    const CellPlace place = PlaceOf(photon);
    if (!place.cells) return;
    const bool front = photon.front_side != 0;
    if (DepositSums.IsOn()) {
        const std::size_t side = front ? 0 : DepositSums.Count() / 2;
        return DepositSums.Add(side + place.cells->first + place.index, value);
    }
    const float scale = CellScale(HitArea(photon), place.size);
    // The cells are those of a part of the root, which no one else holds as constant.
    auto& cells = const_cast<DensityCells&>(*place.cells);
    if (scale > 0.0f) RacingAdd((front ? cells.front : cells.back)[place.index], value * scale);
}

void ClearDensity()
{
    DepositSums.Stop();
    ForEachSet([](const Part&, const auto&, DensityCells& cells) {
        std::ranges::fill(cells.front, kBlack);
        std::ranges::fill(cells.back, kBlack);
    });
}

void StartOrderFreeDeposits(double power)
{
    std::size_t count = 0;
    ForEachSet([&](const Part&, const auto&, DensityCells& cells) {
        cells.first = count;
        count += cells.front.size();
    });
    if (count > 0) DepositSums.Start(2 * count, power);
}

void FinishOrderFreeDeposits()
{
    if (!DepositSums.IsOn()) return;
    const std::size_t back = DepositSums.Count() / 2;
    ForEachSet([&](const Part& part, const auto& faces, DensityCells& cells) {
        FoldSums(part, faces, cells, 0, cells.front);
        FoldSums(part, faces, cells, back, cells.back);
    });
    DepositSums.Stop();
}

Color DensitySameSide(const RayRecord& ray) { return ReadCell(ray, ray.front_side != 0); }
Color DensityOtherSide(const RayRecord& ray) { return ReadCell(ray, ray.front_side == 0); }

}  // namespace hv
