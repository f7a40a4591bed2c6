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
#include <sstream>
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

/// Replaces every right-aligned value of 16 columns by one mark, so that a transcript can be compared as text.
std::string WithoutValues(const std::string& report)
{
    static const std::regex value("(?=.{16}( |\n)) *-?(inf|nan|[0-9]+(\\.[0-9]{4})?)(?=  | \\[| \n)");
    return std::regex_replace(report, value, "#");
}

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

class Session : public testing::Test {
protected:
    void SetUp() override
    {
        folder_ = fs::temp_directory_path() / ("hv_session_" + std::to_string(std::random_device{}()));
        fs::create_directories(folder_);
    }
    void TearDown() override
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

    fs::path folder_;
};

// ---- Reports ----

TEST_F(Session, RenderReportsEveryFrameAndItsEnd)
{
    TestScene scene(2, 4, 4);
    scene.AddBall(scene.AddShader(Element::Lambertian, {0.5f, 0.5f, 0.5f}));
    hvSetCameraAOVName(0, 0, Path("picture.hdr").c_str());
    hvInitialize();
    const std::string performance = "performance # [ M rays/second ]     # [ frames/second ]\n";
    const std::string name        = Path("picture.hdr");
    const std::string expected    = performance + performance + kRule + "avgerage of " + name + " #  #  # [ n/a ]\n" +
                                 "variance of " + name + " #  #  # [ n/a ]\n" + kRule +
                                 "            close the window to exit. happy rendering :) thank you!\n" + kRule;
    EXPECT_EQ(WithoutValues(ReportOf(hvRender)), expected);
    EXPECT_TRUE(fs::exists(name));
    EXPECT_EQ(ReportOf(RenderFrame), "") << "a frame after the last one does nothing";
}

// The two lines of statistics say the same as the picture on disk.
TEST_F(Session, StatisticsDescribeTheWrittenPicture)
{
    TestScene scene(3, 8, 8);
    FillRoom(scene);
    hvSetCameraAOVName(0, 0, Path("picture.pfm").c_str());
    hvInitialize();
    const std::string report = ReportOf(hvRender);

    std::ifstream file(Path("picture.pfm"), std::ios::binary);
    std::string   line;
    for (int i = 0; i < 3; ++i) std::getline(file, line);
    std::vector<float> pixels(8 * 8 * 3);
    file.read(reinterpret_cast<char*>(pixels.data()), static_cast<std::streamsize>(pixels.size() * sizeof(float)));
    ASSERT_TRUE(file.good());
    double mean[3] = {}, square = 0;
    for (std::size_t i = 0; i < pixels.size(); i += 3) {
        for (std::size_t c = 0; c < 3; ++c) mean[c] += pixels[i + c] / 64.0;
        square += std::pow(std::max({pixels[i], pixels[i + 1], pixels[i + 2]}), 2.0) / 64.0;
    }
    std::istringstream means(report.substr(report.find("picture.pfm") + 11));
    std::istringstream variances(report.substr(report.find("picture.pfm", report.find("variance")) + 11));
    for (const double expected : mean) {
        double printed_mean = 0, printed_variance = 0;
        means >> printed_mean;
        variances >> printed_variance;
        EXPECT_NEAR(printed_mean, expected, 1e-4);
        EXPECT_NEAR(printed_variance, square - expected * expected, 1e-3);
    }
}

TEST_F(Session, GoBeginsWithItsBannerAndSurvivesAMissingFolder)
{
    for (int run = 0; run < 2; ++run) {
        const std::string report = ReportOf([&] { hvGo(Path("missing").c_str()); });
        ASSERT_EQ(report.rfind(kRule, 0), 0u) << report;
        const std::string banner = report.substr(kRule.size(), 80);
        EXPECT_EQ(banner.rfind("            halvorne ", 0), 0u);
        EXPECT_TRUE(std::regex_match(banner.substr(21, 11), std::regex("[A-Z][a-z]{2} [ 0-3][0-9] 20[0-9]{2}")));
        EXPECT_EQ(banner.find('\n'), std::string::npos);
        const std::string opening = "\n" + kRule + "scene parsing # [ seconds ]\n" + kRule + "textures";
        EXPECT_EQ(WithoutValues(report).substr(kRule.size() + 80, opening.size()), opening) << report;
        EXPECT_NE(report.find("error :( \tcamera - there is no camera"), std::string::npos);
        EXPECT_EQ(report.find("performance"), std::string::npos);
    }
    hvGo(nullptr);
}

TEST_F(Session, GoRunsAllStagesInTheirOrder)
{
    fs::create_directories(folder_ / "camera");
    std::ofstream(folder_ / "camera" / "main.hv") << "camera\nresolution 4 3\nsample 2\nend\n";
    const fs::path before = fs::current_path();
    fs::current_path(folder_);  // where the beauty picture goes
    const std::string report = ReportOf([] { hvGo("."); });
    fs::current_path(before);

    std::size_t        position = 0;
    std::istringstream labels(
        "halvorne,scene parsing,camera sensor width,camera sensor height,camera memory,textures,"
        "shaders ,sky light map width,geometry light area,parallel lights,point    lights,"
        "progressive final gathering,photon cast   ,photon radius ,renderer sample,performance,"
        "performance,avgerage of beauty-,variance of beauty-,close the window");
    for (std::string label; std::getline(labels, label, ',');) {
        const std::size_t found = report.find(label, position);
        ASSERT_NE(found, std::string::npos) << label << " is missing or out of order in\n" << report;
        position = found + 1;
    }
    EXPECT_EQ(report.find("error"), std::string::npos) << report;
    std::size_t picture_count = 0;
    for (const auto& file : fs::directory_iterator(folder_)) picture_count += file.path().extension() == ".hdr";
    EXPECT_EQ(picture_count, 1u);
    EXPECT_EQ(hvxGetCameraCount(), 0);
}

TEST_F(Session, NoCameraMeansOneErrorAndNoFrames)
{
    hvxSetReport(false);
    hvStartup();
    const std::string report = ReportOf(hvInitializeRenderer);
    EXPECT_EQ(report.rfind("error :( \t", 0), 0u);
    EXPECT_EQ(report.substr(report.find('\n') + 1), kRule);
    EXPECT_EQ(ReportOf(hvRender), "");
    float out[3];
    hvRenderPixels(1, out, 0);
    hvFinalize();
    hvShutdown();
}

// ---- Pixels ----

// The picture of a render is the running mean of the samples that hvRenderPixels hands out, to the bit.
TEST_F(Session, PictureIsTheRunningMeanOfItsSamples)
{
    constexpr int      kFrames = 5, kSize = 12;
    std::vector<float> picture, mean(kSize * kSize * 3), sample(kSize * kSize * 3);
    for (const bool by_host : {false, true}) {
        TestScene scene(kFrames, kSize, kSize);
        FillRoom(scene);
        hvInitialize();
        if (!by_host) {
            hvRender();
            picture = BeautyPixels();
            continue;
        }
        for (int frame = 0; frame < kFrames; ++frame) {
            hvRenderPixels(kSize * kSize, sample.data(), frame);
            const float k = static_cast<float>(frame);
            for (std::size_t i = 0; i < sample.size(); ++i) mean[i] = (k * mean[i] + sample[i]) / (k + 1.0f);
        }
        const std::vector<float> added = BeautyPixels();
        for (std::size_t i = 0; i < mean.size(); ++i) EXPECT_NEAR(added[i], mean[i], 1e-5f * (1.0f + mean[i]));
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
    EXPECT_EQ(picture(3, 1), alone);
    EXPECT_NE(picture(0, 2), alone);
}

TEST_F(Session, RegionBoundsWhatIsRendered)
{
    const int cases[][5] = {
        {1, 2, 4, 3, 3}, {-9, -9, 100, 100, 24}, {2, 2, 2, 3, 0}, {3, 3, 1, 1, 0}, {50, 50, 60, 60, 0}};
    for (const auto& [x0, y0, x1, y1, expected] : cases) {
        TestScene scene(1, 6, 4);
        hvSetCameraRegion(0, x0, y0, x1, y1);
        hvInitialize();
        // What a host asks for is cut to what the region holds.
        for (const int count : {-5, 0, 2, 30}) {
            std::vector<float> out(90, -1.0f);
            hvRenderPixels(count, out.data(), -3);
            EXPECT_EQ(std::count(out.begin(), out.end(), 1.0f), 3 * std::clamp(count, 0, expected));
            EXPECT_EQ(std::count(out.begin(), out.end(), -1.0f), 90 - 3 * std::clamp(count, 0, expected));
        }
        hvRenderPixels(6, nullptr, 0);
        hvRender();
        const std::vector<float> pixels = BeautyPixels();
        for (int i = 0; i < 24; ++i) {
            const int  x = i % 6, y = i / 6;
            const bool inside = x >= x0 && x < x1 && y >= y0 && y < y1;
            EXPECT_EQ(pixels[static_cast<std::size_t>(3 * i)], inside ? 1.0f : 0.0f);
        }
    }
}

TEST_F(Session, ClampLimitsSamplesFromAboveOnly)
{
    const struct {
        Color sky, clamp, expected;
    } cases[] = {{{5, 5, 5}, {1, 2, 30}, {1, 2, 5}},
                 {{INFINITY, 5, 5}, {7, 7, 7}, {7, 5, 5}},
                 {{1, 1, 1}, {-2, 1, 1}, {0, 1, 1}},  // limits below 0 are raised to it
                 {{-3, 1, 1}, {2, 2, 2}, {-3, 1, 1}}};
    for (const auto& test : cases) {
        TestScene scene(2);
        hvSetSkyLightColor(test.sky.r, test.sky.g, test.sky.b);
        hvSetRendererClamp(test.clamp.r, test.clamp.g, test.clamp.b);
        ExpectColor(scene.RenderPixel(), test.expected, 0.0f);
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
        TestScene         scene(5, 4, 4);
        const std::string picture = Path("stopped" + std::to_string(stop_after) + ".hdr");
        hvSetCameraAOVName(0, 0, picture.c_str());
        Progress progress{0, stop_after};
        hvxSetFrameCallback(observe, &progress);
        hvInitialize();
        const std::string report = ReportOf(hvRender);
        EXPECT_EQ(progress.seen, std::min(stop_after, 5));
        EXPECT_NE(report.find("happy rendering"), std::string::npos);
        EXPECT_EQ(report.find("happy rendering"), report.rfind("happy rendering")) << "closed once";
        EXPECT_TRUE(fs::exists(picture));
        EXPECT_EQ(BeautyPixels()[0], 1.0f) << "the mean of the frames so far";
    }
}

TEST_F(Session, FinalizeWritesAgainFromLastCameraToFirst)
{
    std::vector<std::string> written;
    {
        TestScene scene(1);
        for (int camera = 0; camera < 2; ++camera) {
            if (camera > 0) hvAddCamera();
            hvAddCameraAOV(camera);
            hvSetCameraResolution(camera, 2, 2);
            for (int aov = 0; aov < 2; ++aov)
                hvSetCameraAOVName(camera, aov, Path(std::to_string(camera) + std::to_string(aov) + ".hdr").c_str());
        }
        hvInitialize();
        hvxSetWriteCallback(
            [](const char* path, bool ok, void* user) {
                EXPECT_TRUE(ok);
                static_cast<std::vector<std::string>*>(user)->push_back(fs::path(path).stem().string());
            },
            &written);
        hvRender();
    }
    hvxSetWriteCallback(nullptr, nullptr);
    EXPECT_EQ(written, (std::vector<std::string>{"00", "01", "10", "11", "00", "01"}));
    EXPECT_EQ(hvxGetCameraCount(), 0);
    EXPECT_TRUE(Shaders.empty());
}

TEST_F(Session, AskingForWhatIsNotThereIsAnswered)
{
    TestScene scene(3, 5, 4);
    int       width = 0, height = 0, sample = 0;
    hvxImage  image{7, 7, 7, nullptr};
    EXPECT_TRUE(hvxGetCamera(0, &width, &height, &sample));
    EXPECT_EQ(width * 100 + height * 10 + sample, 543);
    EXPECT_TRUE(hvxGetCamera(0, nullptr, nullptr, nullptr));
    for (const int camera : {-1, 1, 1 << 30}) {
        EXPECT_FALSE(hvxGetCamera(camera, &width, &height, &sample));
        EXPECT_FALSE(hvxGetCameraAOV(camera, 0, &image));
        EXPECT_EQ(hvxGetCameraAOVCount(camera), 0);
    }
    EXPECT_FALSE(hvxGetCameraAOV(0, 0, &image)) << "not prepared yet";
    hvInitializeCameras();
    EXPECT_FALSE(hvxGetCameraAOV(0, 1, &image));
    EXPECT_FALSE(hvxGetCameraAOV(0, 0, nullptr));
    EXPECT_EQ(hvxLoadScene(nullptr), -1);
    EXPECT_EQ(hvxLoadScene(Path("missing").c_str()), -1);
}

// ---- Misuse ----

// Nothing records the order of the calls, so every order has to end well.
TEST_F(Session, StagesMayComeInAnyOrder)
{
    using Stage               = void (*)();
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
    const Stage change_film  = [] { hvSetCameraResolution(0, 5, 5), hvSetCameraSample(0, 3); };
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
        hvInitializeCameras, hvInitializeShaders, hvInitializeAccelerator,
        hvInitializeSkyLight, hvInitializeGaffer, hvInitializeRenderer,
        hvFinalizeCameras, hvFinalizeShaders, hvFinalizeAccelerator,
        hvFinalizeSkyLight, hvFinalizeGaffer, hvFinalizeRenderer,
        render_pixels, add_camera, change_film, no_samples, deep_paths, add_instance};
    // clang-format on
    hvxSetReport(false);
    std::mt19937 random(7);
    for (int round = 0; round < 60; ++round) {
        for (int step = 0; step < 25; ++step) stages[random() % std::size(stages)]();
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
