// Divides voxels into cells of about the same size.
#pragma once

#include <cstddef>

#include "design/cell_seeds.h"
#include "voxel/voxel_grid.h"

namespace povmesh {

struct CellDivision {
    Array<Vec3d> seeds;         // in voxels, from the centre of voxel (0, 0, 0)
    Array<SeedNumber> seed_of;  // by number of the cell in the grid; unset where no voxel is
};

/// Divides the voxels of a grid, one at least, into `count` cells, 1 to kMostSeeds: each voxel
/// belongs to the nearest of as many seeds. These begin at random places, with a fixed start of the
/// random numbers, and are relaxed: each is moved to the centre of its cell until they hardly move.
/// Cells are then about as wide as they are high, and of about the same size, wherever the voxels
/// leave room.
///
/// The relaxation looks at a share of the voxels, about a thousand for each seed. Memory: 2 bytes
/// for each cell of the grid. The same bits for any number of threads.
///
/// Source: S. Lloyd, Least squares quantization in PCM, 1982.
CellDivision divide_into_cells(const VoxelGrid& grid, std::size_t count);

/// Removes every voxel beside a voxel of another cell or beside none, as an erosion of one layer
/// would if each cell stood alone. What is left of a cell has no neighbour in another one.
void part_cells(VoxelGrid& grid, const CellDivision& division);

}  // namespace povmesh
