#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace hv {

inline constexpr float kByteScale = 0.0039215684f;  ///< of byte samples, and of 16-bit ones as well

/// A picture in memory. Samples stand row by row, channels interleaved, red first; one of the pixel stores is in use.
struct Image {
    bool                       loaded  = false;
    bool                       refused = false;  ///< a file was found but cannot be read: told once, not tried again
    std::vector<std::uint32_t> bit_pixels;       ///< one bit a sample
    std::vector<std::uint8_t>  pixels8;
    std::vector<std::uint16_t> pixels16;
    std::vector<float>         pixels32;
    std::vector<double>        pixels64;
    std::vector<std::uint32_t> pixels_rgbe;    ///< one word a pixel: red, green, blue, exponent
    std::string                path;           ///< file name; an AOV without one is not written
    int                        bits     = 32;  ///< per channel: 1, 8, 16, 32 or 64
    int                        channels = 3;
    int                        width = 0, height = 0;
    bool                       packed        = false;  ///< the pixels are in pixels_rgbe
    bool                       allow_packing = true;
};

/// Sizes one pixel store and zeroes it. A size, channel or bit count that does not fit, or too little memory, leaves
/// the image empty and not loaded, and returns false.
bool AllocateImage(Image& image, int width, int height, int channels, int bits, bool packed);

/// Pixel `index` (y * width + x) as three channels. 8- and 16-bit samples are scaled by 1/255; one channel is repeated.
/// An index beyond the image reads black and writes nothing.
void ReadImagePixel(const Image& image, float out[3], std::uint32_t index);
void WriteImagePixel(Image& image, const float in[3], std::uint32_t index);

/// The pixel store in use as bytes.
std::span<std::byte> PixelBytes(Image& image);

/// Bytes of all pixel stores.
std::int64_t ImageBytes(const Image& image);

/// Fills an image from a file, whose format its content tells. Byte, 16-bit and float pictures of 1, 3 or 4 channels
/// keep their samples; three floats are packed to 4 bytes a pixel where `allow_packing` is set. A text ".hdr" or ".HDR"
/// anywhere in `image.path` turns the rows over. Sets `loaded`. A file that is broken, too large or of no known format
/// leaves the image empty and not loaded, prints one error line and returns false. A sound file of a pixel layout that
/// has no store (1 or 4 bits a pixel, complex numbers) is loaded without pixels, with one warning.
bool ReadImageFile(Image& image, const std::string& full_path);

/// Writes the picture in the format that its path names. Values go as they stand. Returns false, and prints nothing,
/// for an empty path, an image without pixels, an unknown ending or a failed save.
bool WriteImage(const Image& image);

}  // namespace hv
