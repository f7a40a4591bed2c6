#pragma once

#include "output/image.h"

#include <string_view>
#include <vector>

namespace hv {

/// The image store: every picture that shaders name, once a spelling. Filled while shaders are bound, emptied by
/// hvFinalize; read-only while rays fly.
extern std::vector<Image> Images;

/// Index of the picture with this path, letter by letter; appended, unread, when there is none. -1 for an empty path.
int FindOrAddImage(std::string_view path);

/// Reads a picture at the first call, from the first folder of ImageSearchPaths that has the file. Returns whether it
/// is usable: false for an empty path, for a missing file, which an error line tells at each call, and for one that
/// cannot be read, which is told once.
bool LoadImage(Image& image);

/// Empties the store. The shaders that were bound to it must be gone.
void ReleaseImages();

}  // namespace hv
