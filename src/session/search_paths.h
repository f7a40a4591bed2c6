#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace hv {

/// Filled by start-up (the empty string), hvGo and `image_path`; tried in order, the empty string means the path as
/// given.
extern std::vector<std::string> ImageSearchPaths;

/// Appends unless the list holds an equal string.
void AddImageSearchPath(std::string_view path);

}  // namespace hv
