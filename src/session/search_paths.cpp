#include "session/search_paths.h"

#include <algorithm>

namespace hv {

std::vector<std::string> ImageSearchPaths;

void AddImageSearchPath(std::string_view path)
{
    if (std::find(ImageSearchPaths.begin(), ImageSearchPaths.end(), path) == ImageSearchPaths.end())
        ImageSearchPaths.emplace_back(path);
}

}  // namespace hv
