#pragma once

#include <bit>
#include <cstdint>
#include <limits>

/// Numbers as text, independent of every locale. All functions stop at a zero byte.
namespace hv {

inline bool IsDigit(char c) { return static_cast<unsigned char>(c - '0') < 10; }

/// The slow road of ScanFloat for the unsigned decimal number first..last; `power` is the decimal exponent of its last
/// digit and `digit_count` the number of its digits.
float ConvertDecimal(const char* first, const char* last, int digit_count, int power);

/// Powers of ten that a double holds exactly.
inline constexpr int    kExactPowers            = 22;
inline constexpr double kTens[kExactPowers + 1] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                   1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                                   1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

/// Reads digits into `value`, which wraps beyond 19 of them; returns the end of the run.
inline const char* ScanDigits(const char* text, std::uint64_t& value)
{
    for (; IsDigit(*text); ++text) value = value * 10 + static_cast<std::uint64_t>(*text - '0');
    return text;
}

/// Reads an exponent "e5", "E-3" if there is a whole one; returns its end, or `text`.
inline const char* ScanExponent(const char* text, int& power)
{
    if ((*text | 0x20) != 'e') return text;
    const char* digits   = text + 1;
    const bool  negative = *digits == '-';
    if (negative || *digits == '+') ++digits;
    if (!IsDigit(*digits)) return text;
    int value = 0;
    for (; IsDigit(*digits); ++digits)
        if (value < 100000) value = value * 10 + (*digits - '0');
    power += negative ? -value : value;
    return digits;
}

/// Reads a decimal number with an optional sign and exponent: the nearest float, infinity beyond the range. Returns the
/// end of the number; without digits that is `text`, and the value 0.
inline const char* ScanFloat(const char* text, float& value)
{
    const bool    negative = *text == '-';
    const char*   first    = negative || *text == '+' ? text + 1 : text;
    std::uint64_t mantissa = 0;
    const char*   end      = ScanDigits(first, mantissa);
    auto          digits   = end - first;
    int           power    = 0;
    if (*end == '.') {
        const char* const fraction = end + 1;
        end                        = ScanDigits(fraction, mantissa);
        digits += end - fraction;
        power = -static_cast<int>(end - fraction);
    }
    value = 0.0f;
    if (digits == 0) return text;
    end = ScanExponent(end, power);

    // Mantissa and power of ten are exact, so one operation gives the nearest double (Clinger 1990). Rounding that once
    // more gives the nearest float unless the double lies half way between two floats.
    const bool is_exact = digits <= 19 && mantissa <= (1ull << 53) && power >= -kExactPowers && power <= kExactPowers;
    double     wide     = 0.0;
    if (is_exact)
        wide = power < 0 ? static_cast<double>(mantissa) / kTens[-power] : static_cast<double>(mantissa) * kTens[power];
    const bool is_half_way = (std::bit_cast<std::uint64_t>(wide) & 0x1fffffff) == 0x10000000;
    value                  = is_exact && !is_half_way ? static_cast<float>(wide)
                                                      : ConvertDecimal(first, end, static_cast<int>(digits), power);
    if (negative) value = -value;
    return end;
}

/// Reads an integer with an optional sign, limited to the range of int. Returns the end of the number; without digits
/// that is `text`, and the value 0.
inline const char* ScanInt(const char* text, int& value)
{
    const bool  negative = *text == '-';
    const char* end      = negative || *text == '+' ? text + 1 : text;
    value                = 0;
    if (!IsDigit(*end)) return text;
    std::int64_t wide = 0;
    for (; IsDigit(*end); ++end)
        if (wide <= std::numeric_limits<int>::max()) wide = wide * 10 + (*end - '0');
    if (wide > std::numeric_limits<int>::max()) wide = std::numeric_limits<int>::max();
    value = static_cast<int>(negative ? -wide : wide);
    return end;
}

}  // namespace hv
