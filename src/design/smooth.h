// Takes the steps out of voxel surfaces.
#pragma once

#include "mesh/tri_mesh.h"

namespace povmesh {

/// Moves every vertex once, all from the old positions: to 0.7 times itself plus 0.3 times the mean
/// of the vertices that share an edge with it. A vertex without neighbours stays.
///
/// For surfaces of voxels: at most 24 faces meet at a vertex. Builds the uses of the mesh if they
/// are not there. Time: linear, on all threads.
void smooth_voxel_surface(TriMesh& mesh);

}  // namespace povmesh
