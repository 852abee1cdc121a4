// A surface of one vertex a cell and one quad an edge of a grid, and the removal of its crossings.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>

#include "base/array.h"
#include "field/contour.h"
#include "field/field_grid.h"
#include "field/node_blocks.h"

namespace povmesh {

/// Cells are numbered like their lowest node. Vertices stand in the order of their cells, quads in
/// that of the blocks, axes and nodes of their edges.
class DualSurface {
public:
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;

    /// The cells of a block that the surface passes, and the edges from its nodes.
    struct Block {
        std::uint32_t number = 0;
        BlockBits cells;
        std::array<BlockBits, 3> edges;
        std::uint32_t first_vertex = 0;
        std::uint32_t first_edge = 0;
    };

    /// The vertices of the four cells around an edge, counterclockwise seen from the side of air;
    /// divided from corner 0 to 2, or from 1 to 3.
    struct Quad {
        std::array<std::uint32_t, 4> corners;
        std::uint32_t node;  // the lower end of the edge
        float place;         // of the crossing, along the edge
        std::uint8_t axis;
        std::uint8_t is_low_solid;
        std::uint8_t diagonal;
        std::uint8_t is_suspect;  // not known to keep clear of others
    };

    DualSurface(const FieldGrid& grid, const BlockLayout& layout) : grid_(grid), layout_(layout) {}

    std::uint32_t vertex_count() const {
        return blocks.empty() ? 0 : blocks.back().first_vertex + blocks.back().cells.count();
    }
    std::uint32_t edge_count() const {
        if (blocks.empty()) return 0;
        const Block& last = blocks.back();
        return last.first_edge + last.edges[0].count() + last.edges[1].count() +
               last.edges[2].count();
    }

    std::uint32_t vertex_of(NodeIndex cell) const {
        const std::uint32_t number = layout_.number(cell);
        const Block& block = blocks[slots[number / kBlockNodes]];
        return block.first_vertex + block.cells.rank(number % kBlockNodes);
    }

    /// Calls `visit(edge, axis, low end within the cell)` for the cell's edges that are passed.
    template <typename Visit>
    void visit_edges(std::uint32_t cell, Visit&& visit) const {
        const NodeIndex low = layout_.node(cell);
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const std::size_t u = axis == 2 ? 0 : axis + 1;
            const std::size_t v = axis == 0 ? 2 : axis - 1;
            for (std::int32_t c = 0; c < 4; ++c) {
                const NodeIndex node = low.stepped(u, c & 1).stepped(v, c >> 1);
                if (!layout_.contains(node)) continue;
                const std::uint32_t number = layout_.number(node);
                const std::uint32_t slot = slots[number / kBlockNodes];
                if (slot == kNone) continue;
                const Block& block = blocks[slot];
                if (!block.edges[axis].at(number % kBlockNodes)) continue;
                std::uint32_t edge = block.first_edge;
                for (std::size_t a = 0; a < axis; ++a) edge += block.edges[a].count();
                edge += block.edges[axis].rank(number % kBlockNodes);
                visit(
                    edge, axis,
                    Vec3d{static_cast<double>(node.i - low.i), static_cast<double>(node.j - low.j),
                          static_cast<double>(node.k - low.k)});
            }
        }
    }

    /// A place within a cell, 0 to 1 along each axis, in model units.
    Vec3d to_exact_world(std::uint32_t cell, Vec3d place) const;
    Vec3f to_world(std::uint32_t cell, Vec3d place) const;

    void find_corners(Quad& quad) const;

    /// Takes the diagonal whose triangles come nearer to the crossing of the edge, of equal ones
    /// the shorter, and tells whether the quad is suspect.
    void choose_diagonal(Quad& quad) const;

    /// The vertices of its triangles.
    static std::array<std::array<std::uint32_t, 3>, 2> triangles(const Quad& quad);

    Array<std::uint32_t> slots;  // by block of the grid: its place in `blocks`, or kNone
    Array<Block> blocks;
    Array<Vec3f> places;         // of the vertices
    Array<std::uint32_t> cells;  // of the vertices
    Array<std::uint8_t> steps;   // how far a vertex was moved back, 0 to 3
    Array<Quad> quads;

private:
    const FieldGrid& grid_;
    BlockLayout layout_;
};

/// Moves vertices back until no two triangles have more in common than corners and edges.
///
/// @param mean  the mean of the points on the edges of a vertex's cell, 0 to 1 along each axis
ContourReport untangle(DualSurface& surface, const std::function<Vec3d(std::uint32_t)>& mean);

}  // namespace povmesh
