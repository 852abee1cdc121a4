// One mesh for each model that a mesh holds, and what there is to tell about it.
#pragma once

#include <cstddef>
#include <vector>

#include "base/vec.h"
#include "job/job.h"

namespace povmesh::job {

struct PieceMeasures {
    std::size_t triangles = 0;
    std::size_t shells = 0;
    double volume = 0;  // signed
    Box3f box;
    bool is_closed = false;
};

PieceMeasures measure_piece(TriMesh& mesh, std::size_t shells);

struct SplitJob {
    double min_volume = 0;  // smaller models are left out
};

struct SplitDone : Remarks {
    std::vector<PieceMeasures> pieces;  // one for each of `mesh.parts`
    std::vector<bool> is_left_out;
    std::size_t left_out = 0;
    double largest = 0;  // volume
};

/// Separates the bodies into `mesh.parts`, also those that are left out. Nothing when all are.
Status split(TriMesh& mesh, const SplitJob& options, Progress progress, SplitDone& done);

}  // namespace povmesh::job
