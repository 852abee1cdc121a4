// Grows or shrinks a model by a distance.
#pragma once

#include "field/offset.h"
#include "job/job.h"

namespace povmesh::job {

struct OffsetJob {
    double distance = 0;  // not 0; below 0 the model shrinks
    OffsetOptions options;
};

struct OffsetDone : Remarks {
    OffsetReport report;
    double seconds = 0;  // of the operation itself
};

Status offset(TriMesh& mesh, const OffsetJob& job, Progress progress, OffsetDone& done);

}  // namespace povmesh::job
