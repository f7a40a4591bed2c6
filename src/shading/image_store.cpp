#include "shading/image_store.h"

#include "base/release.h"
#include "session/console.h"
#include "session/search_paths.h"
#include "shading/byte_powers.h"

#include <algorithm>

namespace hv {

std::vector<Image> Images;

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
