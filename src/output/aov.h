#pragma once

#include "hv.h"
#include "output/image.h"

#include <string>
#include <vector>

namespace hv {

/// An image buffer that collects one quantity over a render. Owned by a camera or a light.
struct CameraAOV {
    std::string   shader_name;              ///< geometry light: the emissive shader whose light it collects
    std::string   user_data = "undefined";  ///< Channel::UserData: name of the vertex data shown
    Image         image;                    ///< its path is the AOV's name
    int           shader = -1;              ///< index of shader_name, found by PrepareAOV; -1 for any
    int           width = 0, height = 0;    ///< pixels
    std::uint32_t channel = 1;              ///< bits of ::Channel; cameras compare it whole, lights test single bits
    bool is_share = false;  ///< of a light: collects the lobes of `channel` by bit, direct light and met light alike
};

}  // namespace hv
