// Groups faces into connected shells.
#pragma once

#include "mesh/edge_mates.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// Fills `mesh.shells` with the live faces, grouped by connection over edges (faces that touch only
/// at a vertex are apart; the winding does not matter). Shells are numbered by their lowest face;
/// within a shell the faces stand in breadth-first order from it, edge after edge, the faces of one
/// edge in face order.
///
/// Linear time, also where many faces share a vertex or an edge.
void label_shells(TriMesh& mesh);

/// The same with the edge table of the mesh at hand.
void label_shells(TriMesh& mesh, const EdgeMates& mates);

}  // namespace povmesh
