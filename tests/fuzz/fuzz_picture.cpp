// Anything may stand in a picture file: what the guard lets through, the picture library must survive. Sizes and store of
// what comes out must agree.

#include "output/image_library.h"
#include "output/output.h"
#include "output/picture_decoder.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int*, char***);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    hv::StartImageLibrary();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    hv::Image image;
    image.path = size % 2 == 0 ? "picture.hdr" : "picture";
    std::vector<std::uint8_t> file(data, data + size);
    const std::string         problem = hv::DecodePicture(image, file, false);
    if (!problem.empty()) return 0;
    if (!image.loaded) std::abort();
    float color[3];
    for (int corner = 0; corner < 4 && image.width > 0; ++corner) {
        const int x = corner % 2 ? image.width - 1 : 0, y = corner / 2 ? image.height - 1 : 0;
        hv::ReadImagePixel(
            image, color,
            static_cast<std::uint32_t>(y) * static_cast<std::uint32_t>(image.width) + static_cast<std::uint32_t>(x));
    }
    return 0;
}
