#include "scene/number.h"

#include <charconv>

namespace hv {

float ConvertDecimal(const char* first, const char* last, int digit_count, int power)
{
    float      value  = 0.0f;
    const auto result = std::from_chars(first, last, value);
    if (result.ec != std::errc::result_out_of_range) return value;
    // Out of range, the value is left alone: tell too large from too small by the place of the leading digit.
    while (*first == '0' || *first == '.') {
        if (*first == '0') --digit_count;
        ++first;
    }
    return digit_count > 0 && digit_count + power > 0 ? std::numeric_limits<float>::infinity() : 0.0f;
}

}  // namespace hv
