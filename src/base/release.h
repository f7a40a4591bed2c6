#pragma once

#include <vector>

namespace hv {

/// Empties an array and gives its memory back, which an assignment of {} would keep.
template <class T>
void Release(std::vector<T>& array)
{
    std::vector<T>().swap(array);
}

}  // namespace hv
