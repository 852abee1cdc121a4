// Where the faces of a mesh cross the edges of a grid, exactly.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "base/array.h"
#include "field/field_grid.h"
#include "field/node_blocks.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

struct Crossing {
    std::uint32_t node;  // number of the edge's lower end
    float place;         // along the edge, 0 to 1
    std::uint32_t face;
};

/// The crossings of faces with the edges between neighbouring nodes, by axis, sorted by edge and
/// along it.
///
/// Faces are closed sets of points without gaps between them: where two share an edge, a line of
/// the grid passes through exactly one of them or through both or neither as a fold has it. All
/// decisions are those for nodes moved by -(e, e^2, e^3) with an infinitely small e, so that no
/// node lies on a face and no line of the grid meets an edge.
class Crossings {
public:
    /// The faces must be finite. About 1.5 times area / cell^2 crossings; 12 bytes each and 4 a
    /// block and axis. Time: linear in these and the faces.
    Crossings(const TriMesh& mesh, const FieldGrid& grid);

    /// Those of the edges whose lower end lies in a block.
    std::span<const Crossing> of_block(std::size_t axis, std::uint32_t block) const {
        const Axis& lines = axes_[axis];
        return {lines.crossings.data() + lines.starts[block],
                lines.crossings.data() + lines.starts[block + 1]};
    }
    std::span<const Crossing> of_edge(std::size_t axis, std::uint32_t node) const;
    std::size_t size() const {
        return axes_[0].crossings.size() + axes_[1].crossings.size() + axes_[2].crossings.size();
    }

    /// The nodes whose edge along the axis is crossed.
    const NodeSet& crossed(std::size_t axis) const { return axes_[axis].crossed; }

private:
    struct Axis {
        Array<Crossing> crossings;
        Array<std::uint32_t> starts;  // block count + 1
        NodeSet crossed;
    };
    std::array<Axis, 3> axes_;
};

}  // namespace povmesh
