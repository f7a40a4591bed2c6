#include "hvx.h"
#include "output/image_library.h"
#include "output/output.h"
#include "output/picture_child.h"
#include "picture_files.h"
#include "scene_files.h"
#include "session/sampling.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <iterator>
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

    bool Read(const std::string& name, const std::vector<std::uint8_t>& bytes)
    {
        return Read(name, std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
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

    Color Pixel(int x, int y) const
    {
        float color[3];
        ReadImagePixel(image, color, static_cast<std::uint32_t>(y * image.width + x));
        return {color[0], color[1], color[2]};
    }

    /// The one line that a refused file gives.
    std::string ErrorLine(const std::string& cause) const
    {
        return "error :( \timage - " + image.path + "\t" + cause + "\n" + std::string(80, '_') + "\n\n";
    }

    Image       image;
    std::string printed;
};

void ExpectColor(Color actual, Color expected, float tolerance)
{
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(actual[c], expected[c], tolerance) << "channel " << c;
}

// ---- Orientation and conversion ----

constexpr int   kWidth = 64, kHeight = 32;
constexpr Color kCorners[4] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0.2f, 0.4f, 0.8f}};
constexpr float kLevels[4]  = {0.2f, 0.4f, 0.6f, 0.8f};

int CornerAt(int x, int y_from_top) { return (y_from_top < kHeight / 2 ? 0 : 2) + (x < kWidth / 2 ? 0 : 1); }

template <class Sample>
void PutSamples(FIBITMAP* bitmap, int x, int y, std::initializer_list<Sample> samples)
{
    std::copy(
        samples.begin(), samples.end(),
        reinterpret_cast<Sample*>(FreeImage_GetScanLine(bitmap, y)) + static_cast<std::size_t>(x) * samples.size());
}

std::uint16_t Word(float value) { return static_cast<std::uint16_t>(std::lround(value * 65535.0f)); }

void PutPixel(FIBITMAP* bitmap, int x, int y, Color color, float level)
{
    switch (FreeImage_GetImageType(bitmap)) {
    case FIT_UINT16:
        return PutSamples(bitmap, x, y, {Word(level)});
    case FIT_RGB16:
        return PutSamples(bitmap, x, y, {Word(color.r), Word(color.g), Word(color.b)});
    case FIT_RGBA16:
        return PutSamples(bitmap, x, y, {Word(color.r), Word(color.g), Word(color.b), Word(1)});
    case FIT_UINT32:  // read as the float that the bits make
        return PutSamples(bitmap, x, y, {std::bit_cast<std::uint32_t>(level)});
    case FIT_FLOAT:
        return PutSamples(bitmap, x, y, {level});
    case FIT_RGBF:
        return PutSamples(bitmap, x, y, {color.r, color.g, color.b});
    case FIT_RGBAF:
        return PutSamples(bitmap, x, y, {color.r, color.g, color.b, 1.0f});
    default:
        break;
    }
    const unsigned bits = FreeImage_GetBPP(bitmap);
    const auto     Byte = [](float value) { return static_cast<BYTE>(std::lround(value * 255.0f)); };
    if (bits <= 8) {
        BYTE index = bits == 8 ? Byte(level) : static_cast<BYTE>(level > 0.5f);
        FreeImage_SetPixelIndex(bitmap, static_cast<unsigned>(x), static_cast<unsigned>(y), &index);
    } else if (bits <= 32) {
        RGBQUAD quad = {};
        quad.rgbRed = Byte(color.r), quad.rgbGreen = Byte(color.g), quad.rgbBlue = Byte(color.b),
        quad.rgbReserved = 0;  // clear, and as the fourth ink none
        FreeImage_SetPixelColor(bitmap, static_cast<unsigned>(x), static_cast<unsigned>(y), &quad);
    }
}

/// A picture of four corners that differ, so that mirrored, turned or with channels exchanged it is another one.
std::vector<std::uint8_t> CornersFile(const PictureRow& row)
{
    FIBITMAP* bitmap = FreeImage_AllocateT(row.type, kWidth, kHeight, static_cast<int>(row.bits));
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            const int corner = CornerAt(x, y);
            PutPixel(bitmap, x, kHeight - 1 - y, kCorners[corner], kLevels[corner]);
        }
    // Where a format keeps colours in its palette they are all wrong: none of them may show.
    const bool keeps_palette = row.format != FIF_JPEG && row.format != FIF_PGM && row.format != FIF_PGMRAW;
    if (row.bits == 8 && keeps_palette)
        for (int i = 0; i < 256; ++i)
            FreeImage_GetPalette(bitmap)[i] = {static_cast<BYTE>(255 - i), 7, static_cast<BYTE>(i / 2), 0};
    testing::internal::CaptureStderr();
    std::vector<std::uint8_t> bytes = SavedBytes(bitmap, row.format, row.flags);
    testing::internal::GetCapturedStderr();
    return bytes;
}

/// What a row of the table must be read as.
struct Store {
    int  channels, bits;  ///< no channels: no store
    bool is_packed = false;
};

Store ExpectedStore(const PictureRow& row)
{
    switch (row.type) {
    case FIT_BITMAP:
        // The library has a palette for every byte picture, so they all are spread to three channels.
        if (row.bits < 8) return {0, 0};
        return row.bits == 32 && std::string_view(row.name) != "inks.tif" ? Store{4, 8} : Store{3, 8};
    case FIT_UINT16:
        return {1, 16};
    case FIT_RGB16:
        return {3, 16};
    case FIT_RGBA16:
        return {4, 16};
    case FIT_UINT32:
    case FIT_FLOAT:
        return {1, 32};
    case FIT_RGBF:
        return {3, 32, true};
    default:
        return {4, 32};
    }
}

/// Rows that need more than the table says: refused by this library, or known to none of our checks.
bool IsReadHere(const PictureRow& row)
{
    return row.type != FIT_DOUBLE &&
           std::string_view(row.name) != "runs.bmp";  // it fails on run lengths of its own making
}

bool IsRoundedMuch(const PictureRow& row)
{
    return row.format == FIF_JPEG || std::string_view(row.name) == "jpeg.tif" ||
           std::string_view(row.name) == "chroma.exr";
}

Color ExpectedColor(const PictureRow& row, int corner)
{
    const bool  is_grey = row.bits == 8 || row.type == FIT_UINT16 || row.type == FIT_UINT32 || row.type == FIT_FLOAT;
    const Color color   = is_grey ? kWhite * kLevels[corner] : kCorners[corner];
    const bool  is_16   = row.type == FIT_UINT16 || row.type == FIT_RGB16 || row.type == FIT_RGBA16;
    if (std::string_view(row.name) == "inks.tif") return {1 - color.b, 1 - color.g, 1 - color.r};  // cyan for blue
    return is_16 ? color * 257.0f : color;  // meant: 16 bits take the scale of bytes
}

// Row 0 in memory is the lowest row of a picture, and the first sample its left and red one, whatever the format.
TEST_F(ImageReader, EveryFormatIsReadTheSameWayUp)
{
    for (const PictureRow& row : kPictureRows) {
        if (!IsReadHere(row)) continue;
        SCOPED_TRACE(row.name);
        ASSERT_TRUE(Read("picture", CornersFile(row))) << printed;
        const Store store = ExpectedStore(row);
        EXPECT_TRUE(image.loaded);
        if (store.channels == 0) {
            EXPECT_EQ(ImageBytes(image), 0);
            EXPECT_EQ(printed, "warning :( \timage - picture\tis of a pixel layout that reads black\n");
            continue;
        }
        EXPECT_EQ(printed, "");
        ASSERT_EQ(std::pair(image.width, image.height), std::pair(kWidth, kHeight));
        EXPECT_EQ(image.channels, store.channels);
        EXPECT_EQ(image.bits, store.bits);
        EXPECT_EQ(image.packed, store.is_packed);
        const float tolerance = IsRoundedMuch(row) ? 0.04f : image.bits == 16 ? 0.01f : 0.008f;
        for (const auto& [x, y] : {std::pair{5, 3}, {kWidth - 6, 3}, {5, kHeight - 4}, {kWidth - 6, kHeight - 4}}) {
            const Color expected = ExpectedColor(row, CornerAt(x, kHeight - 1 - y));
            for (int c = 0; c < 3; ++c)
                EXPECT_NEAR(Pixel(x, y)[c], expected[c], tolerance) << x << ' ' << y << ' ' << c;
        }
    }
}

// The text anywhere in the path that the scene wrote turns the rows over; where the file lies does not count.
TEST_F(ImageReader, TheWordInThePathTurnsRowsOver)
{
    const auto                         bytes   = CornersFile({"", FIF_PNG, FIT_BITMAP, 24});
    const std::pair<const char*, bool> cases[] = {{"a.png", false}, {"sky.hdr.png", true}, {"x.hdr/a.png", true},
                                                  {"A.HDR", true},  {"a.Hdr", false},      {"hdr", false},
                                                  {".hdr", true},   {"a.hd", false},       {"", false}};
    for (const auto& [name, is_turned] : cases) {
        SCOPED_TRACE(name);
        ASSERT_TRUE(Read(name, bytes));
        ExpectColor(Pixel(0, 0), is_turned ? Color{1, 0, 0} : Color{0, 0, 1}, 1e-6f);
    }
    const fs::path inside = folder / "y.hdr";
    fs::create_directory(inside);
    Write("y.hdr/a.png", std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
    ASSERT_TRUE(ReadPath("a.png", (inside / "a.png").string()));
    ExpectColor(Pixel(0, 0), {0, 0, 1}, 1e-6f);
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
    ASSERT_TRUE(Read("picture", "Pf 1 1 -1.0\n\0\0\xa0\x40"s)) << "a header may be one line" << printed;
    EXPECT_EQ(Pixel(0, 0).r, 5.0f);
    ASSERT_TRUE(Read("picture", "#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n-Y   1\t+X +1\n\x80\0\0\x81"s)) << printed;
    EXPECT_EQ(Pixel(0, 0).r, 1.0f);
}

/// Puts `note` between any two of the chunks of a picture, as many times as are asked for.
std::string WithNotes(std::string bytes, std::initializer_list<std::size_t> places, std::string_view note, int count)
{
    std::string notes;
    for (int i = 0; i < count; ++i) notes += note;
    for (std::size_t place : places) bytes.insert(place, notes);
    return bytes;
}

// Texts and comments stand anywhere, in any number. None is worth the library's time, and no pixel changes with them.
TEST_F(ImageReader, NotesAreNoPartOfThePicture)
{
    using namespace std::string_literals;
    const auto png = CornersFile({"", FIF_PNG, FIT_BITMAP, 24}), jpeg = CornersFile({"", FIF_JPEG, FIT_BITMAP, 24});
    const std::string png_text(png.begin(), png.end()), jpeg_text(jpeg.begin(), jpeg.end());
    const std::size_t png_end = png_text.size() - 12, tables = jpeg_text.find("\xff\xdb"),
                      scan = jpeg_text.find("\xff\xda");
    // The sum of the text is wrong, but nobody reads it. From the last place to the first, so that all stay valid.
    const std::string text = "\0\0\0\5tEXtab\0cd\0\0\0\0"s, comment = "\xff\xfe\0\5abc"s, note = "\xff\xe5\0\4ab"s;
    const std::pair<std::string, std::string> cases[] = {
        {png_text, WithNotes(png_text, {png_end, 33}, text, 50000)},
        {jpeg_text, WithNotes(jpeg_text, {scan, tables, 2}, comment, 50000)},
        {jpeg_text, WithNotes(jpeg_text, {scan, tables}, comment + note, 9)}};
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
        {{0, 0, 0}, 0},
        {{0.99e-32f, 0.99e-32f, 0}, 0},
        {{1.01e-32f, 0, 0}, 209u | 22u << 24},  // 1.01e-32 = 0.8194 x 2^-106
        {{-1, -2, -3}, 0},
        {{1, -1, 0.5f}, 128u | 64u << 16 | 129u << 24},
        {{kNan, 1, kNan}, 128u << 8 | 129u << 24},
        {{kInfinity, 0, 1e38f}, 255u | 150u << 16 | 255u << 24},
        {{3.4e38f, 3.4e38f, 0}, 255u | 255u << 8 | 255u << 24},
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
        const std::vector<std::uint8_t> whole    = CornersFile(row);
        const bool                      is_sound = Read("picture", whole);
        const Image                     expected = image;
        for (std::size_t i = 0; i < 20; ++i) {
            const std::size_t length = i < 12 ? whole.size() * i / 12 : whole.size() - (20 - i);
            if (Read("picture", {whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)})) {
                EXPECT_TRUE(is_sound && image.pixels8 == expected.pixels8 && image.pixels_rgbe == expected.pixels_rgbe)
                    << length;
            } else {
                EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), 3) << printed;
                EXPECT_EQ(ImageBytes(image) + image.width + image.loaded, 0);
            }
        }
    }
}

/// Puts bytes over a file.
std::string Patched(const PictureRow& row, std::size_t at, std::string_view bytes)
{
    const std::vector<std::uint8_t> whole = CornersFile(row);
    return std::string(whole.begin(), whole.end()).replace(at, bytes.size(), bytes);
}

TEST_F(ImageReader, LiesAreToldInAFewWords)
{
    using namespace std::string_literals;
    const auto                                exr     = CornersFile({"", FIF_EXR, FIT_RGBF, 96});
    const std::pair<std::string, const char*> cases[] = {
        {"", "is empty"},
        {"P5 60000 60000 255\n", "claims 60000 x 60000 pixels in 19 bytes"},
        {"P2 9 9 255\n1 2 3", "claims 9 x 9 pixels in 16 bytes"},
        {"P5 4 4 0\n0123456789abcdef", "is damaged"},
        {"P6 0 4 255\n", "has no pixels"},
        {"PF\n9999999 9999999\n-1\n", "claims 9999999 x 9999999 pixels in 22 bytes"},
        {"#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n-Y 3000 +X 3000\n\2\2", "is cut off"},
        {std::string(exr.begin(), exr.begin() + 40), "is cut off"},
        {Patched({"", FIF_PNG, FIT_BITMAP, 24}, 16, "\0\0\xea\x60\0\0\xea\x60"s), nullptr},
        {Patched({"", FIF_BMP, FIT_BITMAP, 24}, 18, "\x70\x17\0\0\x70\x17\0\0"s), "is cut off"},
        {Patched({"", FIF_TARGA, FIT_BITMAP, 24}, 12, "\x70\x17\x70\x17"s), "is cut off"},
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

bool HasPrefix(const std::string& text, std::string_view prefix) { return text.starts_with(prefix); }

TEST_F(PictureChildTest, WhateverADecoderDoesCostsItsPictureAlone)
{
    SetPictureChild(true, 1, 64);
    EXPECT_EQ(RunChild([](Image&, const std::string&) -> std::string {
                  for (volatile bool on = true; on;) {}
                  return "";
              }),
              "took longer than 1 s to decode");
    EXPECT_EQ(RunChild([](Image&, const std::string&) -> std::string {
                  ::pause();
                  return "";
              }),
              "took longer than 1 s to decode");
    EXPECT_TRUE(HasPrefix(RunChild([](Image&, const std::string&) -> std::string { std::abort(); }),
                          "cannot be decoded: the decoder crashed"));
    EXPECT_TRUE(HasPrefix(RunChild([](Image&, const std::string&) -> std::string {
                              ::raise(SIGSEGV);
                              return "";
                          }),
                          "cannot be decoded: the decoder crashed"));
    EXPECT_TRUE(HasPrefix(RunChild([](Image&, const std::string&) -> std::string { ::_exit(0); }),
                          "cannot be decoded: the decoder crashed"));
    EXPECT_EQ(RunChild([](Image&, const std::string&) -> std::string { throw std::bad_alloc(); }),
              "needs more than 64 MB to decode");
    EXPECT_EQ(RunChild([](Image&, const std::string&) -> std::string { return "is not nice"; }), "is not nice");
    EXPECT_FALSE(image.loaded);
    EXPECT_EQ(RunChild([](Image& made, const std::string&) -> std::string {
                  AllocateImage(made, 300, 200, 3, 8, false);
                  std::ranges::fill(made.pixels8, std::uint8_t{9});
                  return "";
              }),
              "");
    EXPECT_TRUE(image.loaded && image.width == 300 && image.height == 200 &&
                image.pixels8 == std::vector<std::uint8_t>(180000, 9));
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

// A host may leave its children to the system: then there is none to wait for.
TEST_F(PictureChildTest, HostsMayIgnoreTheirChildren)
{
    const auto before = std::signal(SIGCHLD, SIG_IGN);
    SetPictureChild(true, 1, 64);
    EXPECT_EQ(RunChild([](Image& made, const std::string&) -> std::string {
                  return AllocateImage(made, 4, 4, 1, 16, false) ? "" : "no";
              }),
              "");
    EXPECT_EQ(RunChild([](Image&, const std::string&) -> std::string {
                  ::pause();
                  return "";
              }),
              "took longer than 1 s to decode");
    EXPECT_EQ(RunChild([](Image&, const std::string&) -> std::string {
                  ::raise(SIGSEGV);
                  return "";
              }),
              "cannot be decoded: the decoder crashed");
    std::signal(SIGCHLD, before);
}

// A child delivers the same picture, and also those of formats that nothing vouches for.
TEST_F(PictureChildTest, ChildrenReadTheSameAndMore)
{
    for (const PictureRow& row : {kPictureRows[4], kPictureRows[12], kPictureRows[48], kPictureRows[53]}) {
        const auto bytes = CornersFile(row);
        hvxSetPictureChild(false, 0, 0);
        ASSERT_TRUE(Read("picture", bytes)) << row.name;
        const Image here = image;
        hvxSetPictureChild(true, 0, 0);
        ASSERT_TRUE(Read("picture", bytes)) << row.name << printed;
        EXPECT_TRUE(here.pixels8 == image.pixels8 && here.pixels16 == image.pixels16 &&
                    here.pixels32 == image.pixels32 && here.pixels_rgbe == image.pixels_rgbe &&
                    here.packed == image.packed);
        EXPECT_EQ(std::tie(here.width, here.height, here.channels, here.bits),
                  std::tie(image.width, image.height, image.channels, image.bits));
    }
    for (const PictureRow& row :
         {PictureRow{"double", FIF_TIFF, FIT_DOUBLE, 64}, PictureRow{"text", FIF_XPM, FIT_BITMAP, 24},
          PictureRow{"wavelets", FIF_JP2, FIT_BITMAP, 24}}) {
        const auto bytes = CornersFile(row);
        hvxSetPictureChild(false, 0, 0);
        EXPECT_FALSE(Read("picture", bytes)) << row.name;
        EXPECT_EQ(printed, ErrorLine("is of a format that is read in a child process only"));
        hvxSetPictureChild(true, 0, 0);
        EXPECT_TRUE(Read("picture", bytes)) << row.name << printed;
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
                 {"textures/bark_bump.jpg", 512, 512, 3, 8, false, {0.5537f, 0.5537f, 0.5537f}},
                 {"textures/bark_rgb.jpg", 512, 512, 3, 8, false, {0.4187f, 0.3534f, 0.2962f}},
                 {"textures/fabric_padded_height.png", 1024, 1024, 1, 16, false, {168.42f, 168.42f, 168.42f}},
                 {"textures/spot_texture.png", 1024, 1024, 3, 8, false, {0.9490f, 0.8753f, 0.8394f}},
                 {"textures/uv_checker_bw.png", 1024, 1024, 4, 8, false, {0.5103f, 0.5103f, 0.5103f}}};
    for (const auto& test : cases) {
        ASSERT_TRUE(ReadPath(test.name, (fs::path(data) / test.name).string())) << printed;
        EXPECT_EQ(std::tie(image.width, image.height, image.channels, image.bits, image.packed),
                  std::tie(test.width, test.height, test.channels, test.bits, test.is_packed))
            << test.name;
        double sum[3] = {};
        for (int y = 0; y < image.height; ++y)
            for (int x = 0; x < image.width; ++x)
                for (int c = 0; c < 3; ++c) sum[c] += Pixel(x, y)[c];
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(sum[c] / (image.width * image.height), test.mean[c], 0.02f * test.mean[c]) << test.name;
    }
}

}  // namespace
}  // namespace hv
