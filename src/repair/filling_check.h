// Fillings of holes that would cut through other faces.
#pragma once

#include <cstddef>

#include "mesh/tri_mesh.h"
#include "repair/hole_closing.h"

namespace povmesh {

/// Deletes the faces of every filling that meets another live face beyond the corners and edges
/// that they share, and gives its hole the fate Crosses. Of two fillings that meet each other the
/// later one goes. Returns the number of fillings undone.
///
/// Time: a search among the added faces for each face, plus the face pairs whose boxes overlap.
std::size_t undo_crossing_fillings(TriMesh& mesh, HoleReport& report);

}  // namespace povmesh
