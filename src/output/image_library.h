#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

/// The picture library behind a small record; no other file names it.
namespace hv {

/// What a pixel of a picture is made of. Colours stand red, green, blue, alpha, but for those of bytes, whose order is
/// the library's.
enum class PixelKind {
    Other,   ///< no whole bytes, or numbers that no picture of ours holds
    Index8,  ///< a byte with a palette
    Grey8,
    Color8,
    ColorAlpha8,
    Grey16,
    Color16,
    ColorAlpha16,
    Integer32,
    Float32,
    FloatColor,
    FloatColorAlpha,
};

/// A picture on its way from or to a file, freed with the record. Row 0 is what the library takes for the first row,
/// the lowest one of the picture.
class Bitmap {
public:
    static Bitmap Floats(int width, int height, bool has_alpha);  ///< 3 or 4 floats a pixel
    static Bitmap Bytes(int width, int height, int channels);     ///< 1, 3 or 4 bytes a pixel

    /// Decodes a whole file in the format of this code of the library, without options. Not allocated when that fails.
    /// The library is not safe against files that lie: see CheckPicture.
    static Bitmap Load(int format, std::span<const std::uint8_t> file);

    /// Code of the format that the library finds in a file; kNoFormat for none.
    static int FormatOf(std::span<const std::uint8_t> file);

    static constexpr int kNoFormat = -1;

    bool IsAllocated() const { return bitmap_ != nullptr; }

    PixelKind Kind() const;
    int       Width() const;
    int       Height() const;

    /// Row y as it stands in memory; null where the library's row is shorter than its pixels would be.
    const std::uint8_t* Row(int y) const;

    /// Copies a row of byte colours as `channels` (3 or 4) bytes a pixel, red first.
    void CopyColors(const std::uint8_t* row, int channels, std::uint8_t* out) const;

    /// Row y of a float picture: width x 3 or 4 floats, red first.
    float* FloatRow(int y);

    /// Sets a pixel of a byte picture: the first byte alone where it has one channel; alpha is opaque.
    void SetBytes(int x, int y, const std::uint8_t rgb[3]);

    void FlipVertical();

    /// Writes the file in the format of this code of the library, without options.
    bool Save(int format, const std::string& path) const;

private:
    struct Unload {
        void operator()(void* bitmap) const;
    };
    explicit Bitmap(void* bitmap) : bitmap_(bitmap) {}

    std::unique_ptr<void, Unload> bitmap_;
};

}  // namespace hv
