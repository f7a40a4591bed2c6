#pragma once

#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace hv {

/// Filled by start-up (the empty string), hvGo and `image_path`; tried in order, the empty string means the path as
/// given.
extern std::vector<std::string> ImageSearchPaths;

/// Appends unless the list holds an equal string.
void AddImageSearchPath(std::string_view path);

/// Whether a file can be read. Regular files only: a folder holds nothing, and a pipe or a device might never end.
bool IsReadableFile(const std::string& path);

/// The first place among the first `folder_count` of ImageSearchPaths where the file is; empty when there is none.
std::string FindPicture(const std::string& path, std::size_t folder_count = std::numeric_limits<std::size_t>::max());

}  // namespace hv
