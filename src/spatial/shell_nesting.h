// Which shells are closed, how they are wound and which lie inside others.
#pragma once

#include <cstdint>
#include <vector>

#include "mesh/edge_mates.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

struct ShellNesting {
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;

    bool is_closed = false;    // every edge is held by an even number of faces, all finite
    bool is_oriented = false;  // closed, and by just two faces that run along it in opposite
                               // directions
    double signed_volume = 0;  // cubic model units; negative when wound inward; only of closed ones
    std::uint32_t depth = 0;   // number of other closed shells that it lies in
    std::uint32_t around = kNone;  // the innermost of them

    /// True for the inner surface of a hollow body, however it is wound.
    bool is_cavity() const { return is_closed && depth % 2 == 1; }
};

/// Examines every shell of a mesh whose `shells` are labelled. A shell lies in another one when it
/// is inside its surface and does not meet it except at corners (and edges) that both have in the
/// same place.
///
/// Exact: inside and outside come from counting crossings along a ray with exact predicates.
/// Makes the uses of the mesh. Time: n log n, and for each pair of a shell whose box lies in that
/// of another one the logarithm of that shell's size plus the face pairs whose boxes overlap.
std::vector<ShellNesting> classify_shells(TriMesh& mesh);

/// The same with the edge table of the mesh at hand.
std::vector<ShellNesting> classify_shells(const TriMesh& mesh, const EdgeMates& mates);

}  // namespace povmesh
