#include "output/image_library.h"

#include "output/output.h"

#include <FreeImage.h>

#include <cstdio>

namespace hv {
namespace {

bool library_is_started = false;

FIBITMAP* Handle(void* bitmap) { return static_cast<FIBITMAP*>(bitmap); }

void IgnoreMessage(FREE_IMAGE_FORMAT, const char*) {}

/// Codecs of the library are C++ inside and may throw through its C interface; what they throw counts as failure.
template <class Work>
auto AtLibrary(Work&& work) -> decltype(work())
{
    try {
        return work();
    } catch (...) {
        return {};
    }
}

unsigned ReadFile(void* buffer, unsigned size, unsigned count, fi_handle file)
{
    return static_cast<unsigned>(std::fread(buffer, size, count, static_cast<std::FILE*>(file)));
}

unsigned WriteFile(void* buffer, unsigned size, unsigned count, fi_handle file)
{
    return static_cast<unsigned>(std::fwrite(buffer, size, count, static_cast<std::FILE*>(file)));
}

int SeekFile(fi_handle file, long offset, int origin)
{
    return std::fseek(static_cast<std::FILE*>(file), offset, origin);
}

long TellFile(fi_handle file) { return std::ftell(static_cast<std::FILE*>(file)); }

constexpr FreeImageIO kFileCalls{ReadFile, WriteFile, SeekFile, TellFile};

}  // namespace

void StartImageLibrary()
{
    if (library_is_started) return;
    FreeImage_Initialise(0);
    FreeImage_SetOutputMessage(IgnoreMessage);
    library_is_started = true;
}

void StopImageLibrary()
{
    if (!library_is_started) return;
    FreeImage_DeInitialise();
    library_is_started = false;
}

Bitmap Bitmap::Floats(int width, int height, bool has_alpha)
{
    return Bitmap(AtLibrary([&] {
        return has_alpha ? FreeImage_AllocateT(FIT_RGBAF, width, height, 128)
                         : FreeImage_AllocateT(FIT_RGBF, width, height, 96);
    }));
}

Bitmap Bitmap::Bytes(int width, int height, int channels)
{
    return Bitmap(AtLibrary([&] { return FreeImage_Allocate(width, height, channels * 8); }));
}

void Bitmap::Unload::operator()(void* bitmap) const { FreeImage_Unload(Handle(bitmap)); }

float* Bitmap::FloatRow(int y) { return reinterpret_cast<float*>(FreeImage_GetScanLine(Handle(bitmap_.get()), y)); }

void Bitmap::SetBytes(int x, int y, const std::uint8_t rgb[3])
{
    const auto column = static_cast<unsigned>(x);
    const auto row    = static_cast<unsigned>(y);
    if (FreeImage_GetBPP(Handle(bitmap_.get())) == 8) {
        BYTE grey = rgb[0];
        FreeImage_SetPixelIndex(Handle(bitmap_.get()), column, row, &grey);
        return;
    }
    // By field name: the order of the bytes in memory is the library's.
    RGBQUAD color;
    color.rgbRed      = rgb[0];
    color.rgbGreen    = rgb[1];
    color.rgbBlue     = rgb[2];
    color.rgbReserved = 255;
    FreeImage_SetPixelColor(Handle(bitmap_.get()), column, row, &color);
}

void Bitmap::FlipVertical() { FreeImage_FlipVertical(Handle(bitmap_.get())); }

// The library looks at neither the result of its writes nor that of closing a file: a full disk would pass for a picture.
// So it writes to a stream of ours, which remembers.
bool Bitmap::Save(int format, const std::string& path) const
{
    std::FILE* const file = std::fopen(path.c_str(), "w+b");
    if (!file) return false;
    const bool saved   = AtLibrary([&] {
        FreeImageIO io = kFileCalls;
        return FreeImage_SaveToHandle(static_cast<FREE_IMAGE_FORMAT>(format), Handle(bitmap_.get()), &io, file, 0) !=
               FALSE;
    });
    const bool written = std::ferror(file) == 0;
    const bool closed  = std::fclose(file) == 0;
    return saved && written && closed;
}

}  // namespace hv
