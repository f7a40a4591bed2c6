#include "output/picture_decoder.h"

#include "output/image_library.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <span>
#include <string_view>

namespace hv {
namespace {

constexpr const char* kNoMemory = "does not fit into memory";

/// Channels and bits of the store for a kind of pixel; no channels for a kind without one.
struct StoreLayout {
    int channels, bits;
};

StoreLayout LayoutOf(PixelKind kind)
{
    switch (kind) {
    case PixelKind::Grey8:
        return {1, 8};
    case PixelKind::Index8:
    case PixelKind::Color8:
        return {3, 8};
    case PixelKind::ColorAlpha8:
        return {4, 8};
    case PixelKind::Grey16:
        return {1, 16};
    case PixelKind::Color16:
        return {3, 16};
    case PixelKind::ColorAlpha16:
        return {4, 16};
    case PixelKind::Integer32:  // meant: the words are taken for floats
    case PixelKind::Float32:
        return {1, 32};
    case PixelKind::FloatColor:
        return {3, 32};
    case PixelKind::FloatColorAlpha:
        return {4, 32};
    default:
        return {0, 0};
    }
}

/// Red, green, blue and a common exponent, a byte each. Truncated, so a channel loses less than 1/128 of the largest
/// one; what is not above 0 counts as 0.
std::uint32_t PackColor(const float color[3])
{
    constexpr float kSmallest = 1e-32f;
    constexpr float kLargest  = 0x1.fffffep126f;  // the largest exponent that its byte holds

    float channels[3];
    for (int c = 0; c < 3; ++c) channels[c] = color[c] > 0.0f ? std::min(color[c], kLargest) : 0.0f;
    const float largest = std::max({channels[0], channels[1], channels[2]});
    if (largest < kSmallest) return 0;

    int         exponent = 0;
    const float scale    = 256.0f * std::frexp(largest, &exponent) / largest;
    const auto  Byte     = [&](float channel) { return static_cast<std::uint32_t>(channel * scale); };
    return Byte(channels[0]) | Byte(channels[1]) << 8 | Byte(channels[2]) << 16 |
           static_cast<std::uint32_t>(exponent + 128) << 24;
}

void PackRow(const std::uint8_t* row, int width, std::byte* out)
{
    for (int x = 0; x < width; ++x) {
        float color[3];
        std::memcpy(color, row + sizeof color * static_cast<std::size_t>(x), sizeof color);
        const std::uint32_t word = PackColor(color);
        std::memcpy(out + sizeof word * static_cast<std::size_t>(x), &word, sizeof word);
    }
}

/// Meant: a palette counts as a grey ramp, whatever its colours, so that the index is the value.
void SpreadRow(const std::uint8_t* row, int width, std::byte* out)
{
    for (int x = 0; x < width; ++x) std::fill_n(out + 3 * static_cast<std::size_t>(x), 3, std::byte{row[x]});
}

/// Brings a row of the library into the form of its store.
void StoreRow(const Bitmap& bitmap, PixelKind kind, const std::uint8_t* row, const Image& image,
              std::span<std::byte> out)
{
    switch (kind) {
    case PixelKind::Index8:
        return SpreadRow(row, image.width, out.data());
    case PixelKind::Color8:
    case PixelKind::ColorAlpha8:
        return bitmap.CopyColors(row, image.channels, reinterpret_cast<std::uint8_t*>(out.data()));
    default:
        if (image.packed) return PackRow(row, image.width, out.data());
        std::memcpy(out.data(), row, out.size());
    }
}

std::string StorePixels(Image& image, const Bitmap& bitmap)
{
    const PixelKind kind        = bitmap.Kind();
    const auto [channels, bits] = LayoutOf(kind);
    if (channels == 0) {
        image.loaded = true;
        return "";
    }
    const bool packed = kind == PixelKind::FloatColor && image.allow_packing;
    if (!AllocateImage(image, bitmap.Width(), bitmap.Height(), channels, bits, packed)) return kNoMemory;

    const std::span<std::byte> store     = PixelBytes(image);
    const std::size_t          row_bytes = store.size() / static_cast<std::size_t>(image.height);
    for (int y = 0; y < image.height; ++y) {
        const std::uint8_t* const row = bitmap.Row(y);
        if (!row) return "was decoded to rows that are too short";
        StoreRow(bitmap, kind, row, image, store.subspan(static_cast<std::size_t>(y) * row_bytes, row_bytes));
    }
    return "";
}

/// Meant: the text counts anywhere in the path as the scene writes it, folders included.
bool IsUpsideDown(std::string_view path)
{
    return path.find(".hdr") != std::string_view::npos || path.find(".HDR") != std::string_view::npos;
}

}  // namespace

std::string DecodePicture(Image& image, std::span<std::uint8_t> file, bool in_child)
{
    const PictureVerdict verdict          = CheckPicture(file);
    const bool           is_left_to_child = verdict.needs_child && in_child;
    if (!verdict.problem.empty() && !is_left_to_child) return verdict.problem;
    if (verdict.needs_child && !in_child) return "is of a format that is read in a child process only";

    const bool is_found = verdict.format == PictureFormat::Other;
    const int  format   = is_found ? Bitmap::FormatOf(file) : static_cast<int>(verdict.format);
    if (format == Bitmap::kNoFormat) return "is of no known picture format";
    errno         = 0;
    Bitmap bitmap = Bitmap::Load(format, file);
    // The library does not tell why it gave up, but an allocation that failed leaves its mark.
    if (!bitmap.IsAllocated()) return errno == ENOMEM ? kNoMemory : "cannot be decoded";
    if (IsUpsideDown(image.path)) bitmap.FlipVertical();
    return StorePixels(image, bitmap);
}

}  // namespace hv
