// Conversions between number types that state what happens to a value that does not fit.
#pragma once

#include <cassert>
#include <cmath>
#include <concepts>
#include <cstdint>
#include <limits>
#include <utility>

namespace povmesh {

/// Truncates a floating-point value towards zero; a value beyond the integer's range becomes the
/// nearest end of the range, a NaN becomes 0.
template <std::integral Int, std::floating_point Float>
constexpr Int saturate_to(Float value) {
    // The ends as floating-point numbers: the lower one is exact (0 or a power of two), the upper
    // one is the first value that no longer fits.
    constexpr Float kLow = static_cast<Float>(std::numeric_limits<Int>::min());
    constexpr Float kHalf =
        static_cast<Float>(std::uintmax_t{1} << (std::numeric_limits<Int>::digits - 1));
    constexpr Float kPastHigh = kHalf * Float{2};
    if (value != value) return 0;  // NOLINT(misc-redundant-expression): true of a NaN
    if (value >= kPastHigh) return std::numeric_limits<Int>::max();
    if (value <= kLow) return std::numeric_limits<Int>::min();
    return static_cast<Int>(value);
}

/// Narrows to a 32-bit float; a finite value too large for it becomes the largest finite float of
/// its sign. NaN and infinities stay.
inline float narrow_to_float(double value) {
    constexpr double kLargest = std::numeric_limits<float>::max();
    if (value > kLargest && std::isfinite(value)) return std::numeric_limits<float>::max();
    if (value < -kLargest && std::isfinite(value)) return -std::numeric_limits<float>::max();
    return static_cast<float>(value);
}

/// Converts between integer types where the caller knows that the value fits; asserts that it does.
template <std::integral To, std::integral From>
constexpr To fits(From value) {
    assert(std::in_range<To>(value));
    return static_cast<To>(value);
}

}  // namespace povmesh
