#include "shading/textures.h"

#include "session/console.h"
#include "shading/byte_powers.h"
#include "shading/image_store.h"
#include "shading/shading.h"

namespace hv {

namespace {

/// Index of a picture that can be used, else -1.
int BindImage(const std::string& path)
{
    const int index = FindOrAddImage(path);
    return index >= 0 && LoadImage(Images[static_cast<std::size_t>(index)]) ? index : -1;
}

/// Meant: the words of a bit array count as 32 bytes each.
std::int64_t ReportedBytes(const Image& image)
{
    constexpr std::int64_t kMoreThanTheirSize = 32 - 4;
    return ImageBytes(image) + static_cast<std::int64_t>(image.bit_pixels.size()) * kMoreThanTheirSize;
}

}  // namespace

void BindElement(ShaderElement& element)
{
    element.image_index         = BindImage(element.image);
    element.fresnel_image_index = BindImage(element.fresnel_image);
    element.byte_powers         = nullptr;
    if (element.image_index < 0 || element.gamma == 1.0f) return;
    const Image& image = Images[static_cast<std::size_t>(element.image_index)];
    if (image.bits == 8 && !image.packed) element.byte_powers = PowersOfBytes(element.gamma);
}

void ReportTextures()
{
    bool         all_loaded = true;
    std::int64_t bytes      = 0;
    for (Image& image : Images) {
        if (!LoadImage(image)) all_loaded = false;
        bytes += ReportedBytes(image);
    }
    if (!all_loaded) PrintRule();
    ReportStatistic("textures", static_cast<std::int64_t>(Images.size()), bytes);
    PrintRule();
}

}  // namespace hv
