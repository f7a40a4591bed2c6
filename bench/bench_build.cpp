// The way of an OBJ file to a hierarchy: import in megabytes per second, Build and Update in triangles per second,
// bytes per triangle and surface-area cost.

#include "accel/accel.h"
#include "model.h"
#include "scene/obj_import.h"
#include "timing.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <filesystem>

namespace {

template <class T>
double BytesOf(const std::vector<T>& values)
{
    return static_cast<double>(values.size() * sizeof(T));
}

/// What rays walk; the binary tree is scratch of static objects.
double WalkedBytes(const hv::Object& object)
{
    return BytesOf(object.wideNodes) + BytesOf(object.wideVisits) + BytesOf(object.wideRefs) +
           BytesOf(object.leafBlocks);
}

void BenchImport(const std::string& path, int runs)
{
    std::vector<double> seconds;
    for (int run = 0; run <= runs; ++run) {
        hv::Part     part;
        const double time = TimeOf([&] { hv::ReadObjFile(part, path); });
        if (run > 0) seconds.push_back(time);  // the first warms up
    }
    const double megabytes = 1e-6 * static_cast<double>(std::filesystem::file_size(path));
    std::printf("import   %10.1f MB/s\n", megabytes / Median(seconds));
}

void BenchHierarchy(int runs)
{
    hv::Object&         object = hv::Objects[0];
    std::vector<double> build, update, both;
    for (int run = 0; run <= runs; ++run) {
        hv::RefreshBounds(object);
        const double b = TimeOf([&] { hv::Build(object); });
        const double u = TimeOf([&] {
            hv::Update(object, true, 1);
            hv::SortWideLanes(object);
        });
        if (run == 0) continue;
        build.push_back(b);
        update.push_back(u);
        both.push_back(b + u);
    }
    const auto   triangles = static_cast<double>(object.parts[0].triangles.size());
    const double millions  = 1e-6 * triangles;
    std::printf("Build    %10.3f Mtriangles/s\n", millions / Median(build));
    std::printf("Update   %10.3f Mtriangles/s\n", millions / Median(update));
    std::printf("both     %10.3f Mtriangles/s on %d threads\n", millions / Median(both), hv::TeamSize());
    std::printf("memory   %10.1f bytes/triangle, %zu nodes, %zu blocks, depth %u\n", WalkedBytes(object) / triangles,
                object.wideNodes.size(), object.leafBlocks.size(), object.wideDepth);
    std::printf("cost     %10.3f times the half area of the root\n", object.cost / hv::HalfArea(object.box));
}

}  // namespace

int main(int argc, char** argv)
{
    std::string model;
    int         runs = 5;
    CLI::App    app{"Import and hierarchy speed on one model"};
    app.add_option("model", model, "OBJ file")->required()->check(CLI::ExistingFile);
    app.add_option("--runs", runs, "timed runs; the median counts")->check(CLI::Range(1, 1000));
    CLI11_PARSE(app, argc, argv);

    if (!LoadModel(model)) return 1;
    BenchHierarchy(runs);
    BenchImport(model, runs);
    return 0;
}
