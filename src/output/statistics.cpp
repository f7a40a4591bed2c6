#include "output/output.h"

#include <algorithm>

namespace hv {

// Single precision, each term divided by itself and the pixels in their order: the figures are defined by the sums.
void ImageStatistics(const Image& image, float mean[3], float variance[3])
{
    for (int c = 0; c < 3; ++c) mean[c] = variance[c] = 0.0f;
    if (!image.loaded) return;

    const auto  pixel_count = static_cast<std::uint32_t>(image.width) * static_cast<std::uint32_t>(image.height);
    const float divisor     = static_cast<float>(pixel_count);

    float pixel[3];
    for (std::uint32_t i = 0; i < pixel_count; ++i) {
        ReadImagePixel(image, pixel, i);
        for (int c = 0; c < 3; ++c) mean[c] += pixel[c] / divisor;
    }

    // Meant: the squared largest channel of each pixel counts for all three figures; only the mean differs.
    float square_sum = 0.0f;
    for (std::uint32_t i = 0; i < pixel_count; ++i) {
        ReadImagePixel(image, pixel, i);
        const float largest = std::max(pixel[0], std::max(pixel[1], pixel[2]));
        square_sum += largest * largest / divisor;
    }
    for (int c = 0; c < 3; ++c) variance[c] = square_sum - mean[c] * mean[c];
}

}  // namespace hv
