// Slits without area along an edge, where its neighbour has more vertices.
#pragma once

#include <cstddef>

#include "mesh/edge_mates.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

struct SlitReport {
    std::size_t closed_slits = 0;
    std::size_t split_faces = 0;
    std::size_t added_faces = 0;  // that came of them
};

/// Closes the rims whose vertices all lie on one line, to within 1e-4 of its length: a long edge
/// with a vertex of its neighbour on it makes such a rim of three. Faces are split at the vertices
/// along their edge, so that the two sides of the slit have the same edges; no vertex moves and
/// none is made. New corners have colours and texture coordinates in between. A rim at a face that
/// is as narrow as the slit stays.
///
/// The use table is cleared when a face was split. Linear time, plus n log n for each rim.
SlitReport close_slits(TriMesh& mesh, const EdgeMates& mates);

}  // namespace povmesh
