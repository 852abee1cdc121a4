// Takes the slivers out of a reduced surface.
#pragma once

#include <cstddef>

#include "mesh/tri_mesh.h"

namespace povmesh {

/// Turns edges and merges vertices until no triangle counts as degenerate (an angle below 0.05
/// degrees), or until nothing more can be done.
///
/// For closed manifold surfaces without colours, such as those of cavities: changed ones become
/// white, without labels or texture coordinates. Vertices stay where they are or go. The surface
/// stays closed and manifold; no face turns by more than 25 degrees. Time: linear in the faces, and
/// a constant for each sliver.
/// @return  how many slivers are left
std::size_t mend_slivers(TriMesh& mesh);

}  // namespace povmesh
