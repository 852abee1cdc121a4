// The bounding box of a mesh.
#pragma once

#include "base/vec.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// The box around all vertices whose coordinates are finite, those without a face included; empty
/// when there is none.
Box3f finite_bounds(const TriMesh& mesh);

}  // namespace povmesh
