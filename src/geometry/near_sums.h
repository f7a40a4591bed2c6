#pragma once

#include "base/vector.h"

#include <cstdint>
#include <vector>

namespace hv {

/// The cosine that stands for an angle, radians: `angle` is above arccos(x) exactly where x is at least this. Infinite
/// where that holds nowhere, minus infinite where it holds even at -1.
float CosineLimit(float angle);

/// Directions at one position of a surface, and for each the sum of those near it: all that equal it, and all whose
/// cosine to it is at least its own limit. Sums run in the order of the list.
class NearSums {
public:
    void Clear() { count_ = 0; }
    void Add(Vector direction, float limit);

    /// Fills the sums. Work grows with the square of the distinct directions, unless all are near each other.
    void Sum();

    Vector operator[](std::size_t index) const { return sums_[index / kLanes].At(index % kLanes); }

private:
    static constexpr std::size_t kLanes = 8;

    /// Eight directions side by side.
    struct alignas(32) Block {
        float x[kLanes], y[kLanes], z[kLanes];

        Vector At(std::size_t lane) const { return {x[lane], y[lane], z[lane]}; }
        void   Set(std::size_t lane, Vector v) { x[lane] = v.x, y[lane] = v.y, z[lane] = v.z; }
    };
    struct alignas(32) Limits {
        float cosine[kLanes];
    };

    Vector Direction(std::size_t index) const { return directions_[index / kLanes].At(index % kLanes); }
    float  Limit(std::size_t index) const { return limits_[index / kLanes].cosine[index % kLanes]; }
    bool   AreAllNear() const;
    void   SumAll();
    void   SumDistinct();
    Block  SumBlock(const Block& directions, const Limits& limits) const;

    std::size_t         count_ = 0;
    std::vector<Block>  directions_, sums_;  ///< as many blocks as the longest list so far has filled
    std::vector<Limits> limits_;
};

}  // namespace hv
