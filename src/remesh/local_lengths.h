// Where a surface needs shorter edges than asked for.
#pragma once

#include "base/array.h"
#include "mesh/tri_mesh.h"
#include "remesh/half_edge_mesh.h"
#include "remesh/sizing_field.h"
#include "spatial/nearest_face.h"

namespace povmesh {

/// Lengths by vertex, none greater than the field's: lower where a feature line bends so tightly
/// that chords as long as wanted would stray from it. A closed line keeps six corners.
Array<double> line_lengths(const HalfEdgeMesh& surface, const SizingField& field);

/// Lengths by vertex, none greater than the field's: lower where the surface bends so much that
/// edges would cut away a good part of a thin wall or a narrow gap.
///
/// @param tree  over the faces of the surface
Array<double> wall_lengths(const HalfEdgeMesh& surface, const NearestFace& tree,
                           const SizingField& field);

}  // namespace povmesh
