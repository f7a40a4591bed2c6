#include "shading/byte_powers.h"

#include "base/release.h"

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

namespace hv {

namespace {

struct BytePowers {
    std::uint32_t          gamma_bits;  ///< by its bits, so that a gamma that is no number finds its table again
    std::array<float, 256> powers;
};

/// Filled while shaders are bound, emptied together with the image store. Each table has an allocation of its own, as
/// elements point to it.
std::vector<std::unique_ptr<BytePowers>> BytePowerTables;

}  // namespace

const float* PowersOfBytes(float gamma)
{
    const auto bits = std::bit_cast<std::uint32_t>(gamma);
    for (const auto& table : BytePowerTables)
        if (table->gamma_bits == bits) return table->powers.data();

    auto table        = std::make_unique<BytePowers>();
    table->gamma_bits = bits;
    for (std::size_t i = 0; i < 256; ++i) table->powers[i] = std::pow(static_cast<float>(i) * kByteScale, gamma);
    BytePowerTables.push_back(std::move(table));
    return BytePowerTables.back()->powers.data();
}

void ReleasePowersOfBytes() { Release(BytePowerTables); }

}  // namespace hv
