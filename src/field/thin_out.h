// Takes vertices out of flat places and straight edges of a surface.
#pragma once

#include <cstddef>

#include "mesh/tri_mesh.h"

namespace povmesh {

struct ThinOutReport {
    std::size_t removed = 0;   // vertices
    std::size_t attempts = 0;  // more than one when something crossed
};

/// Merges vertices of a closed manifold into neighbours while no face turns by more than a degree
/// from where it was at first, the surface stays within a distance of where it was, and nothing
/// crosses. The mesh is compact afterwards; attributes are not kept.
///
/// @param tolerance  model units
///
/// Crossings are looked for at the end, exactly; where there are any, the vertices around there
/// stay and it begins anew, at last without any change. Time: n log n, mostly of that search; about
/// 150 bytes a triangle beside the mesh.
ThinOutReport thin_out(TriMesh& mesh, double tolerance);

}  // namespace povmesh
