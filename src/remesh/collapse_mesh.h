// The connectivity that parallel reduction works on: triangles with their neighbours across edges,
// shell by shell.
//
//             apex(h)
//             /    \           h = 3 * triangle + corner runs from that corner to the next one;
//            /  h   \          its triangle lies to the left
//          a ------> b         a = origin(h), b = target(h)
//            \  o   /          o = opposites[h] runs from b to a
//             \    /
//             apex(o)
//
// A collapse of h merges b into a, its survivor: the triangles of h and of o go, and all others at
// b are handed to a. The two edges at apex(h) become one, and so do the two at apex(o).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "base/array.h"
#include "mesh/edge_mates.h"
#include "mesh/tri_mesh.h"
#include "remesh/triangle_half_edges.h"

namespace povmesh {

/// Triangles in the order of the shells, each with the half-edge opposite each of its own.
///
/// Invariants: opposites[opposites[h]] == h unless it is kNone; the two run in opposite directions
/// between the same vertices; both belong to live triangles of one shell. A triangle that is gone
/// has kGone as its first vertex.
///
/// Open borders may be closed by ghosts: from each border edge a triangle to one vertex `outside`,
/// its third, which is fixed and has no position. Then vertices at a border have closed fans as
/// others have, and the link condition holds borders apart: two of their vertices have `outside` in
/// common.
struct CollapseMesh {
    /// In the place of an opposite: the edge is open, irregular or turned against its mate.
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;
    static constexpr std::int32_t kGone = -1;

    Array<std::array<std::int32_t, 3>> triangles;
    Array<std::uint32_t> opposites;  // 3 a triangle
    Array<std::uint32_t> faces;    // the mesh's face that each triangle came from; ghosts have none
    Array<std::uint32_t> offsets;  // shell s: triangles offsets[s] to offsets[s + 1] - 1
    Array<std::uint8_t> is_fixed;  // vertices: rim, irregular, of several fans or shells
    Array<std::uint8_t> is_border;  // vertices: on a border that ghosts close; empty without them
    Array<std::uint32_t> valences;  // triangles at each vertex
    Array<std::uint32_t> starts;    // a half-edge from each vertex, kNone without triangles; the
                                    // collapses do not keep it up to date
    Array<std::uint32_t> wedges;    // 3 a triangle, or empty: what the corners carry, see Wedges

    std::int32_t outside = -2;  // the vertex of all ghosts; no vertex without them

    bool is_gone(std::size_t triangle) const { return triangles[triangle][0] == kGone; }
    bool is_ghost(std::size_t triangle) const { return triangles[triangle][2] == outside; }
    std::int32_t origin(std::uint32_t h) const { return triangles[h / 3][h % 3]; }
    std::int32_t target(std::uint32_t h) const { return origin(next_half_edge(h)); }
    std::int32_t apex(std::uint32_t h) const { return origin(previous_half_edge(h)); }

    /// The next half-edge from the same vertex, on the other side of the triangle of `h`.
    std::uint32_t turn(std::uint32_t h) const { return opposites[previous_half_edge(h)]; }

    /// Moves the live triangles of [begin, end) to its front, in their order. `places` has room for
    /// a number for every triangle. Returns the new end.
    std::size_t pack(std::size_t begin, std::size_t end, Array<std::uint32_t>& places);
};

enum class OpenBorders : std::uint8_t {
    Fixed,   // their vertices stay
    Ghosts,  // closed, so that they may move
};

/// Made from the shells of the mesh, which are labelled on the way. Its use table is built and
/// cleared.
CollapseMesh make_collapse_mesh(TriMesh& mesh, OpenBorders borders);

}  // namespace povmesh
