// A field whose faces are those between solid and air, whatever the faces of the model are.
#pragma once

#include <memory>

#include "field/distance_field.h"
#include "field/field_grid.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// The labelled field of a mesh. Where faces are missing, or lie within the solid wholly or in
/// part, distances from the faces are not those from the solid: the field is then made again of the
/// surface around the solid nodes, which is closed and follows the faces themselves.
///
/// @param grid  reaches around the mesh; the field refers to none of the arguments
/// @param keeps_sheets  faces that the surface leaves out since they enclose less than a cell, such
///              as sheets and thin wires, count for distances, too: for who measures outward
/// @param report  of the mesh as it was; with the sheets that are kept
std::unique_ptr<DistanceField> solid_field(const TriMesh& mesh, const FieldGrid& grid,
                                           const LabelOptions& options, bool keeps_sheets,
                                           LabelReport& report);

}  // namespace povmesh
