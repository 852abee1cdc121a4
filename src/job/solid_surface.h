// What the operations share that make a new surface around a solid.
#pragma once

#include "job/remarks.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// Looks at a result that is to be closed and free of crossings; what is wrong becomes a doubt.
void check_solid(const TriMesh& mesh, Remarks& remarks);

/// Warns when colours, labels or texture coordinates of a model are lost.
void warn_of_lost_attributes(const TriMesh& mesh, Remarks& remarks);

}  // namespace povmesh
