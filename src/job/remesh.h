// Makes the triangles of a model even, and looks at what came of it.
#pragma once

#include <span>

#include "job/job.h"
#include "remesh/remesh.h"

namespace povmesh::job {

struct RemeshJob {
    double edge_length = 0;          // above 0; or instead of it
    std::span<const float> lengths;  // one for each face, see `RemeshOptions`
};

struct RemeshDone : Remarks {
    RemeshReport report;
    double seconds = 0;  // of the operation itself
    TriMesh source;      // the model, its windings made to agree: what the result compares with
};

Status remesh(TriMesh& mesh, const RemeshJob& job, Progress progress, RemeshDone& done);

}  // namespace povmesh::job
