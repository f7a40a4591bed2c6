// The driver: order of the stages, frames, pixels, what a host sees of them.

#include "output/output.h"
#include "scene_fixture.h"
#include "session/path_stack.h"
#include "session/session.h"
#include "session/settings.h"
#include "shading/shader.h"

#include <omp.h>
#include <pthread.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <regex>
#include <string>

namespace hv {
namespace {

namespace fs = std::filesystem;

/// What `work` prints with the report switched on.
std::string ReportOf(const std::function<void()>& work)
{
    hvxSetReport(true);
    testing::internal::CaptureStdout();
    work();
    std::fflush(stdout);
    hvxSetReport(false);
    return testing::internal::GetCapturedStdout();
}

const std::string kRule = std::string(80, '_') + "\n\n";

std::vector<float> BeautyPixels()
{
    hvxImage image{};
    EXPECT_TRUE(hvxGetCameraAOV(0, 0, &image));
    return {image.pixels, image.pixels + static_cast<std::ptrdiff_t>(image.width) * image.height * image.channels};
}

/// A matte box and a mirror of one quad on a glossy ground: light takes several bounces and random layers.
void FillRoom(TestScene& scene)
{
    scene.LookFrom({3, -4, 3}, {0, 0, 0}, 50);
    const int mixed = scene.AddShader(Element::Lambertian, {0.7f, 0.5f, 0.3f});
    hvAddSurfaceShader(mixed);
    hvSetSurfaceColor(mixed, 1, Element::Specular, 0.9f, 0.9f, 0.9f);
    hvSetSurfaceColor(mixed, 1, Element::Ior, 1.5f, 1.5f, 1.5f);
    hvSetSurfaceColor(mixed, 1, Element::Weight, 1, 1, 1);
    hvSetSurfaceColor(mixed, 0, Element::Weight, 1, 1, 1);
    scene.AddBox(mixed, {-1, -1, -1}, {1, 1, 1});
    scene.AddBall(scene.AddShader(Element::Lambertian, {0.2f, 0.6f, 0.4f}), 1.3f);
    hvSetRendererBounce(2);
}

struct Session : testing::Test {
    Session() { fs::create_directories(folder_); }
    ~Session() override
    {
        hvxSetReport(true);
        hvxSetThreadCount(0);
        hvxSetFrameCallback(nullptr, nullptr);
        hvSetRendererBounce(1);
        hvSetRendererDistance(1);
        hvSetRendererClamp(kFarAway, kFarAway, kFarAway);
        fs::remove_all(folder_);
    }

    std::string Path(const std::string& name) const { return (folder_ / name).string(); }

    fs::path folder_ = fs::temp_directory_path() / ("hv_session_" + std::to_string(std::random_device{}()));
};

// ---- Reports ----

TEST_F(Session, GoRunsAllStagesInTheirOrderAndSurvivesAMissingFolder)
{
    fs::create_directories(folder_ / "camera");
    std::ofstream(folder_ / "camera" / "main.hv") << "camera\nresolution 4 3\nsample 2\nend\n";
    const fs::path before = fs::current_path();
    fs::current_path(folder_);  // where the beauty picture goes
    const std::string report = ReportOf([] { hvGo("."); });
    fs::current_path(before);

    const std::regex opening(
        "_{80}\n\n            halvorne [A-Z][a-z]{2} [ 0-3][0-9] 20[0-9]{2}.{48}\n_{80}\n\nscene parsing ");
    EXPECT_TRUE(std::regex_search(report, opening, std::regex_constants::match_continuous)) << report;
    std::size_t position = 0;
    for (const char* label :
         {"scene parsing", "camera sensor width", "camera memory", "textures", "shaders ", "sky light map width",
          "geometry light area", "parallel lights", "point    lights", "progressive final gathering", "photon cast   ",
          "photon radius ", "renderer sample", "performance", "performance", "avgerage of beauty-",
          "variance of beauty-", "close the window"}) {
        const std::size_t found = report.find(label, position);
        ASSERT_NE(found, std::string::npos) << label << " is missing or out of order in\n" << report;
        position = found + 1;
    }
    EXPECT_EQ(report.find("error"), std::string::npos) << report;
    EXPECT_EQ(ReportOf(RenderFrame), "") << "a frame after the last one does nothing";

    const std::string missing = ReportOf([&] { hvGo(Path("missing").c_str()); });
    EXPECT_NE(missing.find("error :( \tcamera - there is no camera"), std::string::npos);
    EXPECT_EQ(missing.find("performance"), std::string::npos);
    hvGo(nullptr);
}

// ---- Pixels ----

// The picture of a render is the running mean of the samples that hvRenderPixels hands out, to the bit.
TEST_F(Session, PictureIsTheRunningMeanOfItsSamples)
{
    constexpr int      kFrames = 5, kPixels = 12 * 12;
    std::vector<float> picture, mean(kPixels * 3), sample(kPixels * 3);
    for (const bool by_host : {false, true}) {
        TestScene scene(kFrames, 12, 12);
        FillRoom(scene);
        hvInitialize();
        if (!by_host) hvRender();
        for (int frame = 0; by_host && frame < kFrames; ++frame) {
            hvRenderPixels(kPixels, sample.data(), frame);
            const float k = static_cast<float>(frame);
            for (std::size_t i = 0; i < sample.size(); ++i) mean[i] = (k * mean[i] + sample[i]) / (k + 1.0f);
        }
        if (!by_host) picture = BeautyPixels();
    }
    EXPECT_EQ(picture, mean);
}

TEST_F(Session, SeededRendersAreEqualForAnyNumberOfThreads)
{
    const auto picture = [](int threads, std::uint64_t seed) {
        hvxSetThreadCount(threads);
        TestScene scene(3, 32, 24);
        hvxSetSeed(seed);
        hvStartup();
        hvSetRendererDistance(0);
        FillRoom(scene);
        hvInitialize();
        hvRender();
        return BeautyPixels();
    };
    const std::vector<float> alone = picture(1, 1);
    EXPECT_EQ(picture(4, 1), alone);
    EXPECT_NE(picture(0, 2), alone);
}

TEST_F(Session, RegionBoundsWhatIsRendered)
{
    const int cases[][5] = {{1, 2, 4, 3, 3}, {-9, -9, 100, 100, 24}, {3, 3, 1, 1, 0}, {50, 50, 60, 60, 0}};
    for (const auto& [x0, y0, x1, y1, expected] : cases) {
        TestScene scene(1, 6, 4);
        hvSetCameraRegion(0, x0, y0, x1, y1);
        hvInitialize();
        // What a host asks for is cut to what the region holds.
        for (const int count : {-5, 0, 2, 30}) {
            std::vector<float> out(90, -1.0f);
            hvRenderPixels(count, out.data(), -3);
            EXPECT_EQ(std::count(out.begin(), out.end(), 1.0f), 3 * std::clamp(count, 0, expected));
        }
        hvRenderPixels(6, nullptr, 0);
        hvRender();
        for (int i = 0; i < 24; ++i) {
            const int  x = i % 6, y = i / 6;
            const bool inside = x >= x0 && x < x1 && y >= y0 && y < y1;
            EXPECT_EQ(BeautyPixels()[static_cast<std::size_t>(3 * i)], inside ? 1.0f : 0.0f);
        }
    }
}

TEST_F(Session, ClampLimitsSamplesFromAboveOnly)
{
    const Color cases[][3] = {{{5, 5, 5}, {1, 2, 30}, {1, 2, 5}},  // the sky, the limit, what is seen
                              {{INFINITY, 5, 5}, {7, 7, 7}, {7, 5, 5}},
                              {{-3, 1, 1}, {2, -2, 2}, {-3, 0, 1}}};  // limits below 0 are raised to it
    for (const auto& [sky, limit, expected] : cases) {
        TestScene scene(2);
        hvSetSkyLightColor(sky.r, sky.g, sky.b);
        hvSetRendererClamp(limit.r, limit.g, limit.b);
        ExpectColor(scene.RenderPixel(), expected, 0.0f);
    }
}

// ---- Hosts ----

TEST_F(Session, FrameCallbackFollowsAndStopsTheRender)
{
    struct Progress {
        int seen, stop_after;
    };
    const auto observe = [](int finished, int total, void* user) {
        auto& progress = *static_cast<Progress*>(user);
        EXPECT_EQ(total, 5);
        EXPECT_EQ(finished, ++progress.seen);
        return finished < progress.stop_after;
    };
    for (const int stop_after : {2, 5, 100}) {
        TestScene scene(5, 4, 4);
        Progress  progress{0, stop_after};
        hvSetCameraAOVName(0, 0, Path("stopped.hdr").c_str());
        hvxSetFrameCallback(observe, &progress);
        hvInitialize();
        const std::string report = ReportOf(hvRender);
        EXPECT_EQ(progress.seen, std::min(stop_after, 5));
        EXPECT_NE(report.find("happy rendering"), std::string::npos);
        EXPECT_EQ(report.find("happy rendering"), report.rfind("happy rendering")) << "closed once";
        EXPECT_TRUE(fs::remove(Path("stopped.hdr")));
        EXPECT_EQ(BeautyPixels()[0], 1.0f) << "the mean of the frames so far";
    }
}

TEST_F(Session, FinalizeWritesAgainFromLastCameraToFirst)
{
    std::string written;
    {
        TestScene scene(1);
        hvAddCamera();
        for (const int camera : {0, 1}) {
            hvAddCameraAOV(camera);
            hvSetCameraResolution(camera, 2, 2);
            for (const int aov : {0, 1})
                hvSetCameraAOVName(camera, aov, Path(std::to_string(camera) + std::to_string(aov) + ".hdr").c_str());
        }
        hvInitialize();
        hvxSetWriteCallback(
            [](const char* path, bool ok, void* user) {
                EXPECT_TRUE(ok);
                *static_cast<std::string*>(user) += fs::path(path).stem().string() + " ";
            },
            &written);
        hvRender();
    }
    hvxSetWriteCallback(nullptr, nullptr);
    EXPECT_EQ(written, "00 01 10 11 00 01 ");
}

// ---- Misuse ----

// Nothing records the order of the calls, so every order has to end well.
TEST_F(Session, StagesMayComeInAnyOrder)
{
    using Stage             = void (*)();
    const Stage few_photons = [] {  // many stages bring the defaults back
        hvSetSkyLightPhoton(500);
        hvSetGeometryLightPhoton(500);
    };
    const Stage render_pixels = [] {
        float out[12];
        hvRenderPixels(4, out, 0);
    };
    const Stage add_camera = [] {
        const int camera = hvAddCamera();
        hvSetCameraAOVName(camera, 0, "");
        hvSetCameraResolution(camera, 3, 2);
        hvSetCameraSample(camera, 2);
    };
    const Stage change_film  = [] { hvSetCameraResolution(0, 5, 5); };
    const Stage no_samples   = [] { hvSetCameraSample(0, 0); };
    const Stage deep_paths   = [] { hvSetRendererRayDepth(1000000); };
    const Stage add_instance = [] {
        const int   object = hvAddObject(), part = hvAddPart(object);
        const float corners[] = {-9, 2, -9, 9, 2, -9, 0, 2, 9};
        const int   indices[] = {0, 1, 2};
        hvAddPositions(object, part, 3, corners);
        hvAddTriangles(object, part, 1, indices);
        hvSetInstance(object, hvAddInstance(object), object - 1, nullptr, 0);
    };
    // clang-format off
    const Stage stages[] = {
        hvStartup, hvInitialize, hvRender, hvFinalize, hvShutdown, RenderFrame, CloseRender,
        hvInitializeCameras, hvInitializeShaders, hvInitializeAccelerator, hvInitializeSkyLight, hvInitializeGaffer,
        hvInitializeRenderer, hvFinalizeCameras, hvFinalizeShaders, hvFinalizeAccelerator, hvFinalizeSkyLight,
        hvFinalizeGaffer, hvFinalizeRenderer,
        render_pixels, add_camera, change_film, no_samples, deep_paths, add_instance};
    // clang-format on
    hvxSetReport(false);
    std::mt19937 random(7);
    for (int round = 0; round < 60; ++round) {
        for (int step = 0; step < 25; ++step) {
            few_photons();
            stages[random() % std::size(stages)]();
        }
        hvFinalize();
        hvShutdown();
    }
}

// Buffers have the size that the film had at preparation; whatever is set later, no pixel may fall outside of them.
TEST_F(Session, FilmsChangedAfterPreparationAreNotRendered)
{
    TestScene scene(2, 4, 4);
    hvInitialize();
    hvSetCameraResolution(0, 4000, 4000);
    hvSetCameraRegion(0, 0, 0, 4000, 4000);
    std::vector<float> out(64, -1.0f);
    hvRenderPixels(16, out.data(), 0);
    EXPECT_EQ(out[0], -1.0f);
    EXPECT_EQ(ReportOf(hvRender), "error :( \tcamera - the film is not prepared, nothing is rendered\n" + kRule);
    EXPECT_EQ(BeautyPixels(), std::vector<float>(48, 0.0f));
}

// Two mirrors that face each other keep a path alive to its depth, on every thread's stack.
TEST_F(Session, LongestPathFitsTheStackOfEveryThread)
{
    hvxSetThreadCount(4);
    TestScene scene(1, 8, 8);
    scene.LookFrom({0, 0, 0}, {0, 1, 0}, 20);
    const int mirror = scene.AddShader(Element::Specular, kWhite);
    scene.SetSlot(mirror, Element::Ior, kWhite * 1e4f);  // reflects all but all of it
    scene.AddScreen(mirror, 1.0f);
    scene.AddQuad(mirror, {{10, -1, -10}, {-10, -1, -10}, {-10, -1, 10}, {10, -1, 10}});
    hvSetSkyLightColor(0, 0, 0);
    hvSetRendererRayDepth(255);
    hvInitialize();
    EXPECT_EQ(Settings.RayDepth, 255) << "the system's usual stacks hold the longest path";
    hvRender();
    EXPECT_GT(RayTotal, 64u * 10u);
}

// A host may call from a thread of its own with little stack: paths get shorter before they get dangerous.
TEST_F(Session, SmallStacksShortenPaths)
{
    const auto ask = [](void* deepest) -> void* {
        omp_set_num_threads(1);
        *static_cast<int*>(deepest) = DeepestPath();
        return nullptr;
    };
    hvxSetThreadCount(1);
    int            deepest = 0;
    pthread_t      thread;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 1 << 20);
    ASSERT_EQ(pthread_create(&thread, &attributes, ask, &deepest), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    EXPECT_GE(deepest, 1);
    EXPECT_LT(deepest, 255);
}

}  // namespace
}  // namespace hv
