// Cells around seeds: which seed is nearest to each voxel of a grid.
#pragma once

#include <cstdint>
#include <limits>
#include <span>

#include "base/array.h"
#include "base/vec.h"
#include "voxel/voxel_grid.h"

namespace povmesh {

/// The number of a seed. A grid has fewer than 2^30 voxels, and a cell tens of thousands of them.
using SeedNumber = std::uint16_t;
constexpr std::size_t kMostSeeds = std::numeric_limits<SeedNumber>::max();

/// For every voxel the number of the nearest seed; of equally near ones, up to rounding, any, but
/// always the same one.
///
/// @param seeds  1 to kMostSeeds places, counted in voxels from the centre of voxel (0, 0, 0)
/// @param nearest  by number of the cell in the grid, see VoxelGrid; unset where no voxel is
///
/// Works on blocks of 8 x 8 x 8 cells. Each has a list of the seeds that can be nearest to one of
/// its points: those that the bisector with the seed nearest to the block's centre does not part
/// from the block. All voxels of a block are compared with all seeds of its list, a row at a time.
/// On all threads.
void find_nearest_seeds(const VoxelGrid& grid, std::span<const Vec3d> seeds,
                        Array<SeedNumber>& nearest);

/// The voxels whose centres are nearer than `distance`, in voxels, to the border between their cell
/// and another. @param nearest  as found with these seeds
VoxelGrid::Words voxels_near_borders(const VoxelGrid& grid, std::span<const Vec3d> seeds,
                                     const Array<SeedNumber>& nearest, double distance);

}  // namespace povmesh
