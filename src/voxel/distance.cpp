// An exact Euclidean distance transform, separable by axes (see distance.h for the sources). Along
// x a scan gives the distance in the row; along y and z the squared distance is the lower envelope
// of parabolas over the column, found with a stack of sites. All is in whole numbers, cut off at
// the limit, and works on blocks of 64 columns at a time.
#include "voxel/distance.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace povmesh {
namespace {

using Words = VoxelGrid::Words;

// Columns that are transformed together: the cells of a word.
constexpr std::size_t kBlock = 64;

// Squared distances of one column of cells, from those in the planes across it. Values are the
// limit where they are at least that.
template <typename Value>
class Column {
public:
    Column(std::size_t length, Value limit) : length_(length), limit_(limit) {
        // A value beyond this many cells has reached the limit.
        while (reach_ * reach_ < std::int64_t{limit}) ++reach_;
        sites_.reserve(length);
    }

    // Element i lies at values[i * kBlock]. A cell of distance 0 hides all that lie behind it, so
    // the cells between two of them are on their own.
    void transform(Value* values) {
        std::size_t zero = 0;  // the first of a column is one, in the margin
        bool has_sites = false;
        for (std::size_t i = 1; i < length_; ++i) {
            const Value value = values[i * kBlock];
            if (value != 0) {
                has_sites = has_sites || value < limit_;
                continue;
            }
            if (i > zero + 1) {
                if (has_sites) {
                    settle(values, zero, i);
                } else {
                    settle_ends(values, zero, i);
                }
            }
            zero = i;
            has_sites = false;
        }
    }

private:
    struct Site {
        std::int64_t at, value;
        std::int64_t from;  // first element to which it is the nearest
    };

    void settle_ends(Value* values, std::size_t first, std::size_t last) const {
        const auto gap = static_cast<std::int64_t>(last - first);
        for (std::int64_t step = 1; step < reach_ && step < gap; ++step) {
            const auto squared = static_cast<Value>(step * step);
            const auto i = static_cast<std::size_t>(step);
            Value& left = values[(first + i) * kBlock];
            Value& right = values[(last - i) * kBlock];
            left = std::min(left, squared);
            right = std::min(right, squared);
        }
    }

    // The lower envelope of the parabolas over the elements between two zeros, those included.
    void settle(Value* values, std::size_t first, std::size_t last) {
        sites_.clear();
        for (std::size_t i = first; i <= last; ++i) {
            const Value value = values[i * kBlock];
            if (value >= limit_) continue;
            const auto at = static_cast<std::int64_t>(i);
            const std::int64_t height = value;
            std::int64_t from = static_cast<std::int64_t>(first);
            while (!sites_.empty()) {
                const Site& top = sites_.back();
                const std::int64_t rise = at * at + height - top.at * top.at - top.value;
                const std::int64_t run = 2 * (at - top.at);
                // From the first element on where the new parabola is the lower one. The rise is
                // not negative enough to matter: elements are at least `first`.
                from = rise < 0 ? 0 : rise / run + 1;
                if (from > top.from) break;
                sites_.pop_back();
                from = static_cast<std::int64_t>(first);
            }
            if (from <= static_cast<std::int64_t>(last)) sites_.push_back({at, height, from});
        }
        for (std::size_t s = 0; s < sites_.size(); ++s) {
            const Site& site = sites_[s];
            std::int64_t end =
                s + 1 < sites_.size() ? sites_[s + 1].from : static_cast<std::int64_t>(last) + 1;
            // Beyond the reach the values stay at the limit.
            end = std::min(end, site.at + reach_);
            for (std::int64_t i = std::max(site.from, site.at - reach_ + 1); i < end; ++i) {
                const std::int64_t squared = (i - site.at) * (i - site.at) + site.value;
                Value& value = values[static_cast<std::size_t>(i) * kBlock];
                value = static_cast<Value>(std::min<std::int64_t>(squared, limit_));
            }
        }
    }

    std::size_t length_;
    Value limit_;
    std::int64_t reach_ = 1;
    std::vector<Site> sites_;
};

template <typename Value>
class Transform {
public:
    Transform(const VoxelGrid& grid, Value limit)
        : row_(grid.words_per_row() * 64),
          layer_(row_ * grid.rows_per_layer()),
          rows_(grid.rows_per_layer()),
          layers_(grid.layer_count()),
          limit_(limit) {
        values_.assign(layer_ * layers_, limit);
    }

    Words run(const Words& from) {
        along_x(from);
        along_y();
        return along_z(from.size());
    }

private:
    void along_x(const Words& from) {
        std::int64_t reach = 1;
        while (reach * reach < std::int64_t{limit_}) ++reach;
        for (std::size_t row = 0; row < rows_ * layers_; ++row) {
            Value* values = values_.data() + row * row_;
            std::int64_t last = -1;  // the last cell of `from`
            for (std::size_t w = 0; w < row_ / 64; ++w) {
                const std::uint64_t word = from[row * row_ / 64 + w];
                if (word == ~std::uint64_t{0} && last == static_cast<std::int64_t>(w * 64) - 1) {
                    std::fill_n(values + w * 64, 64, Value{0});
                    last += 64;
                    continue;
                }
                for (std::uint64_t cells = word; cells != 0; cells &= cells - 1) {
                    const auto at = static_cast<std::int64_t>(w * 64) + std::countr_zero(cells);
                    values[at] = 0;
                    if (at > last + 1) spread(values, last, at, reach);
                    last = at;
                }
            }
        }
    }

    static void spread(Value* values, std::int64_t first, std::int64_t last, std::int64_t reach) {
        for (std::int64_t step = 1; step < reach && step < last - first; ++step) {
            const auto squared = static_cast<Value>(step * step);
            if (first >= 0) values[first + step] = std::min(values[first + step], squared);
            values[last - step] = std::min(values[last - step], squared);
        }
    }

    void along_y() {
        Array<Value> block;
        block.resize(rows_ * kBlock);
        Column<Value> column(rows_, limit_);
        for (std::size_t z = 0; z < layers_; ++z) {
            for (std::size_t x = 0; x < row_; x += kBlock) {
                Value* first = values_.data() + z * layer_ + x;
                if (!gather(first, row_, rows_, block)) continue;
                for (std::size_t i = 0; i < kBlock; ++i) column.transform(block.data() + i);
                for (std::size_t y = 0; y < rows_; ++y) {
                    std::copy_n(block.data() + y * kBlock, kBlock, first + y * row_);
                }
            }
        }
    }

    Words along_z(std::size_t word_count) {
        Words within;
        within.assign(word_count, 0);
        Array<Value> block;
        block.resize(layers_ * kBlock);
        Column<Value> column(layers_, limit_);
        for (std::size_t at = 0; at < layer_; at += kBlock) {
            if (gather(values_.data() + at, layer_, layers_, block)) {
                for (std::size_t i = 0; i < kBlock; ++i) column.transform(block.data() + i);
            }
            for (std::size_t z = 0; z < layers_; ++z) {
                std::uint64_t word = 0;
                for (std::size_t i = 0; i < kBlock; ++i) {
                    word |= std::uint64_t{block[z * kBlock + i] < limit_ ? 1U : 0U} << i;
                }
                within[(z * layer_ + at) / 64] = word;
            }
        }
        return within;
    }

    // Copies a block of columns; false when all are zero throughout.
    static bool gather(const Value* first, std::size_t stride, std::size_t length,
                       Array<Value>& block) {
        Value any = 0;
        for (std::size_t i = 0; i < length; ++i) {
            const Value* from = first + i * stride;
            Value* to = block.data() + i * kBlock;
            for (std::size_t k = 0; k < kBlock; ++k) {
                to[k] = from[k];
                any = static_cast<Value>(any | from[k]);
            }
        }
        return any != 0;
    }

    std::size_t row_, layer_;  // cells
    std::size_t rows_, layers_;
    Value limit_;
    Array<Value> values_;
};

}  // namespace

VoxelGrid::Words cells_within(const VoxelGrid& grid, const VoxelGrid::Words& from,
                              std::int64_t squared_limit) {
    if (grid.word_count() == 0 || squared_limit <= 0) {
        Words none;
        none.assign(from.size(), 0);
        return none;
    }
    if (squared_limit <= std::numeric_limits<std::uint16_t>::max()) {
        return Transform(grid, static_cast<std::uint16_t>(squared_limit)).run(from);
    }
    // No distance in a grid is larger than its diagonal.
    const auto x = static_cast<std::int64_t>(grid.words_per_row() * 64);
    const auto y = static_cast<std::int64_t>(grid.rows_per_layer());
    const auto z = static_cast<std::int64_t>(grid.layer_count());
    const std::int64_t nearest_side = std::min({x, y, z});
    const std::int64_t most = nearest_side * nearest_side + 1;
    return Transform(grid, static_cast<std::uint32_t>(std::min(squared_limit, most))).run(from);
}

}  // namespace povmesh
