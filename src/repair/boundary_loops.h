// The rims of the holes of a mesh.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/array.h"
#include "mesh/edge_mates.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// Simple closed chains of open edges. Entry i of a loop is a vertex and the open edge that leads
/// from it to the vertex of entry i + 1 (the last one back to the first).
///
/// Invariants: a loop has at least three entries and no vertex twice; no open edge is in two loops.
/// A loop runs against the winding of (most of) the faces at its edges: a face that fills it and
/// has its direction agrees with them.
struct BoundaryLoops {
    struct Entry {
        std::int32_t vertex;
        std::uint32_t edge;  // face * 3 + edge of the face

        std::uint32_t face() const { return edge / 3; }
    };

    Array<std::uint32_t> offsets;  // loop count + 1
    Array<Entry> entries;
    std::size_t unclosed_edge_count = 0;  // open edges of chains that do not close

    std::size_t size() const { return offsets.empty() ? 0 : offsets.size() - 1; }
    std::span<const Entry> operator[](std::size_t loop) const {
        return {entries.data() + offsets[loop], entries.data() + offsets[loop + 1]};
    }
};

/// Traces the boundary of the live faces. At a vertex with several open edges the walk stays in its
/// fan of faces: it leaves by the edge at which turning about the vertex, from face to face, comes
/// out. Where an edge of several faces stops the turning, the ends left over at a vertex are joined
/// in face order, first those whose directions fit. A chain that passes a vertex twice is split
/// there.
///
/// Loops are in the order of their lowest open edge. Linear time, but for a sort of the ends left
/// over.
BoundaryLoops trace_boundary_loops(const TriMesh& mesh, const EdgeMates& mates);

}  // namespace povmesh
