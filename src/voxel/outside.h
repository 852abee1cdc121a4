// Which empty cells lie outside a voxelised model.
#pragma once

#include "voxel/relative_faces.h"
#include "voxel/voxel_grid.h"

namespace povmesh {

/// Finds the outside of a grid whose voxels were formed along the surface of these faces.
///
/// Outside is every empty cell that a flood through the sides of empty cells reaches from beyond
/// the box. So is an enclosed region whose winding number rounds to 0: a cavity that is wound
/// inward stays hollow. When the flood gets to cells with a winding number of 1 or more, the
/// surface leaks. Then the flood is done again with the voxels thickened by two layers as its
/// barrier, and advanced by two layers; if that helped, voxels are added where it stands against
/// cells inside, so that the hole is closed. If it leaks still, the plain flood stands.
///
/// The winding number of a cell is the mean of what the rays from it along x, in both directions,
/// tell; of a region, the mean of its cells. Rays are exact: faces at a common edge agree which of
/// them a ray meets.
///
/// Afterwards the grid remembers its outside: later floods begin there, too.
///
/// The flood joins runs of empty cells of neighbouring rows. Time: linear in the number of words
/// and runs, and of rows that faces cross. Memory: 12 bytes for each run, 8 more with winding
/// numbers.
void find_outside(VoxelGrid& grid, const RelativeFaces& faces);

/// Brings `outside` up to date after voxels have come or gone: floods from beyond the box, and from
/// the cells that were outside before when the grid remembers them. Does nothing when it is valid.
void refresh_outside(VoxelGrid& grid);

}  // namespace povmesh
