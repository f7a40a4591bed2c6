#include "session/search_paths.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace hv {

std::vector<std::string> ImageSearchPaths;

void AddImageSearchPath(std::string_view path)
{
    if (std::find(ImageSearchPaths.begin(), ImageSearchPaths.end(), path) == ImageSearchPaths.end())
        ImageSearchPaths.emplace_back(path);
}

bool IsReadableFile(const std::string& path)
{
    std::error_code ignored;
    return std::filesystem::is_regular_file(path, ignored) && std::ifstream(path, std::ios::binary).is_open();
}

std::string FindPicture(const std::string& path, std::size_t folder_count)
{
    for (std::size_t i = 0; i < std::min(folder_count, ImageSearchPaths.size()); ++i) {
        const std::string& folder    = ImageSearchPaths[i];
        std::string        candidate = folder.empty() ? path : folder + '/' + path;
        if (IsReadableFile(candidate)) return candidate;
    }
    return {};
}

}  // namespace hv
