#include "field/field_grid.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

#include "base/convert.h"

namespace povmesh {
namespace {

// Where the nodes lie within the steps of the grid. Sixteenths, so that they stay exact.
constexpr Vec3d kShift = {6.0 / 16, 5.0 / 16, 7.0 / 16};

constexpr double kMaxAlongAxis = 16000;
constexpr double kMaxNodes = 2147483648.0;

// Points within neighbouring cells must stay apart when they are rounded to floats of 24 bits: a
// cell is at least 64 units in the last place of the greatest coordinate.
constexpr double kMaxIndex = 0x1p18;

// Exact predicates hold from 2^-149 to 2^128; nodes are multiples of a sixteenth of a cell.
constexpr double kLeastCell = 0x1p-130;
constexpr double kGreatestCoordinate = 0x1p126;

// Rounded up, so that what is told works.
std::string at_least(double cell) {
    const double scale = std::pow(10.0, std::floor(std::log10(cell)) - 1);
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.6g", std::ceil(cell / scale) * scale);
    std::replace(text.begin(), text.end(), ',', '.');  // of a host's locale
    return text.data();
}

Status too_large(const std::string& what, double cell, double least) {
    return {StatusCode::TooLarge, "a cell of " + at_least(cell) + " needs " + what + "; take " +
                                      at_least(std::max(least, cell * 1.01)) + " or more"};
}

}  // namespace

double rounded_cell(double cell) {
    int exponent = 0;
    const double mantissa = std::frexp(cell, &exponent);
    return std::ldexp(std::round(mantissa * 64), exponent - 6);
}

Status plan_grid(const Box3d& box, double cell, FieldGrid& grid) {
    const double farthest =
        std::max({std::abs(box.low.x), std::abs(box.low.y), std::abs(box.low.z),
                  std::abs(box.high.x), std::abs(box.high.y), std::abs(box.high.z)});
    if (box.is_empty() || !is_finite(box.low) || !is_finite(box.high) ||
        farthest > kGreatestCoordinate) {
        return {StatusCode::BadOption, "the model has no extent, or one beyond all bounds"};
    }
    if (!std::isfinite(cell) || !(cell >= kLeastCell)) {
        return {StatusCode::BadOption, "the cell is not a number above 0, or too small"};
    }
    const double side = rounded_cell(cell);
    if (farthest / side > kMaxIndex) {
        return too_large("finer coordinates than the model's distance from the origin leaves", side,
                         farthest / kMaxIndex * 1.1);
    }
    const Vec3d extent = box.extent();
    const double longest = std::max({extent.x, extent.y, extent.z});
    const Vec3d counts = {std::floor(extent.x / side) + 4, std::floor(extent.y / side) + 4,
                          std::floor(extent.z / side) + 4};
    const auto padded = [](double count) { return std::ceil(count / 8) * 8; };
    const double all = padded(counts.x) * padded(counts.y) * padded(counts.z);
    if (std::max({counts.x, counts.y, counts.z}) > kMaxAlongAxis || all > kMaxNodes) {
        const double least =
            std::max(longest / (kMaxAlongAxis - 8), side * std::cbrt(all / kMaxNodes) * 1.1);
        return too_large(at_least(all / 1e6) + " million nodes", side, least);
    }
    const Vec3d first = {std::floor(box.low.x / side) - 1, std::floor(box.low.y / side) - 1,
                         std::floor(box.low.z / side) - 1};
    grid.cell = side;
    grid.origin = (first + kShift) * side;
    const auto reach = [&](double origin, double high) {
        return saturate_to<std::int32_t>(std::ceil((high - origin) / side)) + 2;
    };
    grid.nodes = {reach(grid.origin.x, box.high.x), reach(grid.origin.y, box.high.y),
                  reach(grid.origin.z, box.high.z)};
    return {};
}

}  // namespace povmesh
