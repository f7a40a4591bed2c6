#pragma once

#include "output/image.h"
#include "output/picture_check.h"

#include <cstdint>
#include <span>
#include <string>

namespace hv {

/// Fills an image from the bytes of a picture file: guard, decoder, conversion. Overwrites those that the library need
/// not see. `in_child` opens the formats that no check vouches for. Returns what is wrong in a few words; empty when
/// the image is loaded, which then has no pixels if their layout has no store.
std::string DecodePicture(Image& image, std::span<std::uint8_t> file, bool in_child);

}  // namespace hv
