// Which shells are closed, how they are wound and which lie inside others.
#pragma once

#include <cstdint>
#include <span>
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

/// Examines every shell of a mesh whose `shells` are labelled. A shell lies in another one
///
/// - of the same winding when it is inside its surface and does not meet it except at corners (and
///   edges) that both have in the same place: bodies that cross are two bodies;
/// - of the other winding when most of it, by area, is inside a surface of more volume: a cavity
///   that touches or breaks through its wall is still one.
///
/// Exact: inside and outside are told by counting crossings along a ray with exact predicates, for
/// the second case from 63 points of the shell. Makes the uses of the mesh. Time: n log n, and for
/// each pair of shells whose boxes overlap the logarithm of the outer one's size, where the box of
/// the one lies in that of the other plus the face pairs whose boxes overlap.
std::vector<ShellNesting> classify_shells(TriMesh& mesh);

/// The same with the edge table of the mesh at hand.
///
/// @param turned  a byte a face, not 0 for those that are to be taken as turned over; or nothing
std::vector<ShellNesting> classify_shells(const TriMesh& mesh, const EdgeMates& mates,
                                          std::span<const std::uint8_t> turned = {});

}  // namespace povmesh
