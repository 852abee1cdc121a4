// Mends triangles of bad shape.
#pragma once

#include "job/job.h"
#include "remesh/revise.h"
#include "remesh/triangle_shape.h"

namespace povmesh::job {

struct ReviseJob {
    ReviseOptions options;
};

struct ReviseDone : Remarks {
    ReviseReport report;
    double seconds = 0;  // of the mending itself
};

Status revise(TriMesh& mesh, const ReviseJob& options, Progress progress, ReviseDone& done);

}  // namespace povmesh::job
