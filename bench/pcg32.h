#pragma once

#include <cstdint>

/// PCG32, the XSH-RR form (O'Neill 2014): the generator that the ray sets are defined by.
class Pcg32 {
public:
    Pcg32(std::uint64_t seed, std::uint64_t stream) : increment_(2 * stream + 1)
    {
        Next();
        state_ += seed;
        Next();
    }

    std::uint32_t Next()
    {
        const std::uint64_t old = state_;
        state_                  = old * 6364136223846793005u + increment_;
        const auto shifted      = static_cast<std::uint32_t>(((old >> 18) ^ old) >> 27);
        const auto turn         = static_cast<std::uint32_t>(old >> 59);
        return shifted >> turn | shifted << ((32 - turn) & 31);
    }

    /// Uniform in [0, 1): the top 24 bits.
    float Uniform() { return static_cast<float>(Next() >> 8) * 0x1p-24f; }

private:
    std::uint64_t state_ = 0;
    std::uint64_t increment_;
};
