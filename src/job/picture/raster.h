// Which samples a triangle covers.
#pragma once

#include <algorithm>
#include <cstdint>

#include "job/picture/camera.h"

namespace povmesh::picture {

/// A rectangle of samples, its ends excluded.
struct SampleArea {
    std::int32_t column_begin = 0;
    std::int32_t column_end = 0;
    std::int32_t row_begin = 0;
    std::int32_t row_end = 0;

    bool is_empty() const { return column_begin >= column_end || row_begin >= row_end; }
};

/// The samples of `within` whose centres lie in the box around a triangle.
inline SampleArea box_of(const ScreenVertex& a, const ScreenVertex& b, const ScreenVertex& c,
                         const SampleArea& within) {
    // Adding kUnit - 1 before the shift rounds up; the shift of a negative number rounds down.
    const auto up = [](std::int32_t units) { return (units + (kUnit - 1)) >> kUnitBits; };
    const auto down = [](std::int32_t units) { return units >> kUnitBits; };
    return {std::max(within.column_begin, up(std::min({a.x, b.x, c.x}))),
            std::min(within.column_end, down(std::max({a.x, b.x, c.x})) + 1),
            std::max(within.row_begin, up(std::min({a.y, b.y, c.y}))),
            std::min(within.row_end, down(std::max({a.y, b.y, c.y})) + 1)};
}

/// Twice the signed area in square units: positive where a, b, c run clockwise on the screen.
inline std::int64_t double_area(const ScreenVertex& a, const ScreenVertex& b,
                                const ScreenVertex& c) {
    return std::int64_t{b.x - a.x} * (c.y - a.y) - std::int64_t{c.x - a.x} * (b.y - a.y);
}

/// One side of a triangle as an inequality over samples: a sample lies inside when the value is 0
/// or more. A sample exactly on a side belongs to the triangle whose left or upper side it is, so
/// that triangles with a common side leave no gap and share no sample.
struct Side {
    std::int64_t value;  // at the sample that the walk stands on
    std::int64_t per_column;
    std::int64_t per_row;

    Side(const ScreenVertex& from, const ScreenVertex& to, std::int32_t column, std::int32_t row) {
        const std::int64_t dx = std::int64_t{to.x} - from.x;
        const std::int64_t dy = std::int64_t{to.y} - from.y;
        per_column = -dy * kUnit;
        per_row = dx * kUnit;
        const bool is_left_or_upper = dy < 0 || (dy == 0 && dx > 0);
        value = dx * (std::int64_t{row} * kUnit - from.y) -
                dy * (std::int64_t{column} * kUnit - from.x) - (is_left_or_upper ? 0 : 1);
    }

    // Narrows a range of columns, counted from the walk's, to those inside.
    void narrow(std::int64_t& begin, std::int64_t& end) const {
        if (per_column > 0) {
            if (value < 0) begin = std::max(begin, (-value + per_column - 1) / per_column);
        } else if (value < 0) {
            end = begin;
        } else if (per_column < 0) {
            end = std::min(end, value / -per_column + 1);
        }
    }
};

/// Up to this width, testing each sample of a row is cheaper than dividing for the ends of the run.
constexpr std::int32_t kNarrow = 12;

/// Calls `run(row, column_begin, column_end)` for each row of samples that the triangle covers
/// within `box` (its `box_of`). The corners run clockwise on the screen.
template <typename Run>
void for_each_run(const ScreenVertex& a, const ScreenVertex& b, const ScreenVertex& c,
                  const SampleArea& box, Run&& run) {
    Side ab(a, b, box.column_begin, box.row_begin);
    Side bc(b, c, box.column_begin, box.row_begin);
    Side ca(c, a, box.column_begin, box.row_begin);
    const std::int32_t width = box.column_end - box.column_begin;
    for (std::int32_t row = box.row_begin; row < box.row_end; ++row) {
        std::int64_t begin = 0;
        std::int64_t end = width;
        if (width <= kNarrow) {
            // The sign bit of the union tells whether any of the three is negative.
            std::int64_t u = ab.value;
            std::int64_t v = bc.value;
            std::int64_t w = ca.value;
            const auto step = [&] {
                u += ab.per_column;
                v += bc.per_column;
                w += ca.per_column;
            };
            while (begin < end && (u | v | w) < 0) {
                ++begin;
                step();
            }
            std::int64_t past = begin;
            while (past < end && (u | v | w) >= 0) {
                ++past;
                step();
            }
            end = past;
        } else {
            ab.narrow(begin, end);
            bc.narrow(begin, end);
            ca.narrow(begin, end);
        }
        if (begin < end) {
            run(row, box.column_begin + static_cast<std::int32_t>(begin),
                box.column_begin + static_cast<std::int32_t>(end));
        }
        ab.value += ab.per_row;
        bc.value += bc.per_row;
        ca.value += ca.per_row;
    }
}

}  // namespace povmesh::picture
