// Makes a shade for a lamp of a model, and looks at it.
#pragma once

#include "design/lampshade.h"
#include "job/job.h"

namespace povmesh::job {

struct LampshadeJob {
    double thickness = 0;
    LampshadeOptions options;     // measured in any case
    bool preview = false;         // the contours alone: the mesh stays as it is
    bool fills_contours = false;  // besides the shade
};

struct LampshadeDone : Remarks {
    LampshadeReport report;
    LampshadeContours contours;
    double cut_below = 0;  // of the models' heights, the most that was cut away
    double cut_above = 0;
    double seconds = 0;  // of the operation itself
};

Status lampshade(TriMesh& mesh, const LampshadeJob& job, Progress progress, LampshadeDone& done);

}  // namespace povmesh::job
