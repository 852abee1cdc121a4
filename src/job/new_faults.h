// Tells what the result of an operation has and its model had not.
#pragma once

#include "job/remarks.h"
#include "mesh/tri_mesh.h"
#include "remesh/checked_reduce.h"

namespace povmesh {

/// Adds the faults: pairs of faces that cross as doubts, which make the status Flawed, the others
/// as warnings. So does a volume that changed by more than a share of it, where the result has no
/// more open edges than the model and its faces are wound alike: else volumes tell nothing.
///
/// @param volume_before  0: of a sheet, or not to be compared
void add_faults(const NewFaults& faults, double volume_before, const TriMesh& after,
                double notable_share, Remarks& remarks);

/// The same for a mesh and what it was made of. Uses of both are built.
void add_faults(TriMesh& before, TriMesh& after, double notable_share, Remarks& remarks);

}  // namespace povmesh
