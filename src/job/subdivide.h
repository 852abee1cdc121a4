// Smooths a model and gives it more triangles.
#pragma once

#include <cstdint>

#include "job/job.h"
#include "remesh/subdivide.h"

namespace povmesh::job {

struct SubdivideJob {
    std::uint32_t levels = 1;
    SubdivideMode mode = SubdivideMode::Uniform;
};

struct SubdivideDone : Remarks {
    double seconds = 0;  // of the subdivision itself
};

Status subdivide(TriMesh& mesh, const SubdivideJob& options, Progress progress,
                 SubdivideDone& done);

}  // namespace povmesh::job
