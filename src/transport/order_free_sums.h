#pragma once

#include "base/vector.h"

#include <atomic>
#include <cmath>
#include <cstddef>
#include <vector>

namespace hv {

/// Sums of colours that threads add to in any order with the same result: each term is rounded to a multiple of one
/// quantum, and doubles hold the sums of such multiples exactly. Beyond 2^53 quanta the last bits depend on the order.
class OrderFreeSums {
public:
    /// Makes `count` sums of 0. `largest`: a common term, which counts 2^28 quanta; terms far above it are fine.
    void Start(std::size_t count, float largest)
    {
        sums_.assign(3 * count, 0.0);
        quantum_ = std::ldexp(largest > 0.0f ? static_cast<double>(largest) : 1.0, -28);
    }

    void Stop() { std::vector<double>().swap(sums_); }

    bool        IsOn() const { return !sums_.empty(); }
    std::size_t Count() const { return sums_.size() / 3; }

    void Add(std::size_t index, Color value)
    {
        for (int c = 0; c < 3; ++c) {
            const double quanta = std::nearbyint(static_cast<double>(value[c]) / quantum_);
            std::atomic_ref(sums_[3 * index + static_cast<std::size_t>(c)])
                .fetch_add(quanta, std::memory_order_relaxed);
        }
    }

    Color At(std::size_t index) const
    {
        const double* sum = &sums_[3 * index];
        return {static_cast<float>(sum[0] * quantum_), static_cast<float>(sum[1] * quantum_),
                static_cast<float>(sum[2] * quantum_)};
    }

private:
    std::vector<double> sums_;  ///< in quanta
    double              quantum_ = 1.0;
};

}  // namespace hv
