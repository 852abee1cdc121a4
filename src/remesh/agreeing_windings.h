// Faces wound against their neighbours are turned over before the surface is worked on.
#pragma once

#include <cstdint>

#include "base/array.h"
#include "mesh/edge_mates.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// Turns faces over so that any two that share an edge of two faces are wound alike: of all the
/// faces that hang together over such edges, the fewer. Where that cannot be, as on a strip with a
/// half turn, the fewest edges found so stay between opposite windings, or all as they were.
///
/// Returns the faces that were turned, each once. Where there are any, the uses of the mesh are
/// cleared, and the table of mates holds no longer. Linear time.
Array<std::uint32_t> make_windings_agree(TriMesh& mesh, const EdgeMates& mates);

}  // namespace povmesh
