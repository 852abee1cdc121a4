// Voxels along the surface of a mesh.
#pragma once

#include "mesh/tri_mesh.h"
#include "run/run_context.h"
#include "voxel/voxel_grid.h"

namespace povmesh {

/// The box of a model for the voxels: of all vertices with finite coordinates.
struct ModelBox {
    Box3f box;  // model coordinates; empty without such a vertex
    Vec3f origin;
    Vec3f extent;
};
ModelBox model_box(const TriMesh& mesh);

/// True when voxels of such edge lengths can be made: they are finite and above 0.
bool is_voxel_size(Vec3f size);

/// The size raised, all edges by the same factor, until a grid over the model fits: at most 792
/// cells along x and y, which the keys can tell apart, and `most_cells` in all. A size that fits,
/// or that is not positive or not finite, comes back as it is.
Vec3f fitting_size(const ModelBox& model, Vec3f size, std::int64_t most_cells = kMostCells);

/// The same for operations that make solids of a model. Where the size has to be raised by more
/// than a factor of four it is raised until 2^24 cells do: coordinates so far apart were hardly
/// meant, and would cost minutes and gigabytes. Where the faces would pass through more than 2^25
/// cells, all together, as those of no solid do, it is raised for that. A raise is told by a
/// caution in the log.
Vec3f affordable_size(const TriMesh& mesh, Vec3f size, std::int64_t most_cells, RunContext& run);

/// Makes a grid over a mesh, with a voxel wherever the surface passes; its origin is the centre of
/// the mesh. A size that is not positive or not finite gives no voxel; one that is too small is
/// raised, see `fitting_size`, with a caution in the log.
///
/// Each face is sampled at the grid points around it. One that is smaller than a voxel along all
/// axes takes every grid point of its box, rounded outward from one half. A larger one takes those
/// points of that box that are nearer to its plane than half a voxel's diagonal and whose
/// projections form triangles with its edges of hardly more than the area of the face itself:
/// doubled, by less than the largest edge of a voxel times the longest edge of the face. That lets
/// through every point within half a voxel of the face, so no row of cells crosses the surface
/// without meeting a voxel. Where faces share a voxel, the colour and the angle are those of the
/// last.
///
/// Afterwards the outside of the mesh is known, see `find_outside`. If a flood from outside gets
/// inside through a hole of the mesh, it is closed by voxels where it is no wider than four of
/// them.
///
/// Faces with a coordinate that is not finite are left out. Time: linear in the number of faces,
/// of grid points near them and of grid rows.
///
/// Log: size and centre of the model, the time.
VoxelGrid form_voxels(const TriMesh& mesh, const VoxelSettings& wanted, RunContext& run);

}  // namespace povmesh
