// Finds the places where a surface passes through itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "mesh/tri_mesh.h"

namespace povmesh {

struct FacePair {
    std::uint32_t first, second;  // face indices, first < second

    friend bool operator==(const FacePair&, const FacePair&) = default;
};

struct SelfIntersections {
    std::uint64_t count = 0;      // of all intersecting pairs
    std::vector<FacePair> pairs;  // the first ones in ascending order
};

/// Counts the pairs of live faces that have more in common than the corners at the same positions
/// and the edges between those (see meet_beyond_shared): faces that pierce or touch one another,
/// also of different shells, and faces folded flat onto a neighbour. Faces with the same three
/// corners are duplicates and do not count; faces without area or with a coordinate that is not
/// finite take no part.
///
/// @param limit  how many pairs are listed at most
///
/// Exact, on all threads, with the same result for any number of them. Time: n log n plus the
/// number of face pairs whose boxes overlap, of faces around one vertex or edge only those that
/// point in nearly the same direction. Memory: about 70 bytes a face.
SelfIntersections find_self_intersections(const TriMesh& mesh, std::size_t limit);

}  // namespace povmesh
