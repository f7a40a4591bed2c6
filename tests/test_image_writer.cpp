#include "output/output.h"

#include <FreeImage.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

// One codec of the picture library loses 768 bytes at each save; leaks of ours still count.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() { return "leak:libfreeimage"; }

namespace hv {
namespace {

namespace fs = std::filesystem;

struct ImageWriter : testing::Test {
    ImageWriter()
    {
        StartImageLibrary();
        fs::create_directories(folder_);
    }
    ~ImageWriter() override
    {
        fs::remove_all(folder_);
        StopImageLibrary();
    }

    std::string Path(const std::string& name) const { return (folder_ / name).string(); }

    fs::path folder_ = fs::temp_directory_path() / ("hv_image_writer_" + std::to_string(std::random_device{}()));
};

constexpr float kQuadrants[4][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0.5f, 0.5f, 0.5f}};

const float* QuadrantAt(int x, int y, int width, int height)
{
    return kQuadrants[(y < height / 2 ? 0 : 2) + (x < width / 2 ? 0 : 1)];
}

/// Red, green over blue, grey: mirrored or upside down or with channels exchanged it is another picture.
Image Quadrants(int width, int height, int channels = 3, int bits = 32)
{
    Image image;
    EXPECT_TRUE(AllocateImage(image, width, height, channels, bits, false));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            WriteImagePixel(image, QuadrantAt(x, y, width, height), static_cast<std::uint32_t>(y * width + x));
    return image;
}

struct Row {
    const char* ending;
    int         code;
};

constexpr Row kRows[] = {
    {".bmp", 0},  {".cut", 21},  {".dds", 24},   {".exr", 29}, {".g3", 27},    {".gif", 25},  {".hdr", 26},
    {".ico", 1},  {".iff", 5},   {".j2k", 30},   {".jng", 3},  {".jp2", 31},   {".jpg", 2},   {".jpeg", 2},
    {".koa", 4},  {".mng", 6},   {".pbm", 7},    {".pcd", 9},  {".pfm", 32},   {".pgm", 11},  {".pic", 33},
    {".pct", 33}, {".pict", 33}, {".png", 13},   {".ppm", 14}, {".psd", 20},   {".ras", 16},  {".raw", 34},
    {".sgi", 28}, {".tga", 17},  {".targa", 17}, {".tif", 18}, {".tiff", 18},  {".wap", 19},  {".wabmp", 19},
    {".wbm", 19}, {".xbm", 22},  {".xpm", 23},   {".PNG", 13}, {".TARGA", 17}, {".WBMP", 19}, {".JPEG", 2},
};

struct Pixels {
    int                width = 0, height = 0;
    std::vector<float> values;  ///< from the top

    const float* At(int x, int y) const { return &values[static_cast<std::size_t>(3 * (y * width + x))]; }
};

/// Reads a file the way any viewer does. The rows of a portable float map come from the bottom, but the library takes
/// them from the top.
Pixels ReadBack(const std::string& path, int code)
{
    testing::internal::CaptureStderr();  // one codec complains about its own tags
    Pixels    pixels;
    FIBITMAP* loaded = FreeImage_Load(static_cast<FREE_IMAGE_FORMAT>(code), path.c_str(), 0);
    FIBITMAP* floats = loaded ? FreeImage_ConvertToRGBF(loaded) : nullptr;
    if (floats) {
        pixels.width  = static_cast<int>(FreeImage_GetWidth(floats));
        pixels.height = static_cast<int>(FreeImage_GetHeight(floats));
        for (int y = 0; y < pixels.height; ++y) {
            const int   line = code == FIF_PFM ? y : pixels.height - 1 - y;
            const auto* row  = reinterpret_cast<const float*>(FreeImage_GetScanLine(floats, line));
            pixels.values.insert(pixels.values.end(), row, row + 3 * pixels.width);
        }
        FreeImage_Unload(floats);
    }
    if (loaded) FreeImage_Unload(loaded);
    testing::internal::GetCapturedStderr();
    return pixels;
}

TEST_F(ImageWriter, EveryFormatThatCanBeSavedReadsBackTheRightWayUp)
{
    constexpr int kSize       = 64;  // square, as one of the formats asks for
    int           saved_count = 0;
    for (const auto& [ending, code] : kRows) {
        Image image        = Quadrants(kSize, kSize);
        image.path         = Path(std::string("picture") + ending);
        const bool written = WriteImage(image);
        EXPECT_EQ(written, fs::exists(image.path)) << ending;
        if (!written) continue;
        ++saved_count;
        const bool   is_lossy = code == 2 || code == 3 || code == 30 || code == 31;
        const Pixels pixels   = ReadBack(image.path, code);
        ASSERT_EQ(std::pair(pixels.width, pixels.height), std::pair(kSize, kSize)) << ending;
        for (const auto& [x, y] : {std::pair{8, 8}, {55, 8}, {8, 55}, {55, 55}})
            for (int c = 0; c < 3; ++c)
                EXPECT_NEAR(pixels.At(x, y)[c], QuadrantAt(x, y, kSize, kSize)[c], is_lossy ? 0.15f : 0.004f)
                    << ending << ' ' << x << ' ' << y << ' ' << c;
    }
    EXPECT_GE(saved_count, 20);
}

// Bytes: 255 above 1, else the low 8 bits of the truncated product; a negative value wraps and is not limited.
TEST_F(ImageWriter, BytesAreTruncatedAndWrap)
{
    const std::pair<float, int> cases[] = {{1.0f, 255},  {1.0001f, 255},  {1e30f, 255},  {0.5f, 127}, {0.999f, 254},
                                           {-0.002f, 0}, {-0.004f, 255},  {-1.0f, 1},    {-2.0f, 2},  {-1e30f, 0},
                                           {NAN, 0},     {INFINITY, 255}, {-INFINITY, 0}};
    constexpr int               kCount  = static_cast<int>(std::size(cases));
    for (const int bits : {32, 64}) {
        Image image;
        ASSERT_TRUE(AllocateImage(image, kCount, 1, 3, bits, false));
        for (std::size_t i = 0; i < kCount; ++i) {
            const float rgb[3] = {cases[i].first, 0.0f, 1.0f};
            WriteImagePixel(image, rgb, static_cast<std::uint32_t>(i));
        }
        image.path = Path("wrap.png");
        ASSERT_TRUE(WriteImage(image));
        const Pixels pixels = ReadBack(image.path, 13);
        for (int i = 0; i < kCount; ++i)
            EXPECT_EQ(std::lround(pixels.At(i, 0)[0] * 255.0f), cases[i].second) << cases[i].first;
    }
}

TEST_F(ImageWriter, EveryStoreCanBeWritten)
{
    constexpr int kWidth = 37, kHeight = 6;  // 37: no multiple of the bits of a word
    for (const int channels : {1, 3, 4})
        for (const int bits : {1, 8, 16, 32, 64})
            for (const auto& [name, code] : {std::pair{"store.png", 13}, {"store.pfm", 32}, {"store.exr", 29}}) {
                if (code == FIF_PFM && channels == 4) continue;  // the format has no alpha
                Image image = Quadrants(kWidth, kHeight, channels, bits);
                image.path  = Path(name);
                ASSERT_TRUE(WriteImage(image)) << name << channels << ' ' << bits;
                const Pixels pixels = ReadBack(image.path, code);
                for (const auto& [x, y] : {std::pair{1, 1}, {36, 1}, {1, 5}, {36, 5}})
                    for (int c = 0; c < 3; ++c) {
                        float expected = QuadrantAt(x, y, kWidth, kHeight)[channels == 1 ? 0 : c];
                        if (bits == 1) expected = std::floor(expected);
                        EXPECT_NEAR(pixels.At(x, y)[c], expected, 0.005f) << name << channels << ' ' << bits;
                    }
            }
}

// A name holds an ending when the text stands anywhere in it; rows are tried in their order until one can save.
TEST_F(ImageWriter, NamesAreSearchedAsAWhole)
{
    const std::pair<const char*, int> cases[] = {
        {"a.bmp.png", 0}, {"a.png.bmp", 0}, {"a.gif.png", 13}, {"a.tga.hdr", 26},         {"a.tiff.old", 18},
        {"a.Png", -1},    {"png", -1},      {"a.gif", -1},     {"a.png.d/unwritten", -1},  // -1: nothing is written
    };
    for (const auto& [name, code] : cases) {
        Image image = Quadrants(8, 8);
        image.path  = Path(name);
        EXPECT_EQ(WriteImage(image), code >= 0) << name;
        EXPECT_EQ(FreeImage_GetFileType(image.path.c_str(), 0), code) << name;
    }
}

TEST_F(ImageWriter, FailureIsSilentAndLeavesTheDiskAlone)
{
    std::string observed;
    SetWriteObserver(
        [](const char* path, bool written, void* user) {
            *static_cast<std::string*>(user) += fs::path(path).filename().string() + (written ? " yes " : " no ");
        },
        &observed);
    fs::create_directory(Path("folder.png"));
    std::ofstream(Path("kept.gif")) << "mine";  // this format takes no true colour
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    Image image = Quadrants(4, 4), empty;
    EXPECT_FALSE(WriteImage(image)) << "no name";
    for (const char* name : {"missing/picture.png", "folder.png", "kept.gif", "good.tif"}) {
        image.path = Path(name);
        WriteImage(image);
    }
    empty.path = Path("empty.png");
    WriteImage(empty);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    SetWriteObserver(nullptr, nullptr);
    EXPECT_EQ(observed, "picture.png no folder.png no kept.gif no good.tif yes empty.png no ");
    EXPECT_TRUE(fs::is_directory(Path("folder.png")));
    EXPECT_TRUE(fs::exists(Path("kept.gif"))) << "a file that was there before is not removed";
    EXPECT_FALSE(fs::exists(Path("empty.png")));
}

// The picture library looks at no result of its writes, so that a small picture on a full disk would pass for written.
TEST_F(ImageWriter, FullDisksAreNoticed)
{
    if (!fs::exists("/dev/full")) GTEST_SKIP() << "no /dev/full on this machine";
    Image image = Quadrants(64, 48);
    for (const char* name : {"full.png", "full.hdr", "full.exr", "full.pfm", "full.tif", "full.jpg"}) {
        fs::create_symlink("/dev/full", folder_ / name);
        image.path = Path(name);
        EXPECT_FALSE(WriteImage(image)) << name;
        EXPECT_TRUE(fs::is_symlink(folder_ / name)) << "what was there before is not removed";
    }
}

// ---- Stores ----

TEST(ImageStore, WhatDoesNotFitIsRefusedAndWhatLiesOutsideIsBlack)
{
    const int cases[][4] = {{0, 1, 3, 32}, {-1, -1, 3, 32},           {1, 1, 2, 32},
                            {1, 1, 3, 24}, {1 << 17, 1 << 17, 3, 32}, {1 << 30, 1 << 30, 4, 64}};
    for (const auto& [width, height, channels, bits] : cases) {
        Image image;
        float color[3] = {1, 1, 1};
        ASSERT_TRUE(AllocateImage(image, 2, 2, 3, 8, false));
        WriteImagePixel(image, color, 4);  // beyond the picture
        ReadImagePixel(image, color, 4);
        EXPECT_EQ(color[0] + color[1] + color[2], 0.0f);
        EXPECT_FALSE(AllocateImage(image, width, height, channels, bits, false));
        EXPECT_EQ(image.loaded + image.width + ImageBytes(image), 0);
    }
}

TEST(ImageStore, StatisticsFollowTheirFormula)
{
    Image image;
    ASSERT_TRUE(AllocateImage(image, 31, 17, 3, 32, false));
    std::mt19937                          random(1);
    std::uniform_real_distribution<float> values(0.0f, 4.0f);
    for (float& sample : image.pixels32) sample = values(random);

    // In double precision: one sum of the squared largest channels for all three variances.
    double sum[3] = {}, squares = 0.0;
    for (std::size_t i = 0; i < image.pixels32.size(); i += 3) {
        for (std::size_t c = 0; c < 3; ++c) sum[c] += image.pixels32[i + c];
        squares += std::pow(*std::max_element(&image.pixels32[i], &image.pixels32[i] + 3), 2.0);
    }

    float mean[3], variance[3];
    ImageStatistics(image, mean, variance);
    for (int c = 0; c < 3; ++c) {
        const double expected = sum[c] / (31 * 17);
        EXPECT_NEAR(mean[c], expected, 1e-5);
        EXPECT_NEAR(variance[c], squares / (31 * 17) - expected * expected, 1e-4);
    }
}

}  // namespace
}  // namespace hv
