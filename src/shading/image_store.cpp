#include "shading/image_store.h"

#include "base/release.h"
#include "session/console.h"
#include "session/search_paths.h"
#include "shading/byte_powers.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace hv {

std::vector<Image> Images;

namespace {

/// Regular files only: a folder has no pixels, and a pipe or a device might never end.
bool IsReadableFile(const std::string& path)
{
    std::error_code ignored;
    return std::filesystem::is_regular_file(path, ignored) && std::ifstream(path, std::ios::binary).is_open();
}

/// The first place on the search list where the file is; empty when there is none.
std::string FindPicture(const std::string& path)
{
    for (const std::string& folder : ImageSearchPaths) {
        std::string candidate = folder.empty() ? path : folder + '/' + path;
        if (IsReadableFile(candidate)) return candidate;
    }
    return {};
}

}  // namespace

int FindOrAddImage(std::string_view path)
{
    if (path.empty()) return -1;
    const auto found =
        std::find_if(Images.begin(), Images.end(), [&](const Image& image) { return image.path == path; });
    const auto index = static_cast<int>(found - Images.begin());
    if (found == Images.end()) Images.emplace_back().path = path;
    return index;
}

bool LoadImage(Image& image)
{
    if (image.path.empty() || image.refused) return false;
    if (image.loaded) return true;
    const std::string file = FindPicture(image.path);
    if (!file.empty()) {
        const bool usable = ReadImageFile(image, file);
        image.refused     = !usable;
        return usable;
    }
    PrintError("image - " + image.path + "\tcannot be found");
    PrintRule();
    return false;
}

void ReleaseImages()
{
    Release(Images);
    ReleasePowersOfBytes();
}

}  // namespace hv
