// Sweeps the layers of voxels from above, a word of 64 columns at a time: a gap opens below a voxel
// that hangs over and closes at the next voxel of its column or at the floor.
#include "support/gap_search.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

#include "base/convert.h"
#include "base/poll.h"

namespace povmesh {
namespace {

// Overhangs nearer to what is below need no column, model units.
constexpr double kLeastGap = 4.0;
// A column below a wall begins a layer lower, degrees.
constexpr std::int8_t kWall = 75;
// Layers above the floor at which a gap ends.
constexpr double kAboveFloor = 2.5;

constexpr auto kBottom = static_cast<std::size_t>(voxel::Side::Bottom);

struct FoundGap {
    std::size_t column;  // in the rows of a layer
    Gap gap;
};

// The voxels that there are along x, y and z; the grid is not empty.
IndexBox occupied_box(const VoxelGrid& grid) {
    const std::size_t layer = grid.words_per_layer();
    VoxelGrid::Words footprint;
    footprint.assign(layer, 0);
    IndexBox box;
    std::size_t first = grid.word_count();
    for (std::size_t begin = 0; begin < grid.word_count(); begin += layer) {
        for (std::size_t i = 0; i < layer; ++i) {
            const std::uint64_t cells = grid.occupied()[begin + i];
            footprint[i] |= cells;
            if (cells != 0 && first > begin + i) first = begin + i;
        }
    }
    box.low = box.high = grid.index_of(first * 64);
    box.low.x = std::numeric_limits<std::int32_t>::max();
    box.high.x = std::numeric_limits<std::int32_t>::min();
    for (std::size_t i = 0; i < layer; ++i) {
        if (footprint[i] == 0) continue;
        const VoxelIndex at = grid.index_of(i * 64);
        box.low.x = std::min(box.low.x, at.x + std::countr_zero(footprint[i]));
        box.high.x = std::max(box.high.x, at.x + 63 - std::countl_zero(footprint[i]));
        box.low.y = std::min(box.low.y, at.y);
        box.high.y = std::max(box.high.y, at.y);
    }
    return box;
}

class GapSearch {
public:
    GapSearch(const VoxelGrid& grid, std::int8_t threshold, double plate)
        : grid_(grid),
          threshold_(clamped_angle(threshold)),
          origin_z_(double{grid.origin().z}),
          layer_height_(double{grid.settings().size.z}),
          layers_(std::max(saturate_to<std::int32_t>(kLeastGap / layer_height_ + 0.5), 1)) {
        floor_ = plate;
        last_layer_ = saturate_to<std::int32_t>(
            std::floor((floor_ - origin_z_) / layer_height_ - kAboveFloor));
        open_.assign(grid.words_per_layer(), 0);
        seeds_.resize(open_.size() * 64);
        tops_.resize(open_.size() * 64);
    }

    // Layer by layer from above, with the columns whose gaps have begun.
    Array<FoundGap> run() {
        const std::int32_t low = grid_.box().low.z;
        for (std::int32_t z = grid_.box().high.z; z >= low && z > last_layer_; --z) {
            poll();
            const std::size_t first = (grid_.cell_of({grid_.box().low.x, grid_.box().low.y, z}) /
                                       64 / grid_.words_per_layer()) *
                                      grid_.words_per_layer();
            for (std::size_t i = 0; i < open_.size(); ++i) {
                const std::uint64_t ended = open_[i] & grid_.occupied()[first + i];
                if (ended != 0) close(i, ended, z);
            }
            if (height(z) - layer_height_ * (layers_ + 0.5) >= floor_) begin_below(first, z);
        }
        for (std::size_t i = 0; i < open_.size(); ++i) {
            if (open_[i] != 0) close(i, open_[i], last_layer_);
        }
        return std::move(found_);
    }

private:
    double height(std::int32_t layer) const { return origin_z_ + layer * layer_height_; }

    void begin_below(std::size_t first, std::int32_t z) {
        const VoxelGrid::Words& occupied = grid_.occupied();
        const std::size_t down = static_cast<std::size_t>(layers_) * open_.size();
        for (std::size_t i = 0; i < open_.size(); ++i) {
            // What bits alone tell comes first: flags lie apart.
            const std::size_t word = first + i;
            std::uint64_t cells = occupied[word];
            if (cells == 0) continue;
            cells &= ~occupied[word - open_.size()];
            if (word >= down) cells &= ~occupied[word - down];
            if (cells == 0) continue;
            cells &= grid_.flags_of(word).flags[kBottom];
            for (; cells != 0; cells &= cells - 1) {
                const auto bit = static_cast<std::size_t>(std::countr_zero(cells));
                const std::int8_t angle = grid_.voxel_at(word * 64 + bit).angle;
                if (angle > threshold_) continue;
                open_[i] |= std::uint64_t{1} << bit;
                seeds_[i * 64 + bit] = z;
                tops_[i * 64 + bit] = angle > kWall ? z - 2 : z - 1;
            }
        }
    }

    void close(std::size_t i, std::uint64_t columns, std::int32_t bottom) {
        open_[i] &= ~columns;
        for (; columns != 0; columns &= columns - 1) {
            const std::size_t column = i * 64 + static_cast<std::size_t>(std::countr_zero(columns));
            if (std::int64_t{tops_[column]} - bottom <= layers_) continue;
            found_.push_back({column,
                              {narrow_to_float(height(tops_[column])),
                               narrow_to_float(height(bottom)), seeds_[column]}});
        }
    }

    const VoxelGrid& grid_;
    std::int8_t threshold_;
    double origin_z_;
    double layer_height_;
    std::int32_t layers_;  // of the least gap
    double floor_ = 0;
    std::int32_t last_layer_ = 0;  // where gaps end at the floor
    VoxelGrid::Words open_;        // by word of a layer: the columns in a gap
    Array<std::int32_t> seeds_;    // by column
    Array<std::int32_t> tops_;     // by column: the layer that its gap begins with
    Array<FoundGap> found_;
};

}  // namespace

std::int8_t clamped_angle(std::int8_t threshold) {
    if (threshold < 0) return 0;
    return threshold > 90 ? static_cast<std::int8_t>(180 - threshold) : threshold;
}

GapGrid find_gaps(const VoxelGrid& grid, std::int8_t threshold, double plate) {
    GapGrid result;
    if (grid.is_empty() || !std::isfinite(plate)) return result;
    const IndexBox voxels = occupied_box(grid);
    result.low_x = voxels.low.x;
    result.low_y = voxels.low.y;
    result.count_x = static_cast<std::size_t>(std::int64_t{voxels.high.x} - voxels.low.x + 1);
    result.count_y = static_cast<std::size_t>(std::int64_t{voxels.high.y} - voxels.low.y + 1);
    const Array<FoundGap> found = GapSearch(grid, threshold, plate).run();

    const auto place = [&](std::size_t column) {
        const VoxelIndex at = grid.index_of(column);  // in the lowest layer
        return static_cast<std::size_t>(at.x - voxels.low.x) * result.count_y +
               static_cast<std::size_t>(at.y - voxels.low.y);
    };
    result.offsets.assign(result.count_x * result.count_y + 1, 0);
    for (const FoundGap& gap : found) ++result.offsets[place(gap.column) + 1];
    for (std::size_t i = 1; i < result.offsets.size(); ++i) {
        result.offsets[i] += result.offsets[i - 1];
    }
    result.gaps.resize(found.size());
    Array<std::uint32_t> next(result.offsets.begin(), result.offsets.end());
    for (const FoundGap& gap : found) result.gaps[next[place(gap.column)]++] = gap.gap;
    return result;
}

}  // namespace povmesh
