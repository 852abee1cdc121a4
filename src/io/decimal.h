// Decimal numbers in text files, whatever the locale.
#pragma once

#include <bit>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <system_error>

#include "base/convert.h"

namespace povmesh {

namespace detail {

/// Powers of ten that a double holds exactly.
inline constexpr double kExactPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                               1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                               1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

/// The correctly rounded value of the unsigned number [first, last); one beyond the range of a
/// double is the largest finite double or 0.
double round_decimal(const char* first, const char* last);

inline bool is_digit(char c) {
    return static_cast<unsigned char>(c - '0') < 10;
}

inline constexpr std::uint64_t kPowersOfTen[] = {1,      10,      100,      1000,     10000,
                                                 100000, 1000000, 10000000, 100000000};

static_assert(std::endian::native == std::endian::little);

/// The value of eight digits, each a byte of 0 to 9, the first one lowest: pairs of neighbours are
/// joined, then pairs of those, then the two halves.
constexpr std::uint64_t join_digits(std::uint64_t digits) {
    digits = digits * 10 + (digits >> 8);
    constexpr std::uint64_t kPair = 0x000000FF000000FF;
    constexpr std::uint64_t kLow = 100 + (std::uint64_t{1000000} << 32);
    constexpr std::uint64_t kHigh = 1 + (std::uint64_t{10000} << 32);
    return ((digits & kPair) * kLow + ((digits >> 16) & kPair) * kHigh) >> 32;
}

/// Appends the digits from `p` on to the mantissa, which wraps beyond 19 digits; returns their end.
/// Takes up to eight at once without a branch that depends on their number, which is as good as
/// random behind the point.
inline const char* take_digits(const char* p, const char* last, std::uint64_t& mantissa) {
    while (last - p >= 8) {
        std::uint64_t bytes = 0;
        std::memcpy(&bytes, p, sizeof bytes);
        bytes ^= 0x3030303030303030;  // a digit becomes its value, any other byte is above 9
        const std::uint64_t above_nine =
            (((bytes & 0x7F7F7F7F7F7F7F7F) + 0x7676767676767676) | bytes) & 0x8080808080808080;
        const int count = std::countr_zero(above_nine) / 8;
        if (count == 0) return p;
        mantissa = mantissa * kPowersOfTen[count] + join_digits(bytes << (64 - 8 * count));
        p += count;
        if (count < 8) return p;
    }
    for (; p != last && is_digit(*p); ++p) {
        mantissa = mantissa * 10 + static_cast<std::uint64_t>(*p - '0');
    }
    return p;
}

}  // namespace detail

/// Reads the longest prefix of [first, last) that is a decimal number: an optional sign, digits
/// with at most one point among them, and an optional exponent. The value is the double nearest to
/// it; a number too large for that gives the largest finite one. "nan", "inf" and hexadecimal
/// digits are no numbers.
///
/// @return  the end of the prefix; null when there is none, `value` is then unchanged
inline const char* parse_decimal(const char* first, const char* last, double& value) {
    const char* p = first;
    const bool negative = p != last && *p == '-';
    if (negative || (p != last && *p == '+')) ++p;

    const char* const digits = p;
    std::uint64_t mantissa = 0;
    for (; p != last && detail::is_digit(*p); ++p) {
        mantissa = mantissa * 10 + static_cast<std::uint64_t>(*p - '0');
    }
    std::int64_t digit_count = p - digits;
    std::int64_t exponent = 0;
    if (p != last && *p == '.') {
        const char* const point = p++;
        p = detail::take_digits(p, last, mantissa);
        exponent = point + 1 - p;
        digit_count -= exponent;
    }
    if (digit_count == 0) return nullptr;

    if (p != last && (*p == 'e' || *p == 'E')) {
        const char* q = p + 1;
        const bool minus = q != last && *q == '-';
        if (minus || (q != last && *q == '+')) ++q;
        if (q != last && detail::is_digit(*q)) {
            // Larger exponents all count as this one; the slow way below reads the text itself.
            constexpr std::int64_t kEnough = 1000000;
            std::int64_t power = 0;
            for (; q != last && detail::is_digit(*q); ++q) {
                if (power < kEnough) power = power * 10 + (*q - '0');
            }
            exponent += minus ? -power : power;
            p = q;
        }
    }

    // Both factors are exact in a double, so that the one operation rounds correctly (W. D.
    // Clinger, How to read floating point numbers accurately, PLDI 1990). Up to 19 digits fit the
    // mantissa.
    double magnitude = 0;
    if (digit_count <= 19 && mantissa <= (std::uint64_t{1} << 53) && exponent >= -22 &&
        exponent <= 22) {
        magnitude = static_cast<double>(mantissa);
        if (exponent < 0) {
            magnitude /= detail::kExactPowersOfTen[-exponent];
        } else {
            magnitude *= detail::kExactPowersOfTen[exponent];
        }
    } else {
        magnitude = detail::round_decimal(digits, p);
    }
    value = negative ? -magnitude : magnitude;
    return p;
}

/// The float nearest to a number: `wide` is the double nearest to it, `digits` its text, which
/// decides when the double lies half way between two floats.
inline float nearest_float(double wide, std::string_view digits) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &wide, sizeof bits);
    if ((bits & 0x1FFFFFFF) == 0x10000000) {
        if (digits.front() == '+') digits.remove_prefix(1);
        float exact = 0;
        const auto [end, error] =
            std::from_chars(digits.data(), digits.data() + digits.size(), exact);
        if (error == std::errc{}) return exact;
    }
    return narrow_to_float(wide);
}

}  // namespace povmesh
