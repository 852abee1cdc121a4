// Makes a solid of any triangles.
#pragma once

#include "field/wrap.h"
#include "job/job.h"
#include "spatial/surface_distance.h"

namespace povmesh::job {

struct WrapJob {
    WrapOptions options;
};

struct WrapDone : Remarks {
    WrapReport report;
    SurfaceDistance distance{};  // `there`: of the model from the result
    double seconds = 0;          // of the operation itself
};

Status wrap(TriMesh& mesh, const WrapJob& job, Progress progress, WrapDone& done);

}  // namespace povmesh::job
