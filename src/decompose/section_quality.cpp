// Whole numbers of cells and of their sides along pairs of layers. A contour that runs at a slant
// is longer in sides of cells than in truth, by 4 / pi in the mean.
#include "decompose/section_quality.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <numbers>

namespace povmesh {
namespace {

constexpr double kContourWeight = 0.2;
constexpr double kAreaWeight = 1;
constexpr double kFragileWeight = 0.2;
constexpr double kNarrowWeight = 0.2;
constexpr std::size_t kSoundLayers = 3;

// The cells of a piece in its own box, layers across the axis one behind the other.
class Layers {
public:
    Layers(const SolidPiece& piece, std::size_t axis) {
        const std::array<std::size_t, 3> order = {axis, (axis + 1) % 3, (axis + 2) % 3};
        for (std::size_t i = 0; i < 3; ++i) {
            size_[i] = static_cast<std::size_t>(piece.high[order[i]] - piece.low[order[i]]);
        }
        cells_.assign(size_[0] * size_[1] * size_[2], 0);
        std::array<std::size_t, 3> step{};
        step[order[0]] = size_[1] * size_[2];
        step[order[1]] = size_[2];
        step[order[2]] = 1;
        for (const CellRun& run : piece.runs) {
            std::size_t cell = static_cast<std::size_t>(run.begin - piece.low[0]) * step[0] +
                               static_cast<std::size_t>(run.y - piece.low[1]) * step[1] +
                               static_cast<std::size_t>(run.z - piece.low[2]) * step[2];
            for (std::int32_t x = run.begin; x < run.end; ++x, cell += step[0]) cells_[cell] = 1;
        }
    }

    std::size_t count() const { return size_[0]; }
    std::size_t rows() const { return size_[1]; }
    std::size_t columns() const { return size_[2]; }
    const std::uint8_t* layer(std::size_t i) const {
        return cells_.data() + i * size_[1] * size_[2];
    }

private:
    std::array<std::size_t, 3> size_{};
    std::vector<std::uint8_t> cells_;
};

struct SectionSums {
    std::size_t cells = 0;
    std::size_t fragile = 0;
    std::size_t narrow = 0;
    std::size_t row_sides = 0;     // of the contour, along rows
    std::size_t column_sides = 0;  // and along columns
};

class SectionSweep {
public:
    SectionSweep(const Layers& layers, std::size_t narrow_rows, std::size_t narrow_columns)
        : layers_(layers),
          narrow_rows_(narrow_rows),
          narrow_columns_(narrow_columns),
          section_(layers.rows() * layers.columns()),
          width_(section_.size()) {}

    SectionSums at(std::size_t i) {
        SectionSums sums;
        const std::uint8_t* const below = layers_.layer(i - 1);
        const std::uint8_t* const above = layers_.layer(i);
        for (std::size_t c = 0; c < section_.size(); ++c) section_[c] = below[c] & above[c];
        for (std::size_t c = 0; c < section_.size(); ++c) {
            if (section_[c] == 0) continue;
            ++sums.cells;
            sums.fragile += is_fragile(i, c) ? 1 : 0;
        }
        if (sums.cells == 0) return sums;
        std::fill(width_.begin(), width_.end(), std::uint8_t{0});
        // A line of the section along each direction, with its two ends.
        for (std::size_t r = 0; r < layers_.rows(); ++r) {
            sums.column_sides +=
                mark_lines(r * layers_.columns(), 1, layers_.columns(), narrow_columns_);
        }
        for (std::size_t c = 0; c < layers_.columns(); ++c) {
            sums.row_sides += mark_lines(c, layers_.columns(), layers_.rows(), narrow_rows_);
        }
        for (const std::uint8_t mark : width_) sums.narrow += mark;
        return sums;
    }

private:
    bool is_fragile(std::size_t i, std::size_t cell) const {
        if (i < kSoundLayers || i + kSoundLayers > layers_.count()) return true;
        for (std::size_t k = i - kSoundLayers; k < i + kSoundLayers; ++k) {
            if (layers_.layer(k)[cell] == 0) return true;
        }
        return false;
    }

    // Marks the cells of lines that are too short; returns the number of ends of all lines.
    std::size_t mark_lines(std::size_t first, std::size_t step, std::size_t count,
                           std::size_t narrow) {
        std::size_t ends = 0;
        for (std::size_t i = 0; i < count;) {
            const std::size_t begin = i;
            while (i < count && section_[first + i * step] != 0) ++i;
            if (i > begin) {
                ends += 2;
                for (std::size_t k = begin; k < i && i - begin < narrow; ++k) {
                    width_[first + k * step] = 1;
                }
            }
            ++i;
        }
        return ends;
    }

    const Layers& layers_;
    std::size_t narrow_rows_;
    std::size_t narrow_columns_;
    std::vector<std::uint8_t> section_;
    std::vector<std::uint8_t> width_;  // 1: too narrow in a direction
};

}  // namespace

std::vector<double> section_qualities(const SolidPiece& piece, std::size_t axis,
                                      const CellGrid& grid, const SectionScale& scale) {
    const Layers layers(piece, axis);
    const double row_edge = grid.edge[(axis + 1) % 3];
    const double column_edge = grid.edge[(axis + 2) % 3];
    const auto cells = [&](double edge) {
        return static_cast<std::size_t>(std::clamp(std::ceil(scale.narrow / edge), 1.0, 1e6));
    };
    SectionSweep sweep(layers, cells(row_edge), cells(column_edge));
    std::vector<double> qualities(layers.count(), 0);
    for (std::size_t i = 1; i < layers.count(); ++i) {
        const SectionSums sums = sweep.at(i);
        if (sums.cells == 0) continue;
        // An end of a line along a row is a side that runs along a column.
        const double contour = (static_cast<double>(sums.column_sides) * row_edge +
                                static_cast<double>(sums.row_sides) * column_edge) *
                               std::numbers::pi / 4;
        const double cell = row_edge * column_edge / scale.area;
        qualities[i] = kContourWeight * contour / scale.perimeter +
                       (kAreaWeight * static_cast<double>(sums.cells) +
                        kFragileWeight * static_cast<double>(sums.fragile) +
                        kNarrowWeight * static_cast<double>(sums.narrow)) *
                           cell;
    }
    return qualities;
}

}  // namespace povmesh
