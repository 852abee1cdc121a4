#include "job/numbers.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace povmesh {
namespace {

// Long enough for any number of six significant digits, and for a float in its shortest form.
using Buffer = std::array<char, 64>;

constexpr int kDigits = 6;
// From here on six significant digits no longer reach the units place.
constexpr double kWholeFrom = 1e5;
// Up to here a whole number is exact as a 64-bit integer and still readable.
constexpr double kExponentFrom = 1e15;

}  // namespace

std::string with_separators(std::uint64_t number) {
    std::string text = std::to_string(number);
    for (std::size_t end = text.size(); end > 3; end -= 3) text.insert(end - 3, ",");
    return text;
}

std::string counted(std::uint64_t count, std::string_view one, std::string_view several) {
    std::string text = with_separators(count) + " ";
    if (count == 1 || several.empty()) text += one;
    if (count != 1) text += several.empty() ? "s" : several;
    return text;
}

std::string human_number(double number) {
    const double size = std::abs(number);
    if (size >= kWholeFrom && size < kExponentFrom) {
        return (number < 0 ? "-" : "") +
               with_separators(static_cast<std::uint64_t>(std::llround(size)));
    }
    Buffer buffer;
    char* const end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number,
                                    std::chars_format::general, kDigits)
                          .ptr;
    std::string text(buffer.data(), end);
    // Below the limit above only a small number has an exponent, and its whole part is one digit.
    const std::size_t sign = number < 0 ? 1 : 0;
    const std::size_t whole_end = std::min(text.find_first_of(".e"), text.size());
    if (whole_end > sign + 3) text.insert(whole_end - 3, ",");
    return text;
}

std::string four_digits(double number) {
    if (!(std::abs(number) > 0)) return "0";
    const double step = std::pow(10.0, std::floor(std::log10(std::abs(number))) - 3);
    return human_number(std::round(number / step) * step);
}

double shortest_double(float number) {
    if (!std::isfinite(number)) return number;
    Buffer buffer;
    char* const end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number).ptr;
    double value = 0;
    std::from_chars(buffer.data(), end, value);
    return value;
}

}  // namespace povmesh
