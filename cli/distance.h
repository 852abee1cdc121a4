// Tells how far the result of an operation is from the model.
#pragma once

#include "cli/change.h"
#include "mesh/tri_mesh.h"

namespace povmesh::cli {

/// Adds the root mean square and the greatest distance of the two surfaces, in units of the file
/// and as shares of the diagonal of `from`.
void add_distance(const TriMesh& from, const TriMesh& to, ChangeReport& report);

}  // namespace povmesh::cli
