#pragma once

#include <cstdint>
#include <vector>

namespace hv {

/// Draws indices in proportion to weights. Unusable (total 0) until built over weights with a positive sum.
struct AreaSampler {
    std::uint32_t              count = 0;
    std::vector<float>         cumulative;   ///< count + 1 inclusive sums divided by the total; the last is 1
    std::vector<float>         weights;      ///< count weights divided by the total: the probability of each index
    std::vector<std::uint32_t> lookup;       ///< count + 1: where the search for a number in [i / count, ...) starts
    double                     total = 0.0;  ///< sum of the weights as given

    bool IsUsable() const { return total > 0.0; }
};

/// Builds the sampler over `weights`. A total that is not above 0 leaves it unusable, without tables.
void BuildAreaSampler(AreaSampler& sampler, const std::vector<float>& weights);

/// The first index whose inclusive sum is above u (0 to 1), at most count - 1; `remainder` is u rescaled to 0..1 within
/// the entry. Returns kNone for an unusable sampler or an entry of weight 0.
std::uint32_t PickIndex(const AreaSampler& sampler, float u, float* remainder = nullptr);

}  // namespace hv
