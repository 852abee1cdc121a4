#include "voxel/wall.h"

#include <algorithm>
#include <cmath>

#include "voxel/distance.h"

namespace povmesh {

std::int64_t wall_limit(double thickness, double size) {
    const auto is_wall = [&](double squared) {
        return (std::sqrt(squared) - 1.0) * size < thickness - 1e-4 * size;
    };
    const double cells = std::max(thickness / size + 1.0, 0.0);
    // Beyond any grid.
    if (!(cells < 1e6)) return std::int64_t{1} << 40;
    double limit = std::max(std::floor(cells * cells) - 2 * cells - 2, 0.0);
    while (is_wall(limit)) ++limit;
    return static_cast<std::int64_t>(limit);
}

VoxelGrid::Words inner_surface(const VoxelGrid& grid, const VoxelGrid::Words& surface,
                               std::int64_t squared_depth) {
    VoxelGrid::Words inner = cells_within(grid, grid.outside(), squared_depth);
    for (std::size_t w = 0; w < inner.size(); ++w) {
        inner[w] = grid.occupied()[w] & surface[w] & ~inner[w];
    }
    return inner;
}

void drop_cells(VoxelGrid& grid, const VoxelGrid::Words& cells) {
    grid.for_each_word([&](std::size_t word) {
        const std::uint64_t gone = grid.occupied()[word] & cells[word];
        if (gone != 0) grid.remove(word, gone);
    });
    grid.recount();
}

}  // namespace povmesh
