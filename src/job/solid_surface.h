// What the operations share that make a new surface around a solid.
#pragma once

#include "job/remarks.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// Looks at a result that is to be closed and free of crossings; what is wrong becomes a doubt.
void check_solid(const TriMesh& mesh, Remarks& remarks);

/// Warns when a model has texture coordinates, which a new surface does not take over.
void warn_of_lost_textures(const TriMesh& mesh, Remarks& remarks);

}  // namespace povmesh
