// Passes over the voxels of a grid: marking sides, filling, eroding, dilating, removing spurs.
#pragma once

#include <vector>

#include "run/run_context.h"
#include "voxel/voxel_grid.h"

namespace povmesh {

// All passes work on whole words of 64 cells, on one thread, at about the speed of the memory. A
// side of a voxel is exposed when its neighbour there is outside: empty and reached by a flood
// from beyond the box (see outside.h). Enclosed empty cells expose nothing.

/// Sets the face flags of every voxel afresh; keep counts go.
void mark_exposed_sides(VoxelGrid& grid);

/// The same with its time in a line of the log, which hosts know under two labels.
void mark_exposed_sides(VoxelGrid& grid, const char* label, RunContext& run);
constexpr const char* kSurfaceLine = "form  surface";
constexpr const char* kFacesLine = "form  surFace";

/// Removes every voxel without a flag.
void drop_enclosed(VoxelGrid& grid);

enum class FillColour { White, MeanOfEnds };

/// Fills every gap of an x-row that begins behind a voxel whose +x side is not exposed, up to the
/// next voxel of the row. New voxels have no flags; they are white or, channel by channel, have
/// half the sum of the colours at both ends.
void fill_rows(VoxelGrid& grid, FillColour colour);

/// Removes the outer layer `layers` times: every voxel with an exposed side that is not kept by its
/// keep count. Voxels that this uncovers are marked on the uncovered sides and belong to the next
/// layer. Each pass takes one off every keep count.
///
/// @param removed  null, or gets the records of what was removed, pass by pass in key order, with
///                 their flags of the moment in the first pass and 0 in the others
void erode(VoxelGrid& grid, std::int32_t layers, std::vector<Voxel>* removed = nullptr);

/// Grows the voxels by |layers| layers of neighbours and marks the faces afresh.
///
/// Positive: outward, into a box that is widened as far as the keys reach. Negative: into enclosed
/// cells only; and every voxel with an exposed side is kept from the next |layers| - slack (0 to 3)
/// passes of an erosion. Thus (-3, 1) and an erosion of 2 thicken a shell inward and leave its
/// outside where it was; growing outward and eroding again would close slots.
void dilate(VoxelGrid& grid, std::int32_t layers, std::int32_t slack);

/// Grows the voxels by so many layers of neighbours, but only into these cells of the box, and
/// marks the faces afresh.
void dilate_within(VoxelGrid& grid, std::int32_t layers, const VoxelGrid::Words& within);

/// Removes every voxel with 6 - k or more exposed sides, in one pass over the flags as they stand,
/// then marks the faces afresh.
void remove_spurs(VoxelGrid& grid, std::int32_t k);

/// Removes one voxel of every contact over an edge or a corner alone, of voxels and of empty cells,
/// until there is none: the surface of what is left is a manifold. Of the eight cells around the
/// contact the voxel with the fewest neighbours goes, of equal ones the last. Time: linear in the
/// number of words and of removed voxels.
void drop_edge_contacts(VoxelGrid& grid);

}  // namespace povmesh
