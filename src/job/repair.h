// Makes a model fit to print.
#pragma once

#include "job/job.h"
#include "job/mending.h"

namespace povmesh::job {

struct RepairJob {
    bool outward = false;  // cavities are turned outward, too
    double drop_tiny = 0;  // shells smaller than a cube of this volume, in volume and area, go
};

struct RepairDone : Remarks {
    Findings before;
    Mending mending;
};

Status repair(TriMesh& mesh, const RepairJob& options, Progress progress, RepairDone& done);

}  // namespace povmesh::job
