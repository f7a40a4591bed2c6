// Renders whole scenes without writing them: paths and rays per second, of the median frame and of all.

#include "hvx.h"
#include "output/camera.h"
#include "session/session.h"
#include "timing.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace {

struct Options {
    std::vector<std::string> scenes;
    int                      width = 480, height = 270, frames = 8, threads = 0;
};

/// Figures of one frame.
struct Frame {
    double seconds;
    double closest, occlusion;  ///< rays
};

/// Called after each frame, when the counters of the library still hold its figures.
bool NoteFrame(int, int, void* user)
{
    static_cast<std::vector<Frame>*>(user)->push_back({1e-6 * static_cast<double>(hv::RenderTime),
                                                       static_cast<double>(hv::RayTotal),
                                                       static_cast<double>(hv::OcclusionTotal)});
    return true;
}

/// Loads a scene with no pictures to write. Models are found from inside its folder, as the command-line host does it.
bool Load(const std::string& scene, const Options& options)
{
    hvStartup();
    if (hvxLoadScene((scene + "/").c_str()) < 0 || hvxGetCameraCount() < 1) return false;
    hvSetCameraResolution(0, options.width, options.height);
    hvSetCameraRegion(0, 0, 0, options.width, options.height);
    hvSetCameraSample(0, options.frames);
    for (int aov = 0; aov < hvxGetCameraAOVCount(0); ++aov) hvSetCameraAOVName(0, aov, "");
    return true;
}

void Print(const std::string& scene, const std::vector<Frame>& frames, const Options& options)
{
    std::vector<double> seconds;
    double              total = 0.0, closest = 0.0, occlusion = 0.0;
    for (const Frame& frame : frames) {
        seconds.push_back(frame.seconds);
        total += frame.seconds;
        closest += frame.closest;
        occlusion += frame.occlusion;
    }
    const double paths = static_cast<double>(options.width) * options.height;
    std::printf(
        "%-10s %8.4f M paths/s of the median frame, %8.4f of all; %7.3f M rays/s, %.1f closest and %.1f shadow a "
        "path\n",
        std::filesystem::path(scene).filename().c_str(), 1e-6 * paths / Median(seconds),
        1e-6 * paths * static_cast<double>(frames.size()) / total, 1e-6 * (closest + occlusion) / total,
        closest / (paths * static_cast<double>(frames.size())),
        occlusion / (paths * static_cast<double>(frames.size())));
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv)
{
    Options  options;
    CLI::App app{"Paths and rays per second of whole renders"};
    app.add_option("scene", options.scenes, "scene folders")->required()->check(CLI::ExistingDirectory);
    app.add_option("--frames", options.frames, "frames")->check(CLI::Range(1, 65535));
    app.add_option("--threads", options.threads, "threads; 0: all");
    CLI11_PARSE(app, argc, argv);

    hvxSetReport(false);
    hvxSetSeed(1);
    hvxSetThreadCount(options.threads);
    const std::filesystem::path start = std::filesystem::current_path();
    for (const std::string& scene : options.scenes) {
        const std::string  folder = std::filesystem::canonical(start / scene).string();
        std::vector<Frame> frames;
        std::filesystem::current_path(folder);
        if (Load(folder, options)) {
            hvxSetFrameCallback(NoteFrame, &frames);
            hvInitialize();
            hvRender();
            Print(folder, frames, options);
        } else {
            std::fprintf(stderr, "%s is no scene with a camera\n", folder.c_str());
        }
        hvFinalize();
        hvShutdown();
        std::filesystem::current_path(start);
    }
    return 0;
}
