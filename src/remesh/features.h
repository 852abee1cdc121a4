// Edges that a remeshed surface keeps: sharp ones, and borders of labels and texture maps.
#pragma once

#include <span>

#include "mesh/tri_mesh.h"
#include "remesh/half_edge_mesh.h"

namespace povmesh {

/// Marks the features among the edges of `surface`, which was made from `mesh`, and sets the kinds
/// of its vertices. A feature is an edge with a dihedral angle beyond `angle` (degrees, from flat),
/// one where labels or texture coordinates differ on its two sides, an open or irregular one. A
/// vertex between two feature edges that turn by more than `angle` is fixed.
///
/// Sharp edges that hang together, end in the middle of a surface and all lie within a length of
/// each other are none: what a scan has of them is noise.
///
/// @param lengths  one per triangle of `surface`, model units
void mark_features(HalfEdgeMesh& surface, const TriMesh& mesh, double angle,
                   std::span<const float> lengths);

}  // namespace povmesh
