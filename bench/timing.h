#pragma once

#include <algorithm>
#include <chrono>
#include <vector>

/// Seconds that one call takes.
template <class Work>
double TimeOf(Work&& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Median; of an even number the lower of the two in the middle. The list may not be empty.
inline double Median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>((values.size() - 1) / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}
