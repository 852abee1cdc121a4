// Counts the flaws of a mesh.
#pragma once

#include <cstdint>

#include "base/array.h"
#include "mesh/edge_mates.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

struct FlawCounts {
    std::uint32_t inverted = 0;    // faces turned over to agree with their shell's outward side
    std::uint32_t open_edges = 0;  // corners of visited faces with an edge that no other face holds
    std::uint32_t non_manifold = 0;  // visited faces with an edge that several other faces hold
    std::uint32_t degenerate = 0;    // faces with two equal vertices or an angle below 0.05 degrees

    bool any() const { return (inverted | open_edges | non_manifold | degenerate) != 0; }
    friend bool operator==(const FlawCounts&, const FlawCounts&) = default;
};

/// Which faces were counted as what, for those who want to show flaws. Ascending, each face once.
struct FlawFaces {
    Array<std::uint32_t> inverted;  // their turned side is out, when the walk has ended
    Array<std::uint32_t> open;      // counted in open_edges at least once
    Array<std::uint32_t> non_manifold;
    Array<std::uint32_t> degenerate;
};

/// Walks every shell once from its top and counts flaws. Labels the shells first, and they stay in
/// `mesh.shells`; faces and vertices are not changed.
///
/// From the highest vertex of a shell, whose faces must look up on the whole, the walk crosses the
/// edges that exactly two faces hold and counts a face as inverted when it has to be turned over to
/// agree with the face it was reached from. A shell without a face that looks up (normal z of at
/// least -0.0001) is not walked; only its degenerate faces count.
///
/// Linear time; about 70 bytes a triangle above faces and vertices.
FlawCounts detect(TriMesh& mesh, FlawFaces* faces = nullptr);
/// The same with the edge table of the mesh at hand.
FlawCounts detect(TriMesh& mesh, const EdgeMates& mates, FlawFaces* faces = nullptr);

}  // namespace povmesh
