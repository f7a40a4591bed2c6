// What motion costs between two frames: Update of a mesh and of strands that move, whole and step by step, for one
// thread and all; and what MoveObjects takes of a frame when nothing moves.

#include "accel/accel.h"
#include "accel/curve_tree.h"
#include "accel/hierarchy.h"
#include "base/release.h"
#include "geometry/assembly.h"
#include "hv.h"
#include "hvx.h"
#include "pcg32.h"
#include "timing.h"

#include <CLI/CLI.hpp>

#include <cmath>
#include <cstdio>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace {

using hv::Object;
using hv::Part;
using hv::Vector;

constexpr int kFrames = 64;  // over which a motion is spread

/// A wavy sheet of unit squares, two triangles each.
Part MakeSheet(std::uint32_t triangles)
{
    Part       part;
    const auto side = static_cast<std::uint32_t>(std::sqrt(triangles / 2));
    for (std::uint32_t y = 0; y <= side; ++y)
        for (std::uint32_t x = 0; x <= side; ++x) {
            const auto u = static_cast<float>(x), v = static_cast<float>(y);
            part.positions.push_back({u, v, 20.0f * std::sin(0.03f * u) * std::cos(0.05f * v)});
        }
    for (std::uint32_t y = 0; y < side; ++y)
        for (std::uint32_t x = 0; x < side; ++x) {
            const std::uint32_t corner = y * (side + 1) + x, above = corner + side + 1;
            part.triangles.push_back({corner, corner + 1, above + 1, 0});
            part.triangles.push_back({above + 1, above, corner, 0});
        }
    return part;
}

/// Bent strands of 16 segments on a square, a segment about one unit long.
Part MakeHair(std::uint32_t segments)
{
    constexpr int       kSegments = 16;
    Part                part;
    Pcg32               random(1, 1);
    const std::uint32_t strands = segments / kSegments;
    const float         side    = std::sqrt(static_cast<float>(strands)) / 4.0f;
    for (std::uint32_t strand = 0; strand < strands; ++strand) {
        Vector point{side * random.Uniform(), side * random.Uniform(), 0.0f}, step{0, 0, 1};
        for (int i = 0; i <= kSegments; ++i) {
            if (i < kSegments) part.cylinders.push_back(static_cast<std::uint32_t>(part.positions.size()));
            part.positions.push_back(point);
            step  = hv::Normalized(step + 0.3f * Vector{random.Uniform() - 0.5f, random.Uniform() - 0.5f, -0.3f});
            point = point + step;
        }
        part.strandSizes.push_back(kSegments);
    }
    part.scalars[0].values.assign(part.positions.size(), 0.02f);
    return part;
}

/// Swirls and waves: neighbours move alike, but what is near in the beginning does not stay so.
void AddMotion(Part& part)
{
    hv::VertexData<Vector> motion{"motion", {}};
    for (const Vector p : part.positions)
        motion.values.push_back({-0.1f * p.y, 0.1f * p.x, 10.0f * std::sin(0.11f * p.x + 0.07f * p.y)});
    part.vectors.push_back(std::move(motion));
}

void Prepare(Object& object)
{
    hv::PreparePart(object.parts[0]);
    object.hasMotion = object.parts[0].hasMotion;
    hv::RefreshBounds(object);
    hv::Build(object);
    hv::Update(object, true, kFrames);
}

void BenchSteps(const char* name, Part part, int runs)
{
    Object&           object   = hv::Objects.emplace_back();
    const std::size_t elements = part.triangles.size() + part.cylinders.size();
    AddMotion(part);
    object.parts.push_back(std::move(part));
    Prepare(object);

    // The steps of Update that can be called by themselves; what is left is moving, refitting and rotating.
    const std::pair<const char*, std::function<void()>> steps[] = {
        {"Update", [&] { hv::Update(object, false, kFrames); }},
        {"list levels", [&] { hv::CollectLevels(object); }},
        {"wide tree", [&] { hv::MakeWideTree(object); }},
        {"curve tree", [&] { hv::MakeCurveTree(object); }},
        {"pack", [&] { hv::PackLeaves(object); }},
    };
    const int all_threads = hv::TeamSize();
    std::printf("%s, %zu elements, cost %.3f times the half area of the root\n", name, elements,
                object.cost / hv::HalfArea(object.box));
    for (const auto& [step, work] : steps) {
        double medians[2] = {};
        for (int k = 0; k < 2; ++k) {
            omp_set_num_threads(k == 0 ? 1 : all_threads);
            std::vector<double> seconds;
            for (int run = 0; run <= runs; ++run) {
                const double time = TimeOf(work);
                if (run > 0) seconds.push_back(time);  // the first warms up
            }
            medians[k] = Median(seconds);
        }
        std::printf("  %-12s %8.2f ms on 1 thread %8.2f ms on %d, %.2f times as fast\n", step, 1e3 * medians[0],
                    1e3 * medians[1], all_threads, medians[0] / medians[1]);
    }
    std::printf("  cost then    %.3f\n", object.cost / hv::HalfArea(object.box));
    hv::DestroyObjects();
}

/// The frame of a scene in which nothing moves: a sheet, and many small objects that instances place.
void BenchStatic(std::uint32_t triangles, int objects, int runs)
{
    constexpr int kWidth = 480, kHeight = 270;
    hvxSetReport(false);
    hvStartup();
    hvSetRendererDistance(0);
    hvAddCamera();
    hvSetCameraResolution(0, kWidth, kHeight);
    hvSetCameraSample(0, kFrames);
    hvSetCameraAOVName(0, 0, "");
    hvSetCameraPosition(0, 0, 0, 400);
    hvSetCameraTarget(0, 300, 300, 0);
    hvSetSkyLightColor(1, 1, 1);
    for (int i = 0; i < objects; ++i) hv::Objects.emplace_back().parts.push_back(MakeSheet(2));
    Object& root = hv::Objects.emplace_back();
    root.parts.push_back(MakeSheet(triangles));
    for (int i = 0; i < objects; ++i) root.instances.emplace_back().object = static_cast<std::uint32_t>(i);
    hvInitialize();

    std::vector<float>  pixels(3u * kWidth * kHeight);
    std::vector<double> frames, moves;
    for (int run = 0; run < runs; ++run) {
        frames.push_back(TimeOf([&] { hvRenderPixels(kWidth * kHeight, pixels.data(), run); }));
        moves.push_back(TimeOf([] { hv::MoveObjects(); }));
    }
    std::printf("nothing moves: %d objects, MoveObjects %.2f microseconds of a frame of %.2f ms\n", objects + 1,
                1e6 * Median(moves), 1e3 * Median(frames));
    hvFinalize();
    hvShutdown();
}

}  // namespace

int main(int argc, char** argv)
{
    std::uint32_t triangles = 1000000, segments = 300000;
    int           objects = 1000, runs = 7;
    CLI::App      app{"Cost of motion between frames"};
    app.add_option("--triangles", triangles, "of the mesh");
    app.add_option("--segments", segments, "of the strands");
    app.add_option("--objects", objects, "of the scene in which nothing moves");
    app.add_option("--runs", runs, "timed runs; the median counts")->check(CLI::Range(1, 1000));
    CLI11_PARSE(app, argc, argv);

    hvxSetReport(false);
    BenchSteps("mesh", MakeSheet(triangles), runs);
    BenchSteps("hair", MakeHair(segments), runs);
    BenchStatic(triangles, objects, runs);
    return 0;
}
