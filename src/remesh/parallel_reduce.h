// Lowers the number of faces on all cores, in rounds of edge collapses that do not touch.
#pragma once

#include "mesh/tri_mesh.h"
#include "remesh/reduce.h"
#include "run/run_context.h"

namespace povmesh {

struct ParallelReduceOptions {
    /// Share of the faces of each shell to keep; 0.999 or more changes nothing but for compacting;
    /// below -0.5 a shell of up to 100,000 faces is kept and a larger one keeps 100,000 and 30 % of
    /// the rest.
    double target = 1.0;
    double minimum_keep = 0.05;  // least share where the target is explicit
};

/// Reduces each shell to its target and compacts the mesh; its uses are built at the end.
///
/// No face turns by 90 degrees or more in a collapse. Vertices at open or irregular rims stay, the
/// link condition holds, and seams of colours and texture coordinates stay where they are. The
/// result is the same bits for any number of threads.
///
/// Log: the number of rounds, the number of faces removed, and whether the mesh is coloured.
ReduceReport reduce_parallel(TriMesh& mesh, const ParallelReduceOptions& options, RunContext& run);

}  // namespace povmesh
