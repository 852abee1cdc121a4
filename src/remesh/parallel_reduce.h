// Lowers the number of faces on all cores, in rounds of edge collapses that do not touch.
#pragma once

#include <span>

#include "mesh/tri_mesh.h"
#include "remesh/reduce.h"
#include "run/run_context.h"

namespace povmesh {

struct ParallelReduceOptions {
    double keep = 1.0;         // share of the faces of each shell, as in ReduceOptions
    double least_keep = 0.05;  // least share where `keep` is explicit

    /// Collapses the edges of open borders too, along the border; else its vertices stay.
    bool thins_borders = false;
    /// No collapse that could leave the surface at a vertex farther from where it was, as a share
    /// of the diagonal of its shell's box: a limit for each vertex, or none. A vertex of limit 0
    /// stays.
    std::span<const float> most_movement = {};
    /// No collapse that leaves more slivers than it finds.
    bool makes_no_slivers = false;
    /// Set from 0 to 100; the progress of the run is left alone.
    Progress progress = {};
};

/// Reduces each shell to its target. The mesh is compact afterwards, and its uses are built.
///
/// No face turns by 90 degrees or more in a collapse. Vertices at irregular
/// rims stay, and so do those at open borders unless the options let them go; the link condition
/// holds, and seams of colours and texture coordinates stay where they are. The result is the same
/// bits for any number of threads.
///
/// Log: the number of rounds, the number of faces removed, and whether the mesh is coloured.
ReduceReport reduce_parallel(TriMesh& mesh, const ParallelReduceOptions& options, RunContext& run);

}  // namespace povmesh
