// Brings a voxelised model to what columns need: where one fits, and what hangs over it.
#pragma once

#include <cstdint>
#include <span>

#include "base/array.h"
#include "mesh/tri_mesh.h"
#include "run/run_context.h"
#include "support/overhangs.h"
#include "voxel/voxel_grid.h"

namespace povmesh {

/// A surface that a column of the grid meets from below.
struct Underside {
    std::int32_t x = 0;  // of the column
    std::int32_t y = 0;
    std::int32_t layer = 0;     // of the lowest voxel above it
    bool is_over_axis = false;  // false when only the side of the column meets it
    float top = 0;              // height on the axis, model coordinates; if it is over it
    float floor = 0;            // of the next surface below on the axis, else lowest()
    bool is_tip = false;        // something begins here in mid-air
};

/// The undersides of a grid, ordered by y, then x, then layer.
struct Undersides {
    Array<Underside> all;
    const Underside* find(VoxelIndex at) const;
};

struct ColumnFit {
    double half_side = 0;  // of a column's cross-section, at most half a voxel
    bool takes_tips = false;
};

/// Leaves voxels only where a column with a square cross-section would run into the model, and
/// gives each voxel that then begins a run from below the angle of the surface there.
///
/// Voxels lie wherever the surface is nearer than half their diagonal, which is several layers
/// above and below when columns are wide: too coarse to say where a column ends, or whether what a
/// voxel got its angle from is the ceiling or the wall beside it. So nine lines of each column (its
/// axis, the corners and the middles of the sides of its cross-section) are followed through the
/// surface. A voxel stays where one of them is inside the model somewhere within its layer. The
/// angle of an underside is the smallest one of the faces by which lines enter the model in its
/// layer, and of the face on the axis, where this face, carried on as a plane, reaches down to the
/// lowest voxel within the cross-section. Faces of regions that are not worth a column count as
/// upright: they are the grain of steep walls.
///
/// With `takes_tips` the voxel of a tip counts as met, too, and as level.
///
/// Columns with a line that does not leave the model as often as it enters it (through holes of the
/// mesh) keep their voxels and angles. Flags are marked afresh.
///
/// @param grid  filled, keeping angles
///
/// Time: linear in the words of the grid, the crossings (with their sorting) and the rows that
/// faces reach.
Undersides fit_to_columns(VoxelGrid& grid, const TriMesh& mesh, const Overhangs& overhangs,
                          const ColumnFit& fit);

/// Takes the angle, and so a column, from undersides flatter than `threshold` that meet only the
/// side of the column, if a column beside it has one over its axis at about the same height;
/// otherwise columns would stand half outside along every rim. Tips keep theirs.
void drop_rims(VoxelGrid& grid, const Undersides& undersides, std::int8_t threshold);

}  // namespace povmesh
