// Where a surface needs shorter edges than asked for.
#pragma once

#include <cstdint>

#include "base/array.h"
#include "mesh/tri_mesh.h"
#include "remesh/half_edge_mesh.h"
#include "remesh/sizing_field.h"
#include "spatial/nearest_face.h"

namespace povmesh {

/// Lengths by vertex, none greater than the field's: lower where a feature line bends so tightly
/// that chords as long as wanted would stray from it. A closed line keeps six corners.
Array<double> line_lengths(const HalfEdgeMesh& surface, const SizingField& field);

/// Lengths at vertices, none greater than the field's: lower where the surface bends so much that
/// edges would cut away a good part of a thin wall or a narrow gap. Each is found when it is asked
/// for, because only few are.
class WallLengths {
public:
    /// @param tree  over the faces of the surface; all three must outlive this
    WallLengths(const HalfEdgeMesh& surface, const NearestFace& tree, const SizingField& field);

    double at(std::int32_t v);

private:
    double find(std::int32_t v) const;

    const HalfEdgeMesh& surface_;
    const NearestFace& tree_;
    const SizingField& field_;
    Array<double> curvature_;
    Array<double> lengths_;  // by vertex; 0 where it was not asked for
};

}  // namespace povmesh
