#pragma once

#include <cstdint>
#include <span>
#include <string>

/// The guard in front of the picture library, whose decoders crash, hang or take all memory on files that lie.
namespace hv {

using FileBytes = std::span<const std::uint8_t>;

/// Formats that are told by the first bytes of a file. The numbers are the codes of the picture library.
enum class PictureFormat : int {
    Other    = -1,  ///< left to the library to find
    Bmp      = 0,
    Jpeg     = 2,
    PbmText  = 7,
    Pbm      = 8,
    PgmText  = 11,
    Pgm      = 12,
    Png      = 13,
    PpmText  = 14,
    Ppm      = 15,
    Targa    = 17,
    Tiff     = 18,
    Psd      = 20,
    Gif      = 25,
    Radiance = 26,
    Exr      = 29,
    FloatMap = 32,
};

/// What the guard says of a file.
struct PictureVerdict {
    PictureFormat format = PictureFormat::Other;
    std::string   problem;  ///< what is wrong with the file, in a few words; empty: sound as far as can be seen
    bool          needs_child = false;  ///< sound perhaps, but no check vouches for it: for a process that may end
};

/// Finds the format of a file and compares its structure, and the size that it claims, with its length and with the memory
/// of the machine. Hides from the library what it would read though nobody asks for it: previews, notes of cameras and
/// editors. Time is linear in the length of the file.
PictureVerdict CheckPicture(std::span<std::uint8_t> file);

}  // namespace hv
