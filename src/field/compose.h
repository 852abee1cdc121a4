// Makes a set of nodes well composed, so that the surface around it is a manifold.
#pragma once

#include <array>
#include <cstdint>

#include "field/node_blocks.h"

namespace povmesh {

/// The nodes of a block and the next ones along the axes: bit i of rows[k][j], each 0 to 8.
struct NodeRows {
    std::array<std::array<std::uint16_t, 9>, 9> rows;
};
NodeRows rows_of(const NodeSet& set, std::uint32_t block);

/// True when the block and its next ones are all in the set or all out of it, wholly.
bool is_uniform_around(const NodeSet& set, std::uint32_t block);

enum class Composing : std::uint8_t { Add, Take };

/// Adds nodes, or takes them away, until no two nodes in the set, and no two out of it, meet across
/// the diagonal of a square or of a cube alone. Then every cell holds one piece of the border.
///
/// Nodes are only ever added, or only taken away, and none beyond the box around the set, so that
/// it ends. Returns how many; linear in the mixed blocks and these.
///
/// Source: L. Latecki, 3D well-composed pictures, Graphical Models and Image Processing 59(3),
/// 1997.
std::uint64_t make_well_composed(NodeSet& set, Composing how);

}  // namespace povmesh
