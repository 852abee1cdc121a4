// Walls of a given thickness below the outside of a grid.
#pragma once

#include <cstdint>

#include "voxel/voxel_grid.h"

namespace povmesh {

/// The squared distance to the outside, in voxels from centre to centre, below which a voxel
/// belongs to a wall of that thickness. Voxels are cubes of `size`; 0 for a thickness that takes
/// none, more than any grid has for one that is not a number.
std::int64_t wall_limit(double thickness, double size);

/// Removes the voxels in these cells; the outside is to be found again.
void drop_cells(VoxelGrid& grid, const VoxelGrid::Words& cells);

}  // namespace povmesh
