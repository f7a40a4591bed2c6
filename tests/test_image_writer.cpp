#include "output/output.h"
#include "session/sampling.h"

#include <FreeImage.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

// One codec of the picture library loses 768 bytes at each save; leaks of ours still count.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() { return "leak:libfreeimage"; }

namespace hv {
namespace {

namespace fs = std::filesystem;

class ImageWriter : public testing::Test {
protected:
    void SetUp() override
    {
        StartImageLibrary();
        folder_ = fs::temp_directory_path() / ("hv_image_writer_" + std::to_string(std::random_device{}()) +
                                               testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::create_directories(folder_);
    }
    void TearDown() override
    {
        fs::remove_all(folder_);
        StopImageLibrary();
    }

    std::string Path(const std::string& name) const { return (folder_ / name).string(); }
    bool        Exists(const std::string& name) const { return fs::exists(folder_ / name); }

    fs::path folder_;
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
    const char *lower, *upper;
    int         code;
};

constexpr Row kRows[] = {
    {".bmp", ".BMP", 0},    {".cut", ".CUT", 21},  {".dds", ".DDS", 24},     {".exr", ".EXR", 29},
    {".g3", ".G3", 27},     {".gif", ".GIF", 25},  {".hdr", ".HDR", 26},     {".ico", ".ICO", 1},
    {".iff", ".IFF", 5},    {".j2k", ".J2K", 30},  {".jng", ".JNG", 3},      {".jp2", ".JP2", 31},
    {".jpg", ".JPG", 2},    {".jpeg", ".JPEG", 2}, {".koa", ".KOA", 4},      {".mng", ".MNG", 6},
    {".pbm", ".PBM", 7},    {".pcd", ".PCD", 9},   {".pfm", ".PFM", 32},     {".pgm", ".PGM", 11},
    {".pic", ".PIC", 33},   {".pct", ".PCT", 33},  {".pict", ".PICT", 33},   {".png", ".PNG", 13},
    {".ppm", ".PPM", 14},   {".psd", ".PSD", 20},  {".ras", ".RAS", 16},     {".raw", ".RAW", 34},
    {".sgi", ".SGI", 28},   {".tga", ".TGA", 17},  {".targa", ".TARGA", 17}, {".tif", ".TIF", 18},
    {".tiff", ".TIFF", 18}, {".wap", ".WAP", 19},  {".wabmp", ".WBMP", 19},  {".wbm", ".WBM", 19},
    {".xbm", ".XBM", 22},   {".xpm", ".XPM", 23},
};

struct Pixels {
    int                width = 0, height = 0;
    std::vector<float> values;  ///< from the top

    const float* At(int x, int y) const { return &values[static_cast<std::size_t>(3 * (y * width + x))]; }
};

/// Reads a file the way any viewer does.
Pixels ReadBack(const std::string& path, int code)
{
    testing::internal::CaptureStderr();  // one codec complains about its own tags
    Pixels    pixels;
    FIBITMAP* loaded = FreeImage_Load(static_cast<FREE_IMAGE_FORMAT>(code), path.c_str(), 0);
    FIBITMAP* floats = loaded ? FreeImage_ConvertToRGBF(loaded) : nullptr;
    if (floats) {
        pixels.width  = static_cast<int>(FreeImage_GetWidth(floats));
        pixels.height = static_cast<int>(FreeImage_GetHeight(floats));
        for (int y = pixels.height - 1; y >= 0; --y) {
            const auto* row = reinterpret_cast<const float*>(FreeImage_GetScanLine(floats, y));
            pixels.values.insert(pixels.values.end(), row, row + 3 * pixels.width);
        }
        FreeImage_Unload(floats);
    }
    if (loaded) FreeImage_Unload(loaded);
    testing::internal::GetCapturedStderr();
    return pixels;
}

/// Portable float map as its format is defined: rows from the bottom, little-endian for a negative scale.
Pixels ReadFloatMap(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::string   magic;
    float         scale = 0.0f;
    Pixels        pixels;
    file >> magic >> pixels.width >> pixels.height >> scale;
    file.get();
    EXPECT_EQ(magic, "PF");
    EXPECT_LT(scale, 0.0f);
    const auto row = static_cast<std::size_t>(3 * pixels.width);
    pixels.values.resize(row * static_cast<std::size_t>(pixels.height));
    for (int y = pixels.height - 1; y >= 0; --y)
        file.read(reinterpret_cast<char*>(&pixels.values[row * static_cast<std::size_t>(y)]),
                  static_cast<std::streamsize>(row * sizeof(float)));
    EXPECT_TRUE(file.good());
    return pixels;
}

bool IsFloatFormat(int code) { return code == 26 || code == 29 || code == 32; }

bool IsLossy(int code) { return code == 2 || code == 3 || code == 30 || code == 31; }

bool CanSave(int code)
{
    const auto format = static_cast<FREE_IMAGE_FORMAT>(code);
    if (!FreeImage_FIFSupportsWriting(format)) return false;
    return IsFloatFormat(code) ? FreeImage_FIFSupportsExportType(format, FIT_RGBF)
                               : FreeImage_FIFSupportsExportBPP(format, 24);
}

TEST_F(ImageWriter, EveryFormatThatCanBeSavedReadsBackTheRightWayUp)
{
    constexpr int kSize = 64;  // square, as one of the formats asks for

    int saved_count = 0;
    for (const Row& row : kRows) {
        for (const char* ending : {row.lower, row.upper}) {
            Image             image = Quadrants(kSize, kSize);
            const std::string name  = std::string("picture") + ending;
            image.path              = Path(name);
            const bool written      = WriteImage(image);
            EXPECT_EQ(written, Exists(name)) << name;
            EXPECT_EQ(written, CanSave(row.code)) << name;
            if (!written) continue;

            ++saved_count;
            const Pixels pixels = row.code == 32 ? ReadFloatMap(image.path) : ReadBack(image.path, row.code);
            ASSERT_EQ(pixels.width, kSize) << name;
            ASSERT_EQ(pixels.height, kSize) << name;
            for (const auto& [x, y] : {std::pair{8, 8}, {55, 8}, {8, 55}, {55, 55}})
                for (int c = 0; c < 3; ++c)
                    EXPECT_NEAR(pixels.At(x, y)[c], QuadrantAt(x, y, kSize, kSize)[c],
                                IsLossy(row.code) ? 0.15f : 0.004f)
                        << name << ' ' << x << ' ' << y << ' ' << c;
        }
    }
    EXPECT_GE(saved_count, 20);
}

TEST_F(ImageWriter, ValuesGoAsTheyStandIntoFloatFiles)
{
    Image       image     = Quadrants(3, 2);
    const float values[3] = {-2.5f, 1000.25f, 0.125f};
    WriteImagePixel(image, values, 1);
    image.path = Path("a.pfm");
    ASSERT_TRUE(WriteImage(image));
    const Pixels pixels = ReadFloatMap(image.path);
    EXPECT_EQ(std::memcmp(pixels.values.data(), image.pixels32.data(), sizeof(float) * 18), 0);
}

// Bytes: 255 above 1, else the low 8 bits of the truncated product; a negative value wraps and is not limited.
TEST_F(ImageWriter, BytesAreTruncatedAndWrap)
{
    const struct {
        float value;
        int   byte;
    } cases[] = {{0.0f, 0},
                 {1.0f, 255},
                 {1.0001f, 255},
                 {1e30f, 255},
                 {0.5f, 127},
                 {0.999f, 254},
                 {-0.002f, 0},
                 {-0.004f, 255},
                 {-0.5f, 129},
                 {-1.0f, 1},
                 {-2.0f, 2},
                 {-1e30f, 0},
                 {std::numeric_limits<float>::infinity(), 255},
                 {-std::numeric_limits<float>::infinity(), 0},
                 {std::numeric_limits<float>::quiet_NaN(), 0}};
    for (const int bits : {32, 64}) {
        Image image;
        ASSERT_TRUE(AllocateImage(image, static_cast<int>(std::size(cases)), 1, 3, bits, false));
        for (std::size_t i = 0; i < std::size(cases); ++i) {
            const float rgb[3] = {cases[i].value, 0.0f, 1.0f};
            WriteImagePixel(image, rgb, static_cast<std::uint32_t>(i));
        }
        image.path = Path("wrap.png");
        ASSERT_TRUE(WriteImage(image));
        const Pixels pixels = ReadBack(image.path, 13);
        for (std::size_t i = 0; i < std::size(cases); ++i)
            EXPECT_EQ(std::lround(pixels.At(static_cast<int>(i), 0)[0] * 255.0f), cases[i].byte) << cases[i].value;
    }
}

TEST_F(ImageWriter, EveryStoreCanBeWritten)
{
    constexpr int kWidth = 37, kHeight = 6;  // 37: no multiple of the bits of a word

    for (const int channels : {1, 3, 4}) {
        for (const int bits : {1, 8, 16, 32, 64}) {
            for (const char* name : {"store.png", "store.pfm", "store.exr"}) {
                Image image       = Quadrants(kWidth, kHeight, channels, bits);
                image.path        = Path(name);
                const bool is_map = std::strcmp(name, "store.pfm") == 0;
                if (is_map && channels == 4) continue;  // the format has no alpha
                ASSERT_TRUE(WriteImage(image)) << name << channels << ' ' << bits;
                const int    code   = std::strcmp(name, "store.png") == 0 ? 13 : 29;
                const Pixels pixels = is_map ? ReadFloatMap(image.path) : ReadBack(image.path, code);
                for (const auto& [x, y] : {std::pair{1, 1}, {36, 1}, {1, 5}, {36, 5}}) {
                    const float* source = QuadrantAt(x, y, kWidth, kHeight);
                    for (int c = 0; c < 3; ++c) {
                        float expected = source[channels == 1 ? 0 : c];
                        if (bits == 1) expected = expected >= 1.0f ? 1.0f : 0.0f;
                        EXPECT_NEAR(pixels.At(x, y)[c], expected, 0.005f) << name << channels << ' ' << bits;
                    }
                }
            }
        }
    }
}

// A name holds an ending when the text stands anywhere in it; rows are tried in their order until one can save.
TEST_F(ImageWriter, NamesAreSearchedAsAWhole)
{
    const struct {
        const char* name;
        int         code;  ///< -1: nothing is written
    } cases[] = {
        {"a.bmp.png", 0},
        {"a.png.bmp", 0},
        {"a.gif.png", 13},
        {"a.tga.hdr", 26},
        {"a.tiff.old", 18},
        {"a.PNG", 13},
        {"a.Png", -1},
        {"png", -1},
        {"a", -1},
        {"a.gif", -1},
        {"a.png.d/unwritten", -1},
    };
    for (const auto& test : cases) {
        Image image = Quadrants(8, 8);
        image.path  = Path(test.name);
        EXPECT_EQ(WriteImage(image), test.code >= 0) << test.name;
        EXPECT_EQ(Exists(test.name), test.code >= 0) << test.name;
        if (test.code < 0) continue;
        EXPECT_EQ(FreeImage_GetFileType(image.path.c_str(), 0), test.code) << test.name;
    }
}

TEST_F(ImageWriter, FailureIsSilentAndLeavesTheDiskAlone)
{
    std::vector<std::string> observed;
    SetWriteObserver(
        [](const char* path, bool written, void* user) {
            static_cast<std::vector<std::string>*>(user)->push_back(std::string(path) + (written ? " yes" : " no"));
        },
        &observed);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();

    Image image = Quadrants(4, 4);
    EXPECT_FALSE(WriteImage(image)) << "no name";
    image.path = Path("missing/picture.png");
    EXPECT_FALSE(WriteImage(image));
    fs::create_directory(folder_ / "folder.png");
    image.path = Path("folder.png");
    EXPECT_FALSE(WriteImage(image));
    EXPECT_TRUE(fs::is_directory(folder_ / "folder.png"));

    std::ofstream(Path("kept.gif")) << "mine";
    image.path = Path("kept.gif");  // this format takes no true colour
    EXPECT_FALSE(WriteImage(image));
    EXPECT_TRUE(Exists("kept.gif")) << "a file that was there before is not removed";

    Image empty;
    empty.path = Path("empty.png");
    EXPECT_FALSE(WriteImage(empty));
    EXPECT_FALSE(Exists("empty.png"));
    image.path = Path("good.tif");
    EXPECT_TRUE(WriteImage(image));

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    SetWriteObserver(nullptr, nullptr);
    const std::vector<std::string> expected = {Path("missing/picture.png") + " no", Path("folder.png") + " no",
                                               Path("kept.gif") + " no", Path("empty.png") + " no",
                                               Path("good.tif") + " yes"};
    EXPECT_EQ(observed, expected);
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

TEST_F(ImageWriter, PictureLibraryMayBeStartedAndStoppedInAnyOrder)
{
    StopImageLibrary();
    StopImageLibrary();
    StartImageLibrary();
    StartImageLibrary();
    Image image = Quadrants(4, 4);
    image.path  = Path("again.png");
    EXPECT_TRUE(WriteImage(image));
}

// ---- Stores ----

TEST(ImageStore, RefusesWhatDoesNotFit)
{
    const struct {
        int width, height, channels, bits;
    } cases[] = {{0, 1, 3, 32},
                 {1, 0, 3, 32},
                 {-1, -1, 3, 32},
                 {1, 1, 0, 32},
                 {1, 1, 2, 32},
                 {1, 1, 3, 24},
                 {1, 1, 3, -32},
                 {1 << 17, 1 << 17, 3, 32},
                 {2147483647, 2147483647, 4, 64}};
    for (const auto& test : cases) {
        Image image;
        ASSERT_TRUE(AllocateImage(image, 2, 2, 3, 8, false));
        EXPECT_FALSE(AllocateImage(image, test.width, test.height, test.channels, test.bits, false));
        EXPECT_FALSE(image.loaded);
        EXPECT_EQ(image.width, 0);
        EXPECT_EQ(ImageBytes(image), 0);
        float out[3] = {1, 1, 1};
        ReadImagePixel(image, out, 0);
        EXPECT_EQ(out[0] + out[1] + out[2], 0.0f);
        WriteImagePixel(image, out, 0);
    }
}

TEST(ImageStore, PixelsComeBackByDepth)
{
    const float in[3] = {0.25f, -1.0f, 7.0f};
    const struct {
        int   bits;
        float out[3];
    } cases[] = {{1, {0, 0, 1}},
                 {8, {63 * 0.0039215684f, 0, 255 * 0.0039215684f}},
                 {16, {16383 * 0.0039215684f, 0, 65535 * 0.0039215684f}},  // meant: the scale of a byte here too
                 {32, {0.25f, -1, 7}},
                 {64, {0.25f, -1, 7}}};
    for (const auto& test : cases) {
        for (const int channels : {1, 3, 4}) {
            Image image;
            ASSERT_TRUE(AllocateImage(image, 11, 3, channels, test.bits, false));
            WriteImagePixel(image, in, 32);
            WriteImagePixel(image, in, 33);  // beyond the picture
            float out[3];
            ReadImagePixel(image, out, 32);
            for (int c = 0; c < 3; ++c) EXPECT_FLOAT_EQ(out[c], test.out[channels == 1 ? 0 : c]) << test.bits;
            ReadImagePixel(image, out, 31);
            EXPECT_EQ(out[0], 0.0f);
            ReadImagePixel(image, out, 33);
            EXPECT_EQ(out[0], 0.0f);
        }
    }
}

TEST(ImageStore, PackedPixelsShareAnExponent)
{
    FillSamplingTables();
    Image image;
    ASSERT_TRUE(AllocateImage(image, 2, 1, 3, 32, true));
    image.pixels_rgbe[0] = 128u | 64u << 8 | 255u << 16 | 129u << 24;
    image.pixels_rgbe[1] = 0x00ffffffu;  // exponent 0 is black
    float out[3];
    ReadImagePixel(image, out, 0);
    EXPECT_EQ(out[0], 1.0f);
    EXPECT_EQ(out[1], 0.5f);
    EXPECT_EQ(out[2], 255.0f / 128.0f);
    ReadImagePixel(image, out, 1);
    EXPECT_EQ(out[0], 0.0f);
}

TEST(ImageStore, StatisticsFollowTheirFormula)
{
    Image image;
    ASSERT_TRUE(AllocateImage(image, 31, 17, 3, 32, false));
    std::mt19937                          random(1);
    std::uniform_real_distribution<float> values(0.0f, 4.0f);
    for (float& sample : image.pixels32) sample = values(random);

    // By hand in double precision: one sum of the squared largest channels for all three variances.
    double sum[3] = {}, squares = 0.0;
    for (std::size_t i = 0; i < 31 * 17; ++i) {
        const float* p = &image.pixels32[3 * i];
        for (int c = 0; c < 3; ++c) sum[c] += p[c];
        squares += std::pow(std::max({p[0], p[1], p[2]}), 2.0);
    }
    float mean[3], variance[3];
    ImageStatistics(image, mean, variance);
    for (int c = 0; c < 3; ++c) {
        const double expected = sum[c] / (31 * 17);
        EXPECT_NEAR(mean[c], expected, 1e-5);
        EXPECT_NEAR(variance[c], squares / (31 * 17) - expected * expected, 1e-4);
    }

    ImageStatistics(Image{}, mean, variance);
    EXPECT_EQ(mean[0] + variance[2], 0.0f);
}

}  // namespace
}  // namespace hv
