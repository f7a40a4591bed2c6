// Smoothing in corners per second, displacement in grid points per second, and the peak of memory beside what results.
// Each case runs in a process of its own, so that peaks do not mix.

#include "base/per_thread.h"
#include "geometry/assembly.h"
#include "hvx.h"
#include "model.h"
#include "shading/shading.h"
#include "timing.h"

#include <CLI/CLI.hpp>

#include <malloc.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <string>

namespace {

// ---- Memory ----

/// A line of /proc/self/status, in bytes.
double StatusBytes(const std::string& label)
{
    std::ifstream file("/proc/self/status");
    std::string   word;
    while (file >> word)
        if (double kilobytes = 0; word == label && file >> kilobytes) return 1024.0 * kilobytes;
    return 0.0;
}

/// Makes the next peak start from what is in use now.
void ResetPeak() { std::ofstream("/proc/self/clear_refs") << "5"; }

template <class T>
double BytesOf(const std::vector<T>& values)
{
    return static_cast<double>(values.size() * sizeof(T));
}

double BytesOf(const hv::Part& part)
{
    double     bytes = BytesOf(part.positions) + BytesOf(part.normals) + BytesOf(part.tangents);
    const auto add   = [&bytes](const auto& arrays) {
        for (const auto& array : arrays) bytes += BytesOf(array.values);
    };
    add(part.scalars);
    add(part.uvs);
    add(part.vectors);
    return bytes + BytesOf(part.triangles) + BytesOf(part.tetragons);
}

// ---- Meshes ----

/// A ball of `rows` x 2 `rows` tetragons; a plane when `flat`. With uvs, without normals.
hv::Part MakeSheet(int rows, bool flat)
{
    hv::Part  part;
    const int columns = 2 * rows;
    for (int y = 0; y <= rows; ++y) {
        for (int x = 0; x <= columns; ++x) {
            const float u = static_cast<float>(x) / static_cast<float>(columns);
            const float v = static_cast<float>(y) / static_cast<float>(rows);
            const float a = hv::kTwoPi * u, b = hv::kPi * (v * 0.98f + 0.01f);
            const auto  ball = hv::Vector{std::sin(b) * std::cos(a), std::cos(b), std::sin(b) * std::sin(a)};
            part.positions.push_back(flat ? hv::Vector{u, 0, v} : ball);
            part.uvs[0].values.push_back({u, v});
        }
    }
    for (int y = 0; y < rows; ++y) {
        for (int x = 0; x < columns; ++x) {
            const auto i = static_cast<std::uint32_t>(y * (columns + 1) + x);
            const auto k = i + static_cast<std::uint32_t>(columns) + 1;
            part.tetragons.push_back({i, i + 1, k + 1, k, 0});
        }
    }
    return part;
}

/// A cone of `count` triangles that meet at its tip.
hv::Part MakeCone(int count)
{
    hv::Part part;
    part.positions.push_back({0, 1, 0});
    for (int k = 0; k < count; ++k) {
        const float a = hv::kTwoPi * static_cast<float>(k) / static_cast<float>(count);
        part.positions.push_back({std::cos(a), 0, std::sin(a)});
    }
    const auto n = static_cast<std::uint32_t>(count);
    for (std::uint32_t k = 0; k < n; ++k) part.triangles.push_back({0, k + 1, (k + 1) % n + 1, 0});
    return part;
}

// ---- Cases ----

struct Case {
    std::string               name;
    std::function<hv::Part()> make;
    float                     angle = 180.0f;
    int                       level = 0;  ///< 0: smoothing alone
};

struct Run {
    double seconds = 0, work = 0, result_bytes = 0, peak_bytes = 0;
};

double CornerCount(const hv::Part& part)
{
    return static_cast<double>(3 * part.triangles.size() + 4 * part.tetragons.size());
}

void SetShader(const Case& bench)
{
    hv::GeometryShader& geometry = hv::Shaders[0].geometry_shader;
    geometry.smooth_angle        = bench.angle;
    geometry.vector.clear();
    if (bench.level < 1) return;
    geometry.vector.emplace_back().level = bench.level;
    geometry.vector[0].color             = {0.0f, 0.0f, 0.001f};
}

/// Smoothing counts corners; displacement counts the points of all grids. The time of displacement includes the
/// smoothing before it; that of the result, which PreparePart adds, is a case of its own.
Run Measure(const Case& bench)
{
    hv::Part part = bench.make();
    SetShader(bench);
    malloc_trim(0);
    const double before = StatusBytes("VmRSS:") - BytesOf(part);
    ResetPeak();
    Run run;
    run.work = CornerCount(part);
    if (bench.level > 0) {
        const double triangles = static_cast<double>(part.triangles.size() + 2 * part.tetragons.size());
        run.work               = triangles * (bench.level + 1.0) * (bench.level + 2.0) / 2.0;
        run.seconds            = TimeOf([&] { hv::Displace(part); });
        hv::Smooth(part);
    } else {
        run.seconds = TimeOf([&] { hv::Smooth(part); });
    }
    run.result_bytes = BytesOf(part);
    run.peak_bytes   = StatusBytes("VmHWM:") - before;
    return run;
}

/// Runs a case in a child and returns what it found.
Run MeasureApart(const Case& bench, int threads)
{
    int pipes[2];
    Run run;
    if (pipe(pipes) != 0) return run;
    const pid_t child = fork();
    if (child == 0) {
        hvxSetThreadCount(threads);
        run                   = Measure(bench);
        const ssize_t written = write(pipes[1], &run, sizeof run);
        _exit(written == ssize_t{sizeof run} ? 0 : 1);
    }
    close(pipes[1]);
    if (child > 0) {
        if (read(pipes[0], &run, sizeof run) != ssize_t{sizeof run}) run = {};
        waitpid(child, nullptr, 0);
    }
    close(pipes[0]);
    return run;
}

void Report(const Case& bench, int threads, int runs)
{
    std::vector<double> seconds;
    Run                 last;
    for (int k = 0; k < runs; ++k) {
        last = MeasureApart(bench, threads);
        seconds.push_back(last.seconds);
    }
    if (last.work == 0.0) {
        std::printf("%-24s failed\n", bench.name.c_str());
        return;
    }
    std::printf("%-24s %2d threads %9.3f M%s/s %8.3f s  result %8.1f MB  peak %8.1f MB  %5.2f times\n",
                bench.name.c_str(), threads, 1e-6 * last.work / Median(seconds),
                bench.level > 0 ? "points " : "corners", Median(seconds), 1e-6 * last.result_bytes,
                1e-6 * last.peak_bytes, last.peak_bytes / last.result_bytes);
    std::fflush(stdout);
}

hv::Part LoadPart(const std::string& path) { return LoadModel(path) ? std::move(hv::Objects[0].parts[0]) : hv::Part(); }

std::vector<Case> ListCases(const std::string& model)
{
    std::vector<Case> cases;
    if (!model.empty())
        for (const float angle : {180.0f, 30.0f, -1.0f})
            cases.push_back({"model, angle " + std::to_string(static_cast<int>(angle)),
                             [model] { return LoadPart(model); }, angle, 0});
    cases.push_back({"ball 1M, angle 30", [] { return MakeSheet(700, false); }, 30.0f, 0});
    cases.push_back({"cone 100k, angle 180", [] { return MakeCone(100000); }, 180.0f, 0});
    cases.push_back({"cone 100k, angle 30", [] { return MakeCone(100000); }, 30.0f, 0});
    for (const int level : {2, 4, 16})
        cases.push_back(
            {"plane, level " + std::to_string(level), [level] { return MakeSheet(1000 / level, true); }, 30.0f, level});
    cases.push_back({"two triangles, level 1000", [] { return MakeSheet(1, true); }, 30.0f, 1000});
    if (!model.empty()) cases.push_back({"model, level 4", [model] { return LoadPart(model); }, 180.0f, 4});
    return cases;
}

}  // namespace

int main(int argc, char** argv)
{
    std::string      model, only;
    int              runs = 3;
    std::vector<int> threads{1, 2};
    CLI::App         app{"Speed and memory of smoothing and displacement"};
    app.add_option("model", model, "OBJ file")->check(CLI::ExistingFile);
    app.add_option("--only", only, "cases whose name begins so");
    app.add_option("--threads", threads, "thread counts");
    app.add_option("--runs", runs, "timed runs; the median counts")->check(CLI::Range(1, 1000));
    CLI11_PARSE(app, argc, argv);

    hv::EnsureDefaultShader();
    hv::PrepareShaders();
    for (const Case& bench : ListCases(model))
        if (bench.name.rfind(only, 0) == 0)
            for (const int count : threads) Report(bench, count, runs);
    return 0;
}
