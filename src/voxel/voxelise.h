// Turns a mesh into a shell of voxels that can be filled.
#pragma once

#include "voxel/form_voxels.h"

namespace povmesh {

/// Voxelises a mesh: voxels where the surface passes, of which those that face the outside stay,
/// thickened inward by three layers. The outermost layer is the one that the surface passes
/// through; `fill_rows` makes a solid of it.
///
/// Works for open, inside-out and self-intersecting meshes as far as they enclose anything; see
/// `form_voxels` and `find_outside`. Log: times, voxel size, number of voxels.
///
/// @param surface  null, or gets one bit a cell for those that the surface passes
VoxelGrid voxelise(const TriMesh& mesh, const VoxelSettings& settings, RunContext& run,
                   VoxelGrid::Words* surface = nullptr);

}  // namespace povmesh
