// Closed loops in a set of directed edges.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/array.h"

namespace povmesh {

struct LoopEdge {
    std::int32_t from, to;
};

/// Loop l consists of edges[offsets[l]] to edges[offsets[l + 1] - 1], each starting where the one
/// before it ended; the edges are indices into the span that was searched. A loop passes no node
/// twice.
struct Loops {
    Array<std::uint32_t> offsets;
    Array<std::uint32_t> edges;

    std::size_t size() const { return offsets.empty() ? 0 : offsets.size() - 1; }
    std::span<const std::uint32_t> operator[](std::size_t loop) const {
        return {edges.data() + offsets[loop], edges.data() + offsets[loop + 1]};
    }
};

enum class Direction { Kept, Ignored };

/// Divides edges into loops; those that lie on open chains are left out. With the directions
/// ignored an edge may be passed from its end to its start. Where every node has as many edges in
/// as out (or, with directions ignored, an even number of them), all edges are used.
///
/// Nodes are numbered from 0 to node_count - 1. Linear time.
Loops find_loops(std::span<const LoopEdge> edges, std::size_t node_count, Direction direction);

}  // namespace povmesh
