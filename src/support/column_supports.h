// Columns that hold up the overhangs of a model while it is printed.
#pragma once

#include <span>

#include "base/array.h"
#include "base/status.h"
#include "mesh/tri_mesh.h"
#include "run/run_context.h"

namespace povmesh {

/// An upright column with a square cross-section; both points lie on its axis. Hosts read arrays of
/// these.
struct Column {
    Vec3f top;
    Vec3f bottom;
};
static_assert(sizeof(Column) == 6 * sizeof(float));

struct ColumnOptions {
    double spacing = 3;  // of the columns along x and y, model units
    double angle = 45;   // degrees from upright: surfaces that lean out more are overhangs
    double plate = 0;    // height of the build plate
    // Ends columns where their axis meets the surface. Otherwise they reach 2 units into the model
    // at both ends, which hosts rely on.
    bool ends_at_surface = true;
    // Adds columns between the rows, for what those in the rows do not hold. Hosts rely on rows
    // alone.
    bool adds_between = true;
};

/// From the axis of a column to its edges: 0.2 less than half the spacing, so that neighbours stay
/// apart. 0 or less for a narrow spacing: such columns have no body.
double column_radius(double spacing);

/// Half the side of the cross-section; never below 0.
double column_half_side(double spacing);

/// Finds columns below everything that hangs over, down to the plate or the model below. None
/// stands where its cross-section would pass through the model.
///
/// The model becomes voxels as wide as the spacing and 1 unit high, and of each column of voxels
/// the gaps below overhangs are searched (`find_gaps`). A column begins 2 units into the overhang
/// and ends 2 units into the model below, seen from the voxels, or at the plate; with
/// `ends_at_surface` it is cut off where its axis meets the surface. Regions of overhangs that are
/// narrower than 0.4 of the spacing both ways and held by what is beside them get none
/// (`find_overhangs`).
///
/// With `adds_between`, what the rows leave is held by columns of its own (`add_columns`), each
/// ending at the surface.
///
/// Columns in rows stand on the centres of the voxels; all are ordered by x, then y, then from
/// above to below. Models that need more than 792 voxels along x or y get a wider spacing.
///
/// @param columns  emptied first; without an entry when nothing hangs over
/// @return  BadOption for a spacing of 0.4 or less, an angle that is not a number, and a spacing or
///          plate that is not finite; TooLarge where the voxels, or the rows that faces reach,
///          would take more than a GiB
///
/// Log: what `voxelise` tells; a caution when it is too large.
Status find_columns(const TriMesh& mesh, const ColumnOptions& options, RunContext& run,
                    Array<Column>& columns);

/// Appends each column as a closed square tube of 16 faces, white and wound outward. Corners lie on
/// the diagonals, `radius` from the axis; the ends are pyramids of 0.001 units. A radius of 0 or
/// less, or one that is not a number, appends nothing.
void add_tubes(TriMesh& mesh, std::span<const Column> columns, double radius);

}  // namespace povmesh
