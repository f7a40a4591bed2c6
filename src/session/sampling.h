#pragma once

#include <cstdint>
#include <vector>

/// Random and quasi-random numbers. Tables are filled by start-up and read-only afterwards.
namespace hv {

inline constexpr int kTableDimensions = 16;
inline constexpr int kTableEntries    = 4096;

extern std::vector<float> RadicalInverseTables[kTableDimensions];
extern float              PixelJitterTable[32][32][2];  ///< rows y mod 32, columns x mod 32; pairs in [0, 1)
extern float              PowerTable[256];              ///< entry i is 2^(i - 136)

/// Fills all tables. FillSamplingTables runs a parallel region.
void FillSamplingTables();

/// Empties RadicalInverseTables, keeping their storage.
void ClearSamplingTables();

/// Radical inverse of `index` in the base prime[dimension]; dimensions of 64 and more fold back by modulo 64. In [0,
/// 1].
float RadicalInverse(std::uint32_t dimension, std::uint32_t index);

/// Adds an offset and wraps: a sum of exactly 1 stays 1.
inline float Rotate(float value, float offset)
{
    const float sum = value + offset;
    return sum > 1.0f ? sum - 1.0f : sum;
}

/// Uniform in [0, 1), at most 0.99999994. From a generator of the calling thread.
float HardwareRandom();

/// Fixes all random numbers, or frees them again. Takes effect with the next start-up.
void SetSeed(std::uint64_t seed);
void ClearSeed();

/// Whether the random numbers of this start-up are fixed.
bool HasFixedSeed();

/// Starts the calling thread's numbers for one item (a pixel, a photon, a list of emitters) of one frame. With a seed
/// the numbers that follow depend on (seed, item, frame) alone, whatever thread runs the item; without one the call
/// does nothing.
void BeginRandomStream(std::uint64_t item, std::uint32_t frame);

}  // namespace hv
