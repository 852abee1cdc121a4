// What the corners around each vertex carry while edges collapse, and where the seams between them
// run.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "base/array.h"
#include "remesh/collapse_mesh.h"
#include "remesh/quadric.h"

namespace povmesh {

/// The corners at a vertex that carry the same form a wedge. CollapseMesh::wedges names the wedge
/// of every corner at a vertex that may move. Beyond an open border that ghosts close lies a wedge
/// of nothing, so that the border is a seam.
struct Wedges {
    /// What may become of a vertex: the higher, the less.
    enum Kind : std::uint8_t {
        Smooth = 0,    // one wedge
        Seam = 1,      // two; the seam between them comes in over one edge and leaves over one
        Crossing = 2,  // anything else
    };

    struct Wedge {
        std::array<float, 3> attributes;  // times the scale
        std::int32_t record;              // texture coordinate; -1 when it must be made, or none
    };

    Array<Wedge> wedges;
    Array<std::uint8_t> kinds;  // of the vertices

    Attributes attributes(std::uint32_t wedge) const {
        const std::array<float, 3>& a = wedges[wedge].attributes;
        return {a[0], a[1], a[2]};
    }
    void set_attributes(std::uint32_t wedge, const Attributes& attributes);
};

/// Finds the wedges and fills `corners.wedges`; attributes are multiplied by `scale`.
Wedges make_wedges(const TriMesh& mesh, CollapseMesh& corners, double scale);

/// Writes what the corners of the live triangles carry into their faces. Wedges that have changed
/// get new texture coordinates.
void store_wedges(Wedges& wedges, const CollapseMesh& corners, double scale, TriMesh& mesh);

}  // namespace povmesh
