// The voxels that a cavity with a wall around it may take out of a model.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mesh/tri_mesh.h"
#include "run/run_context.h"
#include "voxel/voxel_grid.h"

namespace povmesh {

/// Groups of fewer voxels are not worth taking out.
constexpr std::size_t kFewestVoxels = 100;

/// The edge of the voxels for a model of that volume, 0.4 to 2 model units, about 1.2 million for a
/// solid one; more where its box would need too many cells, with a caution in the log.
float cavity_voxel_size(const TriMesh& mesh, double model_volume, RunContext& run);

/// How many layers of such voxels a wall takes at least; may be negative.
std::int32_t wall_layers(double thickness, double voxel_size);

/// The core of a model: its voxels, filled, of which so many layers are eroded, and then every
/// voxel that is nearer to the outside than the thickness, measured straight, which erosion leaves
/// across diagonals. Slits and holes that are too narrow for a voxel count as outside. No two
/// voxels touch over an edge or a corner alone, and their exposed sides are marked. Without a layer
/// it is the whole model.
///
/// Progress: 30, 40, 50, 60. Log: that of the voxels.
/// Time: linear in the voxels of the model's box.
VoxelGrid cavity_core(const TriMesh& mesh, float voxel_size, double thickness, std::int32_t layers,
                      RunContext& run);

}  // namespace povmesh
