// Cellular infill: closed cells that take material out of a solid model.
#pragma once

#include <cstddef>

#include "mesh/tri_mesh.h"
#include "run/run_context.h"

namespace povmesh {

enum class InfillOutcome {
    Unchanged,      // a density of 0
    Filled,         // the mesh is the cells that were taken
    NothingInside,  // the skin leaves nothing to design; the mesh is empty
    FewCells,       // fewer than four cells would do: a small model, or a shell; the mesh is empty
};

/// The infill that hosts get. Replaces the mesh by cells, wound outward, as `make_cells` has them.
///
/// @param skin     thickness of the skin above the cells, model units
/// @param density  0 changes nothing; below 0.05 counts as 0.05
///
/// Cells are taken by their volume over their surface, the largest first, until the surface of
/// those taken over their volume exceeds the density, in 1 / model units, and there are four of
/// them. Where it exceeds it earlier, the density is raised by 0.05. A density that is not a number
/// takes all cells.
///
/// Progress: 10, 30, 40, 50, 55, 60, 70. Log: the summary of "cellular infill".
InfillOutcome cellular_infill(TriMesh& mesh, float skin, float density, RunContext& run);

struct InfillOptions {
    double skin = 1;          // model units; at least 0
    double density = 0.2;     // 0 to 1: share of what lies below the skin that stays material
    bool is_smoothed = true;  // false leaves the squares of the voxels
};

struct InfillReport {
    double voxel_size = 0;     // model units
    double inside_volume = 0;  // of what lies below the skin, cubic model units
    double cells_volume = 0;   // of the cells that were taken
    std::size_t cells = 0;     // that were made
    std::size_t taken = 0;
    double density = 1;  // that was reached
};

/// Replaces the mesh by cells, wound outward, that leave a share of its inside: the largest are
/// taken first, until no more than the density stays, or all are taken; the last one is the
/// smallest that will do. An empty mesh when no cell could be made. Progress and log are those of
/// `make_cells`.
InfillReport infill_to_density(TriMesh& mesh, const InfillOptions& options, RunContext& run);

}  // namespace povmesh
