#include "scene/lint.h"

#include <algorithm>
#include <cstddef>

namespace hv {

namespace {

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }

/// Edit distance with swaps of neighbours (optimal string alignment), three rows of the table at a time.
std::size_t Distance(std::string_view a, std::string_view b)
{
    std::vector<std::size_t> before(b.size() + 1), above(b.size() + 1), row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::swap(before, above);
        std::swap(above, row);
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const bool is_same = Lower(a[i - 1]) == Lower(b[j - 1]);
            row[j]             = std::min({above[j] + 1, row[j - 1] + 1, above[j - 1] + (is_same ? 0 : 1)});
            const bool is_swap =
                i > 1 && j > 1 && Lower(a[i - 1]) == Lower(b[j - 2]) && Lower(a[i - 2]) == Lower(b[j - 1]);
            if (is_swap) row[j] = std::min(row[j], before[j - 2] + 1);
        }
    }
    return row[b.size()];
}

}  // namespace

std::string_view Nearest(std::string_view word, const std::vector<std::string_view>& known)
{
    constexpr std::size_t kLongest = 64;  // no keyword is longer, and the time grows with the product of the lengths
    std::string_view      nearest;
    if (word.empty() || word.size() > kLongest) return nearest;
    std::size_t smallest = std::max<std::size_t>(1, std::min<std::size_t>(3, word.size() / 3)) + 1;
    for (const std::string_view candidate : known) {
        if (candidate.size() > kLongest) continue;
        const std::size_t distance = Distance(word, candidate);
        if (distance >= smallest || distance >= candidate.size()) continue;
        smallest = distance;
        nearest  = candidate;
    }
    return nearest;
}

}  // namespace hv
