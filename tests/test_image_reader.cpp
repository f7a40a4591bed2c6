#include "output/image_library.h"
#include "output/output.h"
#include "output/picture_child.h"
#include "picture_files.h"
#include "scene_files.h"
#include "scene_fixture.h"
#include "session/sampling.h"
#include "shading/texture_lookup.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <new>
#include <random>
#include <string>
#include <string_view>
#include <vector>

// Codecs of the picture library leak where a file makes them fail; leaks of ours still count.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() { return "leak:libfreeimage\nleak:libOpenEXR"; }

namespace hv {
namespace {

namespace fs = std::filesystem;

struct ImageReader : SceneTest {
    ImageReader()
    {
        FillSamplingTables();
        StartImageLibrary();
    }
    ~ImageReader() override
    {
        SetPictureChild(false, 0, 0);
        StopImageLibrary();
    }

    /// Reads a file of these bytes, whose path in the scene is `name`, and keeps what was printed.
    bool Read(const std::string& name, std::string_view bytes, bool allow_packing = true)
    {
        return ReadPath(name, Write("picture", bytes), allow_packing);
    }

    bool ReadPath(const std::string& name, const std::string& path, bool allow_packing = true)
    {
        image               = {};
        image.path          = name;
        image.allow_packing = allow_packing;
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();  // one codec complains past everyone
        const bool is_read = ReadImageFile(image, path);
        testing::internal::GetCapturedStderr();
        printed = testing::internal::GetCapturedStdout();
        return is_read;
    }

    /// As a picture gives it and, by another way, as a texture does.
    Color Pixel(int x, int y) const
    {
        Color         color;
        ShaderElement plain;
        plain.gamma = 1;
        ReadImagePixel(image, &color.r, static_cast<std::uint32_t>(y * image.width + x));
        EXPECT_EQ(FetchTexel(image, x, y, plain), color);
        return color;
    }

    /// The one line that a refused file gives.
    std::string ErrorLine(const std::string& cause) const
    {
        return "error :( \timage - " + image.path + "\t" + cause + "\n" + std::string(80, '_') + "\n\n";
    }

    Image       image;
    std::string printed;
};

// ---- Orientation and conversion ----

constexpr int   kWidth = 64, kHeight = 32;
constexpr Color kCorners[4] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0.2f, 0.4f, 0.8f}};
constexpr float kLevels[4]  = {0.2f, 0.4f, 0.6f, 0.8f};

constexpr PictureRow kPng = {"bytes", FIF_PNG, FIT_BITMAP, 24, 3};

int CornerAt(int x, int y_from_top) { return (y_from_top < kHeight / 2 ? 0 : 2) + (x < kWidth / 2 ? 0 : 1); }

bool IsNamed(const PictureRow& row, std::string_view name) { return row.name == name; }

bool IsOfWords(FREE_IMAGE_TYPE type) { return type == FIT_UINT16 || type == FIT_RGB16 || type == FIT_RGBA16; }

/// Integers of 32 bits are read as the floats that their bits make.
void PutPixel(FIBITMAP* bitmap, const PictureRow& row, int x, int y, Color color, float level)
{
    const unsigned column = static_cast<unsigned>(x), line = static_cast<unsigned>(y);
    const auto     Byte    = [](float value) { return static_cast<BYTE>(std::lround(value * 255.0f)); };
    const float    rgba[]  = {row.channels == 1 ? level : color.r, color.g, color.b, 1.0f};
    BYTE* const    samples = FreeImage_GetScanLine(bitmap, y);
    if (row.type == FIT_BITMAP && row.bits <= 8) {
        BYTE index = row.bits == 8 ? Byte(level) : static_cast<BYTE>(level > 0.5f);
        FreeImage_SetPixelIndex(bitmap, column, line, &index);
    } else if (row.type == FIT_BITMAP) {
        RGBQUAD quad = {Byte(color.b), Byte(color.g), Byte(color.r), 0};  // clear, and as the fourth ink none
        FreeImage_SetPixelColor(bitmap, column, line, &quad);
    } else if (IsOfWords(row.type)) {
        for (std::size_t c = 0; c < row.channels; ++c)
            reinterpret_cast<std::uint16_t*>(samples)[column * row.channels + c] =
                static_cast<std::uint16_t>(std::lround(rgba[c] * 65535.0f));
    } else if (row.type != FIT_DOUBLE) {
        std::copy_n(rgba, row.channels, reinterpret_cast<float*>(samples) + column * row.channels);
    }
}

/// A picture of four corners that differ, so that mirrored, turned or with channels exchanged it is another one.
std::string CornersFile(const PictureRow& row)
{
    FIBITMAP* bitmap = FreeImage_AllocateT(row.type, kWidth, kHeight, static_cast<int>(row.bits));
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            const int corner = CornerAt(x, y);
            PutPixel(bitmap, row, x, kHeight - 1 - y, kCorners[corner], kLevels[corner]);
        }
    // Where a format keeps colours in its palette they are all wrong: none of them may show.
    const bool keeps_palette = row.format != FIF_JPEG && row.format != FIF_PGM && row.format != FIF_PGMRAW;
    if (row.bits == 8 && keeps_palette)
        for (int i = 0; i < 256; ++i)
            FreeImage_GetPalette(bitmap)[i] = {static_cast<BYTE>(255 - i), 7, static_cast<BYTE>(i / 2), 0};
    testing::internal::CaptureStderr();
    const std::vector<std::uint8_t> bytes = SavedBytes(bitmap, row.format, row.flags);
    testing::internal::GetCapturedStderr();
    return {bytes.begin(), bytes.end()};
}

Color ExpectedColor(const PictureRow& row, int corner)
{
    const Color color = kCorners[corner], grey = kWhite * kLevels[corner];
    if (IsNamed(row, "inks.tif")) return {1 - color.b, 1 - color.g, 1 - color.r};  // cyan for blue
    const Color seen = row.bits == 8 || row.channels == 1 ? grey : color;
    return IsOfWords(row.type) ? seen * 257.0f : seen;  // meant: 16 bits take the scale of bytes
}

// Row 0 in memory is the lowest row of a picture, and the first sample its left and red one, whatever the format.
TEST_F(ImageReader, EveryFormatIsReadTheSameWayUp)
{
    for (const PictureRow& row : kPictureRows) {
        // The library fails on run lengths of its own making.
        if (row.type == FIT_DOUBLE || IsNamed(row, "runs.bmp")) continue;
        SCOPED_TRACE(row.name);
        ASSERT_TRUE(Read("picture", CornersFile(row))) << printed;
        EXPECT_TRUE(image.loaded);
        if (row.channels == 0) {
            EXPECT_EQ(ImageBytes(image), 0);
            EXPECT_EQ(printed, "warning :( \timage - picture\tis of a pixel layout that reads black\n");
            continue;
        }
        EXPECT_EQ(printed, "");
        ASSERT_EQ(std::pair(image.width, image.height), std::pair(kWidth, kHeight));
        EXPECT_EQ(image.channels, static_cast<int>(row.channels));
        EXPECT_EQ(image.bits, IsOfWords(row.type) ? 16 : row.type == FIT_BITMAP ? 8 : 32);
        EXPECT_EQ(image.packed, row.type == FIT_RGBF);
        const bool is_lossy = row.format == FIF_JPEG || IsNamed(row, "jpeg.tif") || IsNamed(row, "chroma.exr");
        for (const auto& [x, y] : {std::pair{5, 3}, {kWidth - 6, 3}, {5, kHeight - 4}, {kWidth - 6, kHeight - 4}})
            ExpectColor(Pixel(x, y), ExpectedColor(row, CornerAt(x, kHeight - 1 - y)), is_lossy ? 0.04f : 0.01f);
    }
}

// The text anywhere in the path that the scene wrote turns the rows over; where the file lies does not count.
TEST_F(ImageReader, TheWordInThePathTurnsRowsOver)
{
    const auto                         bytes   = CornersFile(kPng);
    const std::pair<const char*, bool> cases[] = {
        {"a.png", false}, {"x.hdr/a.png", true}, {"A.HDR", true}, {"a.Hdr", false}, {"hdr", false}};
    for (const auto& [name, is_turned] : cases) {
        SCOPED_TRACE(name);
        const std::string file = Write("y.hdr/a.png", bytes);
        ASSERT_TRUE(ReadPath(name, file));
        ExpectColor(Pixel(0, 0), is_turned ? Color{1, 0, 0} : Color{0, 0, 1}, 1e-6f);
    }
}

/// A portable float map as its format is defined: rows from the bottom. The library takes them from the top.
std::string FloatMap(const std::vector<Color>& pixels, int width)
{
    std::string text = "PF\n" + std::to_string(width) + " " +
                       std::to_string(pixels.size() / static_cast<std::size_t>(width)) + "\n-1.0\n";
    return text.append(reinterpret_cast<const char*>(pixels.data()), pixels.size() * sizeof(Color));
}

// Files that no code of the library has written: what they are is said by their formats alone.
TEST_F(ImageReader, FilesByHandAreReadAsTheirFormatsSay)
{
    using namespace std::string_literals;
    // Two by two: red, green over blue, white; bytes are blue first in two of them.
    const std::string red("\0\0\xff", 3), green("\0\xff\0", 3), blue("\xff\0\0", 3), white(3, '\xff');
    const auto        Targa = [](char flags) { return "\0\0\2\0\0\0\0\0\0\0\0\0\2\0\2\0\x18"s + flags; };
    const auto        Bmp   = [](char height, char sign) {
        return "BM\x46\0\0\0\0\0\0\0\x36\0\0\0\x28\0\0\0\2\0\0\0"s + height + sign + sign + sign + "\1\0\x18\0"s +
               std::string(24, '\0');
    };
    const std::string                         gap(2, '\0');
    const std::pair<const char*, std::string> cases[] = {
        {"text map", "P3\n# a comment 7\n2 2\n255\n255 0 0 0 255 0\n0 0 255 255 255 255\n"},
        {"map", "P6 2 2 255\n\xff\0\0\0\xff\0\0\0\xff\xff\xff\xff"s},
        {"targa from the bottom", Targa(0) + blue + white + red + green},
        {"targa from the top", Targa(0x20) + red + green + blue + white},
        {"bitmap from the bottom", Bmp(2, 0) + blue + white + gap + red + green + gap},
        {"bitmap from the top", Bmp('\xfe', '\xff') + red + green + gap + blue + white + gap},
        {"radiance",
         "#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n-Y 2 +X 2\n\x80\0\0\x81\0\x80\0\x81\0\0\x80\x81\x80\x80\x80\x81"s},
    };
    for (const auto& [name, bytes] : cases) {
        ASSERT_TRUE(Read("picture", bytes)) << name << printed;
        SCOPED_TRACE(name);
        ExpectColor(Pixel(0, 0), {0, 0, 1}, 1e-6f);
        ExpectColor(Pixel(1, 0), {1, 1, 1}, 1e-6f);
        ExpectColor(Pixel(0, 1), {1, 0, 0}, 1e-6f);
        ExpectColor(Pixel(1, 1), {0, 1, 0}, 1e-6f);
    }
    ASSERT_TRUE(Read("picture", FloatMap({{1, 2, 3}, {4, 5, 6}}, 1), false));
    EXPECT_EQ(Pixel(0, 0).r, 4.0f) << "its lower row comes last";
}

// Texts and comments stand anywhere, in any number. None is worth the library's time, and no pixel changes with them.
TEST_F(ImageReader, NotesAreNoPartOfThePicture)
{
    using namespace std::string_literals;
    const auto Repeated = [](const std::string& note) {
        std::string notes;
        for (int i = 0; i < 50000; ++i) notes += note;
        return notes;
    };
    const std::string png = CornersFile(kPng), jpeg = CornersFile({"", FIF_JPEG, FIT_BITMAP, 24, 3});
    // The sum of the text is wrong, but nobody reads it.
    const std::string chunks = Repeated("\0\0\0\5tEXtab\0cd\0\0\0\0"s), comments = Repeated("\xff\xfe\0\5abc"s);
    const std::pair<std::string, std::string> cases[] = {
        {png, std::string(png).insert(png.size() - 12, chunks).insert(33, chunks)},
        {jpeg, std::string(jpeg).insert(jpeg.find("\xff\xda"), comments).insert(2, comments)}};
    for (const auto& [plain, noted] : cases) {
        ASSERT_TRUE(Read("picture", plain)) << printed;
        const auto expected = image.pixels8;
        ASSERT_TRUE(Read("picture", noted)) << printed;
        EXPECT_EQ(image.pixels8, expected);
    }
}

// ---- Packing ----

// Four bytes a pixel: each channel falls short by less than 2^-7 of the largest one, and is never above.
TEST_F(ImageReader, PackingLosesLessThanOneIn128)
{
    std::mt19937                          random(7);
    std::uniform_real_distribution<float> mantissa(0.0f, 1.0f), exponent(-100.0f, 120.0f);
    std::vector<Color> colors = {{1, 1, 1}, {0.999999f, 0.5f, 0.25f}, {1e-31f, 0, 0}, {1.7e38f, 1e38f, 1}};
    while (colors.size() < 4096) {
        const float scale = std::exp2(exponent(random));
        colors.push_back({mantissa(random) * scale, mantissa(random) * scale, mantissa(random) * scale});
    }
    ASSERT_TRUE(Read("picture", FloatMap(colors, 1)));
    ASSERT_TRUE(image.packed);
    EXPECT_EQ(ImageBytes(image), 4 * 4096);
    for (std::size_t i = 0; i < colors.size(); ++i) {
        const Color original = colors[colors.size() - 1 - i], read = Pixel(0, static_cast<int>(i));
        const float largest = std::max({original.r, original.g, original.b});
        for (int c = 0; c < 3; ++c) {
            EXPECT_LE(read[c], original[c]);
            EXPECT_GT(read[c], original[c] - largest / 128.0f);
        }
    }
    ASSERT_TRUE(Read("picture", FloatMap(colors, 1), false));
    EXPECT_FALSE(image.packed);
    EXPECT_EQ(Pixel(0, 4095), colors[0]) << "without packing every bit is kept";
}

TEST_F(ImageReader, PackingHasEnds)
{
    constexpr float kInfinity = std::numeric_limits<float>::infinity(), kNan = std::numeric_limits<float>::quiet_NaN();
    const struct {
        Color         color;
        std::uint32_t word;
    } cases[] = {
        {{0.99e-32f, 0.99e-32f, 0}, 0},
        {{1.01e-32f, 0, 0}, 209u | 22u << 24},  // 1.01e-32 = 0.8194 x 2^-106
        {{-1, -2, -3}, 0},
        {{1, -1, 0.5f}, 128u | 64u << 16 | 129u << 24},
        {{kNan, 1, kNan}, 128u << 8 | 129u << 24},
        {{kInfinity, 0, 1e38f}, 255u | 150u << 16 | 255u << 24},
    };
    for (const auto& test : cases) {
        ASSERT_TRUE(Read("picture", FloatMap({test.color}, 1)));
        EXPECT_EQ(image.pixels_rgbe.at(0), test.word) << test.color.r;
    }
}

// ---- Files that lie ----

// A cut file is refused with one line, or what was cut off is no part of its picture.
TEST_F(ImageReader, CutFilesAreRefusedOrReadInFull)
{
    for (const PictureRow& row : kPictureRows) {
        SCOPED_TRACE(row.name);
        const std::string whole    = CornersFile(row);
        const bool        is_sound = Read("picture", whole);
        const Image       expected = image;
        for (std::size_t i = 0; i < 20; ++i) {
            const std::size_t length = i < 12 ? whole.size() * i / 12 : whole.size() - (20 - i);
            if (Read("picture", whole.substr(0, length))) {
                EXPECT_TRUE(is_sound && image.pixels8 == expected.pixels8 && image.pixels_rgbe == expected.pixels_rgbe)
                    << length;
            } else {
                EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), 3) << printed;
                EXPECT_EQ(ImageBytes(image) + image.width + image.loaded, 0);
            }
        }
    }
}

TEST_F(ImageReader, LiesAreToldInAFewWords)
{
    using namespace std::string_literals;
    // A file with bytes put over it.
    const auto Patched = [](const PictureRow& row, std::size_t at, const std::string& bytes) {
        return CornersFile(row).replace(at, bytes.size(), bytes);
    };
    const std::pair<std::string, const char*> cases[] = {
        {"", "is empty"},
        {"P5 60000 60000 255\n", "claims 60000 x 60000 pixels in 19 bytes"},
        {"P2 9 9 255\n1 2 3", "claims 9 x 9 pixels in 16 bytes"},
        {"P5 4 4 0\n0123456789abcdef", "is damaged"},
        {"P6 0 4 255\n", "has no pixels"},
        {"PF\n9999999 9999999\n-1\n", "claims 9999999 x 9999999 pixels in 22 bytes"},
        {"#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n-Y 3000 +X 3000\n\2\2", "is cut off"},
        {CornersFile({"", FIF_EXR, FIT_RGBF, 96, 3}).substr(0, 40), "is cut off"},
        {Patched(kPng, 16, "\0\0\xea\x60\0\0\xea\x60"s), nullptr},
        {Patched({"", FIF_BMP, FIT_BITMAP, 24, 3}, 18, "\x70\x17\0\0\x70\x17\0\0"s), "is cut off"},
        {Patched({"", FIF_TARGA, FIT_BITMAP, 24, 3}, 12, "\x70\x17\x70\x17"s), "is cut off"},
        {"BM and nothing else", "is cut off"},
        {"what is this", "is of a format that is read in a child process only"},
    };
    for (const auto& [bytes, cause] : cases) {
        EXPECT_FALSE(Read("some/picture", bytes));
        if (cause)
            EXPECT_EQ(printed, ErrorLine(cause));
        else
            EXPECT_NE(printed.find("claims 60000 x 60000 pixels"), std::string::npos) << printed;
        EXPECT_FALSE(image.loaded);
    }
    EXPECT_FALSE(ReadPath("folder", folder.string()));
    EXPECT_EQ(printed, ErrorLine("is no file"));
    EXPECT_FALSE(ReadPath("missing", (folder / "missing").string()));
    EXPECT_EQ(printed, ErrorLine("cannot be opened"));
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_FALSE(ReadPath("pipe", (folder / "pipe").string())) << "nobody will ever write to it";
    EXPECT_EQ(printed, ErrorLine("is no file"));
}

// ---- Child processes ----

struct PictureChildTest : ImageReader {
    /// Runs a decoder in a child and leaves no trace of it.
    std::string RunChild(PictureDecoder decode)
    {
        const auto files_before = OpenFiles();
        image                   = {};
        const std::string words = DecodeInChild(image, "path", decode);
        EXPECT_EQ(OpenFiles(), files_before);
        EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
        return words;
    }

    static std::ptrdiff_t OpenFiles() { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); }
};

std::string Sleep(Image&, const std::string&)
{
    ::pause();
    return "";
}

std::string Crash(Image&, const std::string&)
{
    ::raise(SIGSEGV);
    return "";
}

std::string Leave(Image&, const std::string&) { ::_exit(0); }

std::string RunOut(Image&, const std::string&) { throw std::bad_alloc(); }

std::string Refuse(Image&, const std::string&) { return "is not nice"; }

std::string Deliver(Image& made, const std::string&)
{
    AllocateImage(made, 300, 200, 3, 8, false);
    std::ranges::fill(made.pixels8, std::uint8_t{9});
    return "";
}

// Also in hosts that leave their children to the system: then there is none to wait for.
TEST_F(PictureChildTest, WhateverADecoderDoesCostsItsPictureAlone)
{
    const std::pair<PictureDecoder, const char*> cases[] = {{Sleep, "took longer than 1 s to decode"},
                                                            {Crash, "cannot be decoded: the decoder crashed"},
                                                            {Leave, "cannot be decoded: the decoder crashed"},
                                                            {RunOut, "needs more than 64 MB to decode"},
                                                            {Refuse, "is not nice"},
                                                            {Deliver, ""}};
    SetPictureChild(true, 1, 64);
    for (const auto mode : {SIG_DFL, SIG_IGN}) {
        const auto before = std::signal(SIGCHLD, mode);
        for (const auto& [decode, words] : cases) {
            EXPECT_TRUE(RunChild(decode).starts_with(words)) << words;
            EXPECT_EQ(image.loaded, decode == Deliver);
        }
        EXPECT_TRUE(image.width == 300 && image.height == 200 && image.pixels8 == std::vector<std::uint8_t>(180000, 9));
        std::signal(SIGCHLD, before);
    }
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(PictureChildTest, MemoryIsLimited)
{
    SetPictureChild(true, 10, 64);
    EXPECT_EQ(RunChild([](Image&, const std::string&) {
                  std::vector<std::string> taken;
                  for (int i = 0; i < 4096; ++i) taken.emplace_back(1 << 20, 'x');
                  return std::to_string(taken.size());
              }),
              "needs more than 64 MB to decode");
}
#endif

// A child delivers the same picture, and also those of formats that nothing vouches for.
TEST_F(PictureChildTest, ChildrenReadTheSameAndMore)
{
    for (const PictureRow& row :
         {kPng, PictureRow{"words", FIF_TIFF, FIT_RGB16, 48, 3}, PictureRow{"packed", FIF_HDR, FIT_RGBF, 96, 3},
          PictureRow{"double", FIF_TIFF, FIT_DOUBLE, 64, 0}, PictureRow{"wavelets", FIF_JP2, FIT_BITMAP, 24, 3}}) {
        const bool        is_known = row.type != FIT_DOUBLE && row.format != FIF_JP2;
        const std::string bytes    = CornersFile(row);
        SetPictureChild(false, 0, 0);
        EXPECT_EQ(Read("picture", bytes), is_known) << row.name;
        EXPECT_EQ(printed, is_known ? "" : ErrorLine("is of a format that is read in a child process only"));
        const Image here = image;
        SetPictureChild(true, 0, 0);
        ASSERT_TRUE(Read("picture", bytes)) << row.name << printed;
        EXPECT_TRUE(!is_known || (here.pixels8 == image.pixels8 && here.pixels16 == image.pixels16 &&
                                  here.pixels_rgbe == image.pixels_rgbe && here.width == image.width));
    }
    EXPECT_FALSE(Read("picture", "no picture at all"));
    EXPECT_EQ(printed, ErrorLine("is of no known picture format"));
}

// ---- Real pictures ----

TEST_F(ImageReader, RealPicturesAreRead)
{
    const char* data = std::getenv("HV_TEST_DATA");
    if (!data) GTEST_SKIP() << "HV_TEST_DATA names no folder of real files";
    const struct {
        const char* name;
        int         width, height, channels, bits;
        bool        is_packed;
        Color       mean;
    } cases[] = {{"env/lebombo_1k.hdr", 1024, 512, 3, 32, true, {0.7566f, 0.6244f, 0.5359f}},
                 {"env/matpreview_envmap.exr", 512, 256, 3, 32, true, {0.3958f, 0.3150f, 0.2771f}},
                 {"textures/bark_rgb.jpg", 512, 512, 3, 8, false, {0.4187f, 0.3534f, 0.2962f}},
                 {"textures/fabric_padded_height.png", 1024, 1024, 1, 16, false, {168.42f, 168.42f, 168.42f}},
                 {"textures/uv_checker_bw.png", 1024, 1024, 4, 8, false, {0.5103f, 0.5103f, 0.5103f}}};
    for (const auto& test : cases) {
        ASSERT_TRUE(ReadPath(test.name, (fs::path(data) / test.name).string())) << printed;
        EXPECT_EQ(std::tie(image.width, image.height, image.channels, image.bits, image.packed),
                  std::tie(test.width, test.height, test.channels, test.bits, test.is_packed))
            << test.name;
        Color mean, variance;
        ImageStatistics(image, &mean.r, &variance.r);
        ExpectColor(mean, test.mean, 0.02f * MaxChannel(test.mean));
    }
}

}  // namespace
}  // namespace hv
