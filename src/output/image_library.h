#pragma once

#include <cstdint>
#include <memory>
#include <string>

/// The picture library behind a small record; no other file names it.
namespace hv {

/// A picture under way to a file, freed with the record. Row 0 is what the library takes for the first row.
class Bitmap {
public:
    static Bitmap Floats(int width, int height, bool has_alpha);  ///< 3 or 4 floats a pixel
    static Bitmap Bytes(int width, int height, int channels);     ///< 1, 3 or 4 bytes a pixel

    bool IsAllocated() const { return bitmap_ != nullptr; }

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
