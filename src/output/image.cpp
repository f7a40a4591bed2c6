#include "output/image.h"

#include "base/physical_memory.h"
#include "base/release.h"
#include "session/sampling.h"

#include <cstddef>
#include <limits>
#include <new>
#include <stdexcept>

namespace hv {
namespace {

constexpr std::uint64_t kSamplesAWord = 32;

void ReleasePixels(Image& image)
{
    image.loaded = false;
    image.packed = false;
    image.width = image.height = 0;

    Release(image.bit_pixels);
    Release(image.pixels8);
    Release(image.pixels16);
    Release(image.pixels32);
    Release(image.pixels64);
    Release(image.pixels_rgbe);
}

bool IsKnownLayout(int channels, int bits)
{
    const bool known_channels = channels == 1 || channels == 3 || channels == 4;
    return known_channels && (bits == 1 || bits == 8 || bits == 16 || bits == 32 || bits == 64);
}

void SizeStore(Image& image, std::uint64_t pixel_count)
{
    const std::uint64_t sample_count = pixel_count * static_cast<std::uint64_t>(image.channels);
    if (image.packed) return image.pixels_rgbe.resize(pixel_count);
    switch (image.bits) {
    case 1:
        return image.bit_pixels.resize((sample_count + kSamplesAWord - 1) / kSamplesAWord);
    case 8:
        return image.pixels8.resize(sample_count);
    case 16:
        return image.pixels16.resize(sample_count);
    case 32:
        return image.pixels32.resize(sample_count);
    default:
        return image.pixels64.resize(sample_count);
    }
}

std::uint64_t PixelCount(const Image& image)
{
    return static_cast<std::uint64_t>(image.width) * static_cast<std::uint64_t>(image.height);
}

float ReadSample(const Image& image, std::size_t sample)
{
    switch (image.bits) {
    case 1:
        return static_cast<float>(image.bit_pixels[sample / kSamplesAWord] >> (sample % kSamplesAWord) & 1u);
    case 8:
        return static_cast<float>(image.pixels8[sample]) * kByteScale;
    // Meant: 16 bits take the scale of a byte as well, so white reads 257.
    case 16:
        return static_cast<float>(image.pixels16[sample]) * kByteScale;
    case 32:
        return image.pixels32[sample];
    default:
        return static_cast<float>(image.pixels64[sample]);
    }
}

/// 0 to `white`, truncated; a non-number gives 0.
std::uint32_t Quantized(float value, float white)
{
    if (value >= 1.0f) return static_cast<std::uint32_t>(white);
    return value > 0.0f ? static_cast<std::uint32_t>(value * white) : 0u;
}

void WriteSample(Image& image, std::size_t sample, float value)
{
    switch (image.bits) {
    case 1: {
        const std::uint32_t bit  = 1u << (sample % kSamplesAWord);
        std::uint32_t&      word = image.bit_pixels[sample / kSamplesAWord];
        word                     = Quantized(value, 1.0f) != 0 ? word | bit : word & ~bit;
        break;
    }
    case 8:
        image.pixels8[sample] = static_cast<std::uint8_t>(Quantized(value, 255.0f));
        break;
    case 16:
        image.pixels16[sample] = static_cast<std::uint16_t>(Quantized(value, 65535.0f));
        break;
    case 32:
        image.pixels32[sample] = value;
        break;
    default:
        image.pixels64[sample] = value;
        break;
    }
}

void ReadPackedPixel(float out[3], std::uint32_t word)
{
    const std::uint32_t exponent = word >> 24;
    for (int c = 0; c < 3; ++c)
        out[c] = exponent == 0 ? 0.0f : static_cast<float>(word >> (8 * c) & 255u) * PowerTable[exponent];
}

}  // namespace

bool AllocateImage(Image& image, int width, int height, int channels, int bits, bool packed)
{
    ReleasePixels(image);
    if (width < 1 || height < 1 || !IsKnownLayout(channels, bits)) return false;

    // Pixels are counted in 32 bits everywhere, and no count below can overflow 64.
    const std::uint64_t pixel_count = static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height);
    if (pixel_count >= std::numeric_limits<std::uint32_t>::max()) return false;
    const std::uint64_t pixel_bits = packed ? 32u : static_cast<std::uint64_t>(channels) * static_cast<unsigned>(bits);
    if (pixel_count * pixel_bits / 8 > PhysicalMemory()) return false;

    image.channels = channels;
    image.bits     = bits;
    image.packed   = packed;
    try {
        SizeStore(image, pixel_count);
    } catch (const std::bad_alloc&) {
        ReleasePixels(image);
        return false;
    } catch (const std::length_error&) {
        ReleasePixels(image);
        return false;
    }
    image.width  = width;
    image.height = height;
    image.loaded = true;
    return true;
}

void ReadImagePixel(const Image& image, float out[3], std::uint32_t index)
{
    out[0] = out[1] = out[2] = 0.0f;
    if (index >= PixelCount(image)) return;
    if (image.packed) return ReadPackedPixel(out, image.pixels_rgbe[index]);

    const std::size_t first = static_cast<std::size_t>(index) * static_cast<std::size_t>(image.channels);
    for (std::size_t c = 0; c < 3; ++c) out[c] = ReadSample(image, first + (image.channels == 1 ? 0 : c));
}

void WriteImagePixel(Image& image, const float in[3], std::uint32_t index)
{
    // Packed pixels are made by the reader of pictures and never written.
    if (index >= PixelCount(image) || image.packed) return;

    const std::size_t first = static_cast<std::size_t>(index) * static_cast<std::size_t>(image.channels);
    const std::size_t count = image.channels == 1 ? 1 : 3;
    for (std::size_t c = 0; c < count; ++c) WriteSample(image, first + c, in[c]);
}

std::span<std::byte> PixelBytes(Image& image)
{
    if (image.packed) return std::as_writable_bytes(std::span(image.pixels_rgbe));
    switch (image.bits) {
    case 1:
        return std::as_writable_bytes(std::span(image.bit_pixels));
    case 8:
        return std::as_writable_bytes(std::span(image.pixels8));
    case 16:
        return std::as_writable_bytes(std::span(image.pixels16));
    case 32:
        return std::as_writable_bytes(std::span(image.pixels32));
    default:
        return std::as_writable_bytes(std::span(image.pixels64));
    }
}

std::int64_t ImageBytes(const Image& image)
{
    const std::size_t bytes = image.bit_pixels.size() * sizeof(std::uint32_t) + image.pixels8.size() +
                              image.pixels16.size() * sizeof(std::uint16_t) + image.pixels32.size() * sizeof(float) +
                              image.pixels64.size() * sizeof(double) + image.pixels_rgbe.size() * sizeof(std::uint32_t);
    return static_cast<std::int64_t>(bytes);
}

}  // namespace hv
