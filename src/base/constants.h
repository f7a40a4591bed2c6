#pragma once

#include <cstdint>

namespace hv {

inline constexpr float kPi      = 3.14159265f;
inline constexpr float kTwoPi   = 6.28318531f;
inline constexpr float kHalfPi  = 1.57079633f;
inline constexpr float kInvPi   = 0.318309886f;
inline constexpr float kInv4Pi  = 0.0795774715f;
inline constexpr float kRadians = 0.017453292f;  ///< radians in a degree

inline constexpr float kFarAway    = 3.4e38f;        ///< stands for infinity in distances and empty boxes
inline constexpr float kRayEpsilon = 1e-6f;          ///< nearest distance at which a hit counts
inline constexpr float kPresent    = 0.0009765625f;  ///< 1/1024: a colour is present when a channel is above it

inline constexpr std::uint32_t kNone       = ~0u;  ///< index that names nothing
inline constexpr int           kMaxThreads = 256;  ///< thread numbers travel in one byte

}  // namespace hv
