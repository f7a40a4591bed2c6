#pragma once

namespace hv {

inline constexpr float kByteScale = 0.0039215684f;  ///< of byte samples, and of 16-bit ones as well

/// 256 floats: entry i is i * kByteScale to the power `gamma`, to the bit what pow gives. One table is kept a gamma; it
/// stays in place until ReleasePowersOfBytes.
const float* PowersOfBytes(float gamma);

void ReleasePowersOfBytes();

}  // namespace hv
