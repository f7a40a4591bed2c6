#pragma once

#include "geometry/object.h"

#include <cstring>
#include <type_traits>
#include <vector>

/// Growing the arrays of a part by plain floats and ints, as hosts and float pictures deliver them.
namespace hv {

/// Appends `count` items, each nothing but scalars that stand one behind the other in `data`.
template <class Item, class Scalar>
void AppendItems(std::vector<Item>& items, std::size_t count, const Scalar* data)
{
    static_assert(sizeof(Item) % sizeof(Scalar) == 0 && std::is_trivially_copyable_v<Item>);
    if (count == 0) return;
    const std::size_t old = items.size();
    items.resize(old + count);
    std::memcpy(static_cast<void*>(items.data() + old), data, count * sizeof(Item));
}

/// Appends `count` directions of three floats, packed.
inline void AppendDirections(std::vector<PackedDirection>& directions, std::size_t count, const float* data)
{
    const std::size_t old = directions.size();
    directions.resize(old + count);
    for (std::size_t i = old; i < directions.size(); ++i, data += 3)
        directions[i] = PackDirection({data[0], data[1], data[2]});
}

}  // namespace hv
