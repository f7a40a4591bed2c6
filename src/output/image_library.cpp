#include "output/image_library.h"

#include "output/output.h"

#include <FreeImage.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <utility>

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

/// A whole file in memory, as a stream that is only read.
struct MemoryFile {
    const std::uint8_t* bytes;
    long                size;
    long                position = 0;
    bool                is_strict;  ///< a read beyond the end is thrown

    long Left() const { return std::max(0L, size - position); }
};

MemoryFile& Memory(fi_handle file) { return *static_cast<MemoryFile*>(file); }

/// Whole items only, as fread counts them, but the bytes of a part of one are copied too.
unsigned ReadMemory(void* buffer, unsigned size, unsigned count, fi_handle handle)
{
    MemoryFile& file   = Memory(handle);
    const auto  wanted = static_cast<unsigned long>(size) * count;
    const auto  found  = std::min(wanted, static_cast<unsigned long>(file.Left()));
    // The codec that asks for it looks at no result of a read, and would search an end for ever. It is C++ throughout.
    if (file.is_strict && found < wanted) throw std::out_of_range("read beyond the end");
    if (found == 0) return 0;
    std::memcpy(buffer, file.bytes + file.position, found);
    file.position += static_cast<long>(found);
    return static_cast<unsigned>(found / size);
}

unsigned WriteMemory(void*, unsigned, unsigned, fi_handle) { return 0; }

int SeekMemory(fi_handle handle, long offset, int origin)
{
    MemoryFile& file   = Memory(handle);
    const long  from   = origin == SEEK_SET ? 0 : origin == SEEK_CUR ? file.position : file.size;
    long        target = 0;
    if (__builtin_add_overflow(from, offset, &target) || target < 0) return -1;
    file.position = target;
    return 0;
}

long TellMemory(fi_handle handle) { return Memory(handle).position; }

constexpr FreeImageIO kMemoryCalls{ReadMemory, WriteMemory, SeekMemory, TellMemory};

MemoryFile OpenMemory(std::span<const std::uint8_t> file, int format)
{
    return {.bytes = file.data(), .size = static_cast<long>(file.size()), .is_strict = format == FIF_EXR};
}

PixelKind ByteKind(FIBITMAP* bitmap)
{
    switch (FreeImage_GetBPP(bitmap)) {
    case 8:
        return FreeImage_GetPalette(bitmap) ? PixelKind::Index8 : PixelKind::Grey8;
    case 24:
        return PixelKind::Color8;
    case 32:
        return PixelKind::ColorAlpha8;
    default:
        return PixelKind::Other;
    }
}

PixelKind KindOfType(FIBITMAP* bitmap)
{
    switch (FreeImage_GetImageType(bitmap)) {
    case FIT_BITMAP:
        return ByteKind(bitmap);
    case FIT_UINT16:
        return PixelKind::Grey16;
    case FIT_RGB16:
        return PixelKind::Color16;
    case FIT_RGBA16:
        return PixelKind::ColorAlpha16;
    case FIT_UINT32:
        return PixelKind::Integer32;
    case FIT_FLOAT:
        return PixelKind::Float32;
    case FIT_RGBF:
        return PixelKind::FloatColor;
    case FIT_RGBAF:
        return PixelKind::FloatColorAlpha;
    default:
        return PixelKind::Other;
    }
}

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

Bitmap Bitmap::Load(int format, std::span<const std::uint8_t> file)
{
    Bitmap     bitmap(AtLibrary([&] {
        FreeImageIO io     = kMemoryCalls;
        MemoryFile  memory = OpenMemory(file, format);
        return FreeImage_LoadFromHandle(static_cast<FREE_IMAGE_FORMAT>(format), &io, &memory, 0);
    }));
    const bool has_pixels = bitmap.IsAllocated() && FreeImage_HasPixels(Handle(bitmap.bitmap_.get()));
    return has_pixels ? std::move(bitmap) : Bitmap(nullptr);
}

int Bitmap::FormatOf(std::span<const std::uint8_t> file)
{
    // Counted from 1, so that what is thrown gives "none".
    return AtLibrary([&] {
               FreeImageIO io     = kMemoryCalls;
               MemoryFile  memory = OpenMemory(file, kNoFormat);
               return static_cast<int>(FreeImage_GetFileTypeFromHandle(&io, &memory, 0)) + 1;
           }) -
           1;
}

PixelKind Bitmap::Kind() const { return KindOfType(Handle(bitmap_.get())); }

int Bitmap::Width() const { return static_cast<int>(FreeImage_GetWidth(Handle(bitmap_.get()))); }

int Bitmap::Height() const { return static_cast<int>(FreeImage_GetHeight(Handle(bitmap_.get()))); }

const std::uint8_t* Bitmap::Row(int y) const
{
    FIBITMAP* const     bitmap     = Handle(bitmap_.get());
    const std::uint64_t pixel_bits = FreeImage_GetBPP(bitmap);
    const std::uint64_t row_bytes  = (FreeImage_GetWidth(bitmap) * pixel_bits + 7) / 8;
    if (FreeImage_GetPitch(bitmap) < row_bytes || y < 0 || y >= Height()) return nullptr;
    return FreeImage_GetScanLine(bitmap, y);
}

void Bitmap::CopyColors(const std::uint8_t* row, int channels, std::uint8_t* out) const
{
    const int width = Width();
    for (int x = 0; x < width; ++x, row += channels, out += channels) {
        out[0] = row[FI_RGBA_RED];
        out[1] = row[FI_RGBA_GREEN];
        out[2] = row[FI_RGBA_BLUE];
        if (channels == 4) out[3] = row[FI_RGBA_ALPHA];
    }
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

// The library looks at neither the result of its writes nor that of closing a file: a full disk would pass for a
// picture. So it writes to a stream of ours, which remembers.
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
