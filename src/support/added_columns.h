// Columns between the rows, for what those in the rows do not hold.
#pragma once

#include "base/array.h"
#include "mesh/tri_mesh.h"
#include "support/column_supports.h"
#include "support/overhangs.h"
#include "support/upright_lines.h"

namespace povmesh {

struct AddedColumnOptions {
    double spacing = 3;    // of the columns in rows, model units
    double half_side = 0;  // of a column's cross-section
    double plate = 0;      // height of the build plate
};

/// Adds columns until each tip has one, and until no more than the least area of a region lies
/// side by side farther than three quarters of the spacing from the columns that hold it. Left out
/// is what lies less than 5 units above the plate or the surface below it.
///
/// A column stands in the middle of what it holds if its cross-section is free down to the surface
/// below; else beside that, where a corner of it still meets the place. Where none is free there is
/// no column.
///
/// @param columns  those in the rows, in any order; new ones follow
/// Time: linear in the rows that faces reach and in the area of the faces, both seen from above, in
/// steps of a sixth of the spacing (more, so that there are 4 million samples at most), with their
/// sorting; and for each column added that of some lines.
void add_columns(const TriMesh& mesh, const UprightLines& lines, const Overhangs& overhangs,
                 const AddedColumnOptions& options, Array<Column>& columns);

}  // namespace povmesh
