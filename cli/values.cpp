#include "cli/values.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <vector>

namespace povmesh::cli {
namespace {

bool parse_positive(std::string_view text, int& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() && number > 0;
}

// Those between commas; none when one of them is no number.
std::vector<double> parse_numbers(std::string_view text) {
    std::vector<double> numbers;
    for (;;) {
        const std::size_t comma = std::min(text.find(','), text.size());
        numbers.push_back(parse_number(text.substr(0, comma)));
        if (std::isnan(numbers.back())) return {};
        if (comma == text.size()) return numbers;
        text.remove_prefix(comma + 1);
    }
}

}  // namespace

double parse_number(std::string_view text) {
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool is_number =
        error == std::errc() && end == text.data() + text.size() && std::isfinite(number);
    return is_number ? number : std::numeric_limits<double>::quiet_NaN();
}

double parse_bytes(std::string_view text) {
    constexpr std::string_view kUnits = "KMGT";
    double factor = 1;
    if (text.size() > 1 && (text.back() == 'B' || text.back() == 'b')) text.remove_suffix(1);
    if (!text.empty()) {
        const char last = text.back();
        const char unit = last >= 'a' && last <= 'z' ? static_cast<char>(last - 'a' + 'A') : last;
        const std::size_t power = kUnits.find(unit);
        if (power != std::string_view::npos) {
            text.remove_suffix(1);
            factor = std::ldexp(1, 10 * static_cast<int>(power + 1));
        }
    }
    return parse_number(text) * factor;
}

Vec3d parse_vector(std::string_view text) {
    const std::vector<double> numbers = parse_numbers(text);
    if (numbers.size() != 3) {
        constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
        return {kNone, kNone, kNone};
    }
    return {numbers[0], numbers[1], numbers[2]};
}

Circle parse_circle(std::string_view text) {
    const std::vector<double> numbers = parse_numbers(text);
    if (numbers.size() != 4 || !(numbers[3] > 0)) return {};
    return {{numbers[0], numbers[1], numbers[2]}, numbers[3]};
}

PixelSize parse_pixel_size(std::string_view text) {
    const std::size_t cross = text.find('x');
    PixelSize size;
    if (cross == std::string_view::npos || !parse_positive(text.substr(0, cross), size.width) ||
        !parse_positive(text.substr(cross + 1), size.height)) {
        return {};
    }
    return size;
}

}  // namespace povmesh::cli
