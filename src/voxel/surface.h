// The surface of a voxel grid as a mesh.
#pragma once

#include <cstdint>
#include <vector>

#include "mesh/tri_mesh.h"
#include "run/run_context.h"
#include "voxel/voxel_grid.h"

namespace povmesh {

/// Exposed squares that a piece has at least where small pieces are left out.
constexpr std::size_t kLeastSquares = 20;

/// Marks the exposed sides of every voxel afresh and hands each piece back as a mesh: a group of
/// voxels that are connected over sides. Log: the time. Pieces with fewer than `least_squares`
/// exposed squares are left out. They come in the order of their first voxels.
std::vector<TriMesh> surface_pieces(VoxelGrid& grid, std::size_t least_squares, RunContext& run);

/// Replaces the faces and vertices of the mesh by the exposed squares of the voxels, two triangles
/// each, in model coordinates, with the voxels' colours and their outside out. Flags say what is
/// exposed.
///
/// Squares share their vertices, also those of voxels that touch along an edge alone, and vertices
/// are numbered as they come up: the same as from passing the triangles through `build_f`. The
/// surface of a solid is closed, and a manifold unless voxels touch along an edge or at a corner
/// alone.
///
/// Time: linear in words and squares. Memory: 8 bytes for each cell of a layer.
/// Throws std::length_error beyond kMaxFaceCount triangles.
///
/// Log: start and end, the number of triangles.
void export_voxels(TriMesh& mesh, const VoxelGrid& grid, RunContext& run);

}  // namespace povmesh
