// Takes material out of a solid model in closed cells.
#pragma once

#include "design/infill.h"
#include "job/job.h"

namespace povmesh::job {

struct InfillJob {
    double skin = 1;          // model units
    double density = 0.2;     // 0 to 1
    bool cells_only = false;  // the cells alone, their outside out
};

struct InfillDone : Remarks {
    InfillReport report;
    double saved_percent = 0;
    double smallest_skin = 0;
    double seconds = 0;  // of making the cells
};

Status infill(TriMesh& mesh, const InfillJob& options, Progress progress, InfillDone& done);

}  // namespace povmesh::job
