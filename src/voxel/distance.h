// Distances between the cells of a grid.
#pragma once

#include <cstdint>

#include "voxel/voxel_grid.h"

namespace povmesh {

/// The cells from whose centres the nearest centre of a cell in `from` is nearer than a limit.
///
/// @param from  one bit a cell of the grid, at least one in every row, column and pillar: such as
///              the outside, which has the margin
/// @param squared_limit  in voxels, squared; the cells with a lower squared distance are returned
///
/// Exact: an Euclidean distance transform in whole numbers, axis by axis, of which distances beyond
/// the limit are left open. Time: linear in the number of cells. Memory: 2 bytes a cell, 4 from a
/// limit of 255 voxels on.
///
/// Source: A. Meijster et al., A general algorithm for computing distance transforms in linear
/// time, 2000; P. Felzenszwalb, D. Huttenlocher, Distance transforms of sampled functions, 2012.
VoxelGrid::Words cells_within(const VoxelGrid& grid, const VoxelGrid::Words& from,
                              std::int64_t squared_limit);

}  // namespace povmesh
