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
    Anymap   = 7,  ///< portable bit, grey and pixel maps: one decoder of the library reads all six
    Png      = 13,
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
    /// Sound perhaps, but no check vouches for it: for a process that may end, in which `problem` does not count.
    bool needs_child = false;
};

/// Finds the format of a file and compares its structure, and the size that it claims, with its length and with the
/// memory of the machine. Hides from the library what it would read though nobody asks for it: previews, texts, notes
/// of cameras and editors. Files that need a child stay as they are. Time is linear in the length of the file.
PictureVerdict CheckPicture(std::span<std::uint8_t> file);

}  // namespace hv
