// Finds closed shells that are wound inward, and tells cavities from shells that are inside out.
#pragma once

#include <cstdint>
#include <vector>

#include "mesh/edge_mates.h"
#include "mesh/tri_mesh.h"

namespace povmesh::cli {

/// Shells of negative volume by their number in the shell table, ascending. Each of their edges is
/// held by two faces that run along it in opposite directions; without that a shell has no volume.
struct InwardShells {
    std::vector<std::uint32_t> inside_out;  // inside an even number of closed shells
    std::vector<std::uint32_t> cavities;    // inside an odd number
};

/// A shell surrounds others when each of its edges is held by an even number of faces. A shell that
/// lies partly inside another is judged by the places of three of its vertices.
///
/// @param mesh   its shells are labelled
/// @param mates  the edge table of the mesh as it is
/// Time: linear without inward shells; else in addition n log k for k such shells and, for each face,
/// the shells whose probes lie within its extent in x.
InwardShells find_inward_shells(const TriMesh& mesh, const EdgeMates& mates);

}  // namespace povmesh::cli
