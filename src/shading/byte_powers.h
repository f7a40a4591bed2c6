#pragma once

#include "output/image.h"

namespace hv {

/// 256 floats: entry i is i * kByteScale to the power `gamma`, to the bit what pow gives. One table is kept a gamma; it
/// stays in place until ReleasePowersOfBytes.
const float* PowersOfBytes(float gamma);

void ReleasePowersOfBytes();

}  // namespace hv
