// Turns the inside of a model into cells with walls between them.
#pragma once

#include <cstddef>
#include <vector>

#include "mesh/tri_mesh.h"
#include "run/run_context.h"

namespace povmesh {

/// Cells come nearer to the surface than the skin by as many voxels at most.
inline constexpr double kThinnestSkin = 1.5;

struct InfillCell {
    TriMesh mesh;  // closed, a manifold, wound outward
    double surface = 0;
    double volume = 0;
};

struct CellPieces {
    bool has_room = false;  // false: hardly a voxel lies below the skin, and there is no cell
    std::vector<InfillCell> cells;
    double voxel_size = 0;     // model units
    double inside_volume = 0;  // of all that lies below the skin, cubic model units
};

struct CellOptions {
    double skin = 1;                // model units
    double cells_per_million = 18;  // cells for each million voxels below the skin
    // Takes smaller voxels where the skin would have less than two of them, up to 64 million for a
    // solid model; a skin of fewer than `kThinnestSkin` voxels even so gets no cells. Without it
    // the skin of a large model may be too thin to keep the cells inside.
    bool follows_skin = false;
    // Takes the steps out of the cells and reduces them, by which they move half a voxel at most.
    bool is_refined = false;
};

/// Fills a model with cells, a share of which makes an infill.
///
/// @param mesh  gets lost
///
/// The model is rotated by 45 degrees about the x axis, turned into voxels of 0.25 to 1 model
/// units, about a million for a solid one, and filled. What is nearer to the outside than the skin,
/// measured straight, is taken off; the rest is divided, see `divide_into_cells`. From each cell
/// three layers are eroded, as if it stood alone, spurs are removed, and two layers are put
/// back, so that its corners are round; then what lies within a voxel of the border to another cell
/// is wall. So walls are two voxels thick in every direction, but for the grain of the voxels. A
/// cell that comes apart makes several pieces, in the order of their first voxels; the smallest are
/// left out.
///
/// The cells lie at least the skin less 1.5 voxels below the surface; on flat faces they have about
/// half a voxel more than the skin. Surfaces inside of the solid, of slits that are too narrow for
/// a voxel and of bodies that overlap, get a skin of their own.
///
/// Progress: 30, 40, 50, 55, 60, 70, the last four only when there is room. Log: that of the voxels
/// and of the division.
/// Time: linear in the voxels of the model's box. The same bits for any number of threads.
CellPieces make_cells(TriMesh& mesh, const CellOptions& options, RunContext& run);

}  // namespace povmesh
