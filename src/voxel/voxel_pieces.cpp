#include "voxel/voxel_pieces.h"

#include <bit>
#include <numeric>
#include <utility>

#include "base/convert.h"

namespace povmesh {

VoxelPieces::VoxelPieces(const VoxelGrid& grid) {
    const std::size_t row_cells = grid.words_per_row() * 64;
    Array<std::uint32_t> offsets(grid.row_count() + 1, 0);  // by row
    for (std::size_t row = 0; row < grid.row_count(); ++row) {
        offsets[row] = static_cast<std::uint32_t>(runs_.size());
        add_runs(grid, row);
    }
    offsets[grid.row_count()] = fits<std::uint32_t>(runs_.size());
    UnionFind pieces(runs_.size());
    for (std::size_t row = 0; row < grid.row_count(); ++row) {
        for (const std::size_t rows : {std::size_t{1}, grid.rows_per_layer()}) {
            if (row + rows < grid.row_count()) {
                join_rows(pieces, offsets, row, row + rows, rows * row_cells);
            }
        }
    }
    sort(pieces);
}

void VoxelPieces::add_runs(const VoxelGrid& grid, std::size_t row) {
    const std::size_t first = row * grid.words_per_row();
    for (std::size_t word = first; word < first + grid.words_per_row(); ++word) {
        for (std::uint64_t cells = grid.occupied()[word]; cells != 0; cells &= cells - 1) {
            const auto cell = static_cast<std::uint32_t>(
                word * 64 + static_cast<std::size_t>(std::countr_zero(cells)));
            if (!runs_.empty() && runs_.back().end == cell) {
                ++runs_.back().end;
            } else {
                runs_.push_back({cell, cell + 1});
            }
        }
    }
}

// Of the rows a and b, whose cells are `step` apart.
void VoxelPieces::join_rows(UnionFind& pieces, const Array<std::uint32_t>& offsets, std::size_t a,
                            std::size_t b, std::size_t step) const {
    std::uint32_t i = offsets[a];
    std::uint32_t j = offsets[b];
    while (i < offsets[a + 1] && j < offsets[b + 1]) {
        if (runs_[i].begin + step < runs_[j].end && runs_[j].begin < runs_[i].end + step) {
            pieces.unite(i, j);
        }
        runs_[i].end + step < runs_[j].end ? ++i : ++j;
    }
}

// By piece; within one they keep their order. A piece is known by its first run so far.
void VoxelPieces::sort(UnionFind& pieces) {
    Array<std::uint32_t> places(runs_.size() + 1, 0);
    for (std::uint32_t r = 0; r < runs_.size(); ++r) ++places[pieces.find(r) + 1];
    for (const std::uint32_t count : places) {
        if (count != 0) ends_.push_back(count + (ends_.empty() ? 0 : ends_.back()));
    }
    std::partial_sum(places.begin(), places.end(), places.begin());
    Array<Run> sorted(runs_.size());
    for (std::uint32_t r = 0; r < runs_.size(); ++r) {
        sorted[places[pieces.find(r)]++] = runs_[r];
    }
    runs_ = std::move(sorted);
}

}  // namespace povmesh
