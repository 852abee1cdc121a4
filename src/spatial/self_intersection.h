// Finds the places where a surface passes through itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "mesh/tri_mesh.h"

namespace povmesh {

struct FacePair {
    std::uint32_t first, second;  // face indices

    friend bool operator==(const FacePair&, const FacePair&) = default;
};

struct SelfIntersections {
    std::uint64_t count = 0;      // of all intersecting pairs
    std::vector<FacePair> pairs;  // first < second; the first ones in ascending order
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
/// number of face pairs whose boxes overlap, of those with a face around a vertex or an edge of
/// many faces only the ones that are seen from there in nearly the same direction. Memory: about 70
/// bytes a face.
SelfIntersections find_self_intersections(const TriMesh& mesh, std::size_t limit);

/// The live faces that some faces of the mesh meet in the same sense, pair by pair: `first` is one
/// of those faces, `second` any other. Sorted. Two of those faces that meet come as two pairs.
///
/// Time: as above, but n log n only in these faces and those whose boxes overlap theirs.
std::vector<FacePair> find_meetings(const TriMesh& mesh, std::span<const std::uint32_t> faces);

}  // namespace povmesh
