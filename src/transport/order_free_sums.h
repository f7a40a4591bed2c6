#pragma once

#include "base/vector.h"

#include <atomic>
#include <cmath>
#include <cstddef>
#include <vector>

namespace hv {

/// Sums of colours that threads add to in any order with the same result: each term is rounded to a multiple of one
/// quantum, and doubles hold the sums of such multiples exactly. Beyond 2^53 quanta the last bits of a double depend on
/// the order, which a float hardly ever shows; terms below half a quantum are lost.
class OrderFreeSums {
public:
    /// Makes `count` sums of 0. `term`: a small term among those that matter, of 2^34 quanta. One that is not above 0,
    /// or not finite, counts as 1.
    void Start(std::size_t count, double term)
    {
        sums_.assign(3 * count, 0.0);
        quantum_ = std::ldexp(term > 0.0 && std::isfinite(term) ? term : 1.0, -34);
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
