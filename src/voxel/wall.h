// Walls of a given thickness below the outside of a grid.
#pragma once

#include <cstdint>

#include "voxel/voxel_grid.h"

namespace povmesh {

/// The squared distance to the outside, in voxels from centre to centre, below which a voxel
/// belongs to a wall of that thickness. Voxels are cubes of `size`; 0 for a thickness that takes
/// none, more than any grid has for one that is not a number.
std::int64_t wall_limit(double thickness, double size);

/// The voxels of a solid that the surface passes deep in it: slits and holes that are too narrow
/// for an empty voxel, which the surface passes on both sides, and where bodies overlap. They count
/// as outside for a wall.
///
/// @param surface  the cells that the surface passes, see `voxelise`
/// @param squared_depth  squared distance to the outside, in voxels, below which the surface is the
///                       outer one; that of small triangles takes cells up to 3.3 voxels deep
VoxelGrid::Words inner_surface(const VoxelGrid& grid, const VoxelGrid::Words& surface,
                               std::int64_t squared_depth);

/// Removes the voxels in these cells; the outside is to be found again.
void drop_cells(VoxelGrid& grid, const VoxelGrid::Words& cells);

}  // namespace povmesh
