// The pieces that the voxels of a grid form.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/array.h"
#include "base/union_find.h"
#include "voxel/voxel_grid.h"

namespace povmesh {

/// Groups of voxels that are connected over sides, in the order of their first voxels. Of the grid
/// as it stood when they were made.
///
/// Runs of voxels along x are joined with those of the next rows (union-find). Time and memory:
/// linear in words and runs; 8 bytes a run.
class VoxelPieces {
public:
    explicit VoxelPieces(const VoxelGrid& grid);

    std::size_t size() const { return ends_.size(); }

    std::size_t voxel_count(std::size_t piece) const {
        std::size_t count = 0;
        for (std::uint32_t r = first_run(piece); r < ends_[piece]; ++r) {
            count += runs_[r].end - runs_[r].begin;
        }
        return count;
    }

    /// Calls `visit(cell)` for every voxel of a piece, in key order.
    template <typename Visit>
    void for_each_cell(std::size_t piece, Visit&& visit) const {
        for (std::uint32_t r = first_run(piece); r < ends_[piece]; ++r) {
            for (std::size_t cell = runs_[r].begin; cell < runs_[r].end; ++cell) visit(cell);
        }
    }

private:
    struct Run {
        std::uint32_t begin, end;  // cells; a grid has fewer than 2^32
    };
    static_assert(kMostPaddedCells <= std::int64_t{1} << 31);

    std::uint32_t first_run(std::size_t piece) const { return piece == 0 ? 0 : ends_[piece - 1]; }
    void add_runs(const VoxelGrid& grid, std::size_t row);
    void join_rows(UnionFind& pieces, const Array<std::uint32_t>& offsets, std::size_t a,
                   std::size_t b, std::size_t step) const;
    void sort(UnionFind& pieces);

    Array<Run> runs_;
    Array<std::uint32_t> ends_;  // by piece, of its runs
};

}  // namespace povmesh
