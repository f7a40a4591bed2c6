#include "geometry/near_sums.h"

#include "base/float8.h"
#include "geometry/weld.h"

#include <limits>

namespace hv {

namespace {

/// From here on it pays to look for equal directions first: the tip of a cone may have a hundred thousand.
constexpr std::size_t kLongList = 64;

std::uint64_t HashDirection(Vector direction, float limit)
{
    return EndHash(MixHash(MixHash(0, HashPair(Unsigned(direction.x), Unsigned(direction.y))),
                           HashPair(Unsigned(direction.z), Unsigned(limit))));
}

}  // namespace

float CosineLimit(float angle)
{
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    float           low = -1.0f, high = 1.0f;
    if (angle > std::acos(low)) return -kInfinity;
    if (!(angle > std::acos(high))) return kInfinity;
    for (;;) {  // arccos falls: `low` fails, `high` passes
        const float middle = 0.5f * (low + high);
        if (middle == low || middle == high) return high;
        (angle > std::acos(middle) ? high : low) = middle;
    }
}

void NearSums::Add(Vector direction, float limit)
{
    const std::size_t block = count_ / kLanes, lane = count_ % kLanes;
    if (block == directions_.size()) {
        directions_.emplace_back();
        limits_.emplace_back();
    }
    directions_[block].Set(lane, direction);
    limits_[block].cosine[lane] = limit;
    ++count_;
}

// Eight corners in lanes, each adding up all directions one after the other: the bits of the plain double loop. Lanes
// beyond the list hold what was there before, and are not read.
NearSums::Block NearSums::SumBlock(const Block& directions, const Limits& limits) const
{
    const Vector8 own{Load8(directions.x), Load8(directions.y), Load8(directions.z)};
    const Float8  limit = Load8(limits.cosine);
    Vector8       sum{Splat8(0.0f), Splat8(0.0f), Splat8(0.0f)};
    for (std::size_t k = 0; k < count_; ++k) {
        const Vector  v = Direction(k);
        const Vector8 other{Splat8(v.x), Splat8(v.y), Splat8(v.z)};
        const Float8  equals  = Equal(other.x, own.x) & Equal(other.y, own.y) & Equal(other.z, own.z);
        const Float8  is_near = equals | LessEqual(limit, Dot(other, own));
        sum                   = sum + Vector8{other.x & is_near, other.y & is_near, other.z & is_near};
    }
    Block result;
    Store8(result.x, sum.x);
    Store8(result.y, sum.y);
    Store8(result.z, sum.z);
    return result;
}

// True when every direction lies in a cone so narrow that any two are nearer than the smallest limit. The margin covers
// the rounding of cosines in single precision.
bool NearSums::AreAllNear() const
{
    constexpr double kMargin = 2e-3;
    Vector           axis;
    float            limit = -1.0f;
    for (std::size_t k = 0; k < count_; ++k) {
        axis += Direction(k);
        limit = std::max(limit, Limit(k));
    }
    axis          = Normalized(axis);
    float lowest  = 1.0f;
    bool  is_unit = std::fabs(Dot(axis, axis) - 1.0f) < 1e-4f;
    for (std::size_t k = 0; k < count_; ++k) {
        const Vector v = Direction(k);
        is_unit        = is_unit && std::fabs(Dot(v, v) - 1.0f) < 1e-4f;
        lowest         = std::min(lowest, Dot(v, axis));
    }
    if (limit == -1.0f) return is_unit;  // any two are near
    return is_unit && limit <= 1.0f && 2.0 * std::acos(double{lowest}) + kMargin < std::acos(double{limit});
}

void NearSums::SumAll()
{
    Vector sum;
    for (std::size_t k = 0; k < count_; ++k) sum += Direction(k);
    for (std::size_t k = 0; k < count_; ++k) sums_[k / kLanes].Set(k % kLanes, sum);
}

// One sum for all corners that share direction and limit.
void NearSums::SumDistinct()
{
    const std::vector<std::uint32_t> first = FirstEqual(
        count_, [this](std::uint32_t k) { return HashDirection(Direction(k), Limit(k)); },
        [this](std::uint32_t a, std::uint32_t b) {
            return IsSame(Direction(a), Direction(b)) && IsSame(Limit(a), Limit(b));
        });
    std::vector<std::uint32_t> distinct;
    for (std::uint32_t k = 0; k < count_; ++k)
        if (first[k] == k) distinct.push_back(k);
    for (std::size_t start = 0; start < distinct.size(); start += kLanes) {
        const std::size_t lanes = std::min(kLanes, distinct.size() - start);
        Block             directions{};
        Limits            limits{};
        for (std::size_t lane = 0; lane < lanes; ++lane) {
            directions.Set(lane, Direction(distinct[start + lane]));
            limits.cosine[lane] = Limit(distinct[start + lane]);
        }
        const Block sums = SumBlock(directions, limits);
        for (std::size_t lane = 0; lane < lanes; ++lane) {
            const std::size_t k = distinct[start + lane];
            sums_[k / kLanes].Set(k % kLanes, sums.At(lane));
        }
    }
    for (std::size_t k = 0; k < count_; ++k) sums_[k / kLanes].Set(k % kLanes, (*this)[first[k]]);
}

void NearSums::Sum()
{
    const std::size_t blocks = (count_ + kLanes - 1) / kLanes;
    if (sums_.size() < blocks) sums_.resize(blocks);
    if (count_ >= kLongList) return AreAllNear() ? SumAll() : SumDistinct();
    for (std::size_t b = 0; b < blocks; ++b) sums_[b] = SumBlock(directions_[b], limits_[b]);
}

}  // namespace hv
