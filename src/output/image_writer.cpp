#include "output/image_library.h"
#include "output/output.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace hv {
namespace {

/// Names of a format and its code in the picture library. Meant: a name has an ending when it holds the text anywhere,
/// so it can have several, which are tried in the order of the rows.
struct FormatRow {
    std::string_view lower, upper;
    int              code;
};

constexpr FormatRow kFormats[] = {
    {".bmp", ".BMP", 0},    {".cut", ".CUT", 21},  {".dds", ".DDS", 24},     {".exr", ".EXR", 29},
    {".g3", ".G3", 27},     {".gif", ".GIF", 25},  {".hdr", ".HDR", 26},     {".ico", ".ICO", 1},
    {".iff", ".IFF", 5},    {".j2k", ".J2K", 30},  {".jng", ".JNG", 3},      {".jp2", ".JP2", 31},
    {".jpg", ".JPG", 2},    {".jpeg", ".JPEG", 2}, {".koa", ".KOA", 4},      {".mng", ".MNG", 6},
    {".pbm", ".PBM", 7},    {".pcd", ".PCD", 9},   {".pfm", ".PFM", 32},     {".pgm", ".PGM", 11},
    {".pic", ".PIC", 33},   {".pct", ".PCT", 33},  {".pict", ".PICT", 33},   {".png", ".PNG", 13},
    {".ppm", ".PPM", 14},   {".psd", ".PSD", 20},  {".ras", ".RAS", 16},     {".raw", ".RAW", 34},
    {".sgi", ".SGI", 28},   {".tga", ".TGA", 17},  {".targa", ".TARGA", 17}, {".tif", ".TIF", 18},
    {".tiff", ".TIFF", 18}, {".wap", ".WAP", 19},  {".wabmp", ".WBMP", 19},  // meant: two different words
    {".wbm", ".WBM", 19},   {".xbm", ".XBM", 22},  {".xpm", ".XPM", 23},
};

WriteObserver write_observer      = nullptr;
void*         write_observer_data = nullptr;  // belongs to the line above

bool Holds(std::string_view name, std::string_view lower, std::string_view upper)
{
    return name.find(lower) != std::string_view::npos || name.find(upper) != std::string_view::npos;
}

bool IsFloatFile(std::string_view name)
{
    return Holds(name, ".exr", ".EXR") || Holds(name, ".hdr", ".HDR") || Holds(name, ".pfm", ".PFM");
}

/// Sample of an image as a float file stores it.
float FloatSample(const Image& image, std::size_t sample)
{
    switch (image.bits) {
    case 1:
        return image.bit_pixels[sample / 32] >> (sample % 32) & 1u ? 1.0f : 0.0f;
    case 8:
        return static_cast<float>(image.pixels8[sample]) / 255.0f;
    case 16:
        return static_cast<float>(image.pixels16[sample]) / 65535.0f;
    case 32:
        return image.pixels32[sample];
    default:
        return static_cast<float>(image.pixels64[sample]);
    }
}

/// 255 above 1, else the low 8 bits of the truncated product, so that a negative value wraps.
template <class Real>
std::uint8_t WrappedByte(Real value)
{
    if (value > Real(1)) return 255;
    const Real product = value * Real(255);
    // Whole multiples of 256 below this bound have no low bits left to show; a non-number ends here as well.
    if (!(product > Real(-9e18))) return 0;
    return static_cast<std::uint8_t>(static_cast<std::int64_t>(product));
}

/// Sample of an image as a byte file stores it.
std::uint8_t ByteSample(const Image& image, std::size_t sample)
{
    switch (image.bits) {
    case 1:
        return image.bit_pixels[sample / 32] >> (sample % 32) & 1u ? 255 : 0;
    case 8:
        return image.pixels8[sample];
    case 16:
        return static_cast<std::uint8_t>(image.pixels16[sample] >> 8);
    case 32:
        return WrappedByte(image.pixels32[sample]);
    default:
        return WrappedByte(image.pixels64[sample]);
    }
}

std::size_t RowStart(const Image& image, int y)
{
    return static_cast<std::size_t>(y) * static_cast<std::size_t>(image.width) *
           static_cast<std::size_t>(image.channels);
}

void FillFloatRow(const Image& image, int y, float* row)
{
    const std::size_t first  = RowStart(image, y);
    const auto        width  = static_cast<std::size_t>(image.width);
    const auto        count  = width * static_cast<std::size_t>(image.channels);
    const bool        is_one = image.channels == 1;
    if (image.bits == 32 && !is_one) {
        std::copy_n(image.pixels32.begin() + static_cast<std::ptrdiff_t>(first), count, row);
    } else if (is_one) {
        for (std::size_t x = 0; x < width; ++x)
            row[3 * x] = row[3 * x + 1] = row[3 * x + 2] = FloatSample(image, first + x);
    } else {
        for (std::size_t i = 0; i < count; ++i) row[i] = FloatSample(image, first + i);
    }
}

Bitmap MakeFloatBitmap(const Image& image)
{
    Bitmap bitmap = Bitmap::Floats(image.width, image.height, image.channels == 4);
    if (bitmap.IsAllocated())
        for (int y = 0; y < image.height; ++y) FillFloatRow(image, y, bitmap.FloatRow(y));
    return bitmap;
}

void FillByteRow(const Image& image, int y, Bitmap& bitmap)
{
    const std::size_t first    = RowStart(image, y);
    const auto        channels = static_cast<std::size_t>(image.channels);
    for (int x = 0; x < image.width; ++x) {
        const std::size_t  sample = first + static_cast<std::size_t>(x) * channels;
        const std::size_t  step   = channels == 1 ? 0 : 1;
        const std::uint8_t rgb[3] = {ByteSample(image, sample), ByteSample(image, sample + step),
                                     ByteSample(image, sample + 2 * step)};
        bitmap.SetBytes(x, y, rgb);
    }
}

Bitmap MakeByteBitmap(const Image& image)
{
    Bitmap bitmap = Bitmap::Bytes(image.width, image.height, image.channels);
    if (bitmap.IsAllocated())
        for (int y = 0; y < image.height; ++y) FillByteRow(image, y, bitmap);
    return bitmap;
}

bool FileExists(const std::string& path)
{
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0;
}

bool SaveByName(const Bitmap& bitmap, const std::string& path)
{
    const bool existed = FileExists(path);
    for (const FormatRow& row : kFormats)
        if (Holds(path, row.lower, row.upper) && bitmap.Save(row.code, path)) return true;
    // A format that cannot save has opened the file all the same.
    if (!existed && FileExists(path)) ::unlink(path.c_str());
    return false;
}

bool WriteNamedImage(const Image& image)
{
    const bool has_pixels = image.loaded && !image.packed && image.width > 0 && image.height > 0;
    if (!has_pixels) return false;

    Bitmap bitmap = IsFloatFile(image.path) ? MakeFloatBitmap(image) : MakeByteBitmap(image);
    if (!bitmap.IsAllocated()) return false;
    // Our row 0 is the top, the library's the bottom, but for one format that is stored the other way.
    if (!Holds(image.path, ".pfm", ".PFM")) bitmap.FlipVertical();
    return SaveByName(bitmap, image.path);
}

}  // namespace

void SetWriteObserver(WriteObserver observer, void* user)
{
    write_observer      = observer;
    write_observer_data = user;
}

bool WriteImage(const Image& image)
{
    if (image.path.empty()) return false;
    const bool written = WriteNamedImage(image);
    if (write_observer) write_observer(image.path.c_str(), written, write_observer_data);
    return written;
}

}  // namespace hv
