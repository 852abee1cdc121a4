// Brings a voxelised model to what columns need: where one fits, and what hangs over it.
#pragma once

#include <cstdint>
#include <span>

#include "base/array.h"
#include "mesh/tri_mesh.h"
#include "run/run_context.h"
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
};

/// The undersides of a grid, ordered by y, then x, then layer.
struct Undersides {
    Array<Underside> all;
    const Underside* find(VoxelIndex at) const;
};

/// Leaves voxels only where a column with a square cross-section would run into the model, and
/// gives each voxel that then begins a run from below the angle of the surface there.
///
/// Voxels lie wherever the surface is nearer than half their diagonal, which is several layers
/// above and below when columns are wide: too coarse to say where a column ends, or whether what a
/// voxel got its angle from is the ceiling or the wall beside it. So nine lines of each column (its
/// axis, the corners and the middles of the sides of its cross-section) are followed through the
/// surface. A voxel stays where one of them is inside the model somewhere within its layer. The
/// angle of an underside is that of the face on the axis, where this face, carried on as a plane,
/// reaches down to the lowest voxel within the cross-section, else the smallest one on the lines
/// that enter the model in its layer.
///
/// Columns with a line that does not leave the model as often as it enters it (through holes of the
/// mesh) keep their voxels and angles. Flags are marked afresh.
///
/// @param grid  filled, keeping angles
/// @param half_side  of the cross-section, at most half a voxel
///
/// Time: linear in the words of the grid, the crossings (with their sorting) and the rows that
/// faces reach.
Undersides fit_to_columns(VoxelGrid& grid, const TriMesh& mesh, double half_side);

/// Takes the angle, and so a column, from undersides flatter than `threshold` that are none to a
/// person:
/// - those that meet only the side of the column, if a column beside it has one over its axis;
///   otherwise columns would stand half outside along every rim;
/// - single ones, such as the grain of a steep wall: no other such underside in the eight columns
///   around with a height that differs by `spacing / layer + 1` layers at most. One with no voxel
///   beside it in its layer stays: something that starts in mid-air.
void drop_grain(VoxelGrid& grid, const Undersides& undersides, std::int8_t threshold);

}  // namespace povmesh
