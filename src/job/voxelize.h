// A model as the cubes that it is made of.
#pragma once

#include <cstddef>

#include "job/job.h"

namespace povmesh::job {

struct VoxelizeJob {
    float edge = 1;  // of a cube, above 0
};

struct VoxelizeDone : Remarks {
    float edge = 0;  // as it had to be raised
    std::size_t voxels = 0;
    double seconds = 0;
};

Status voxelize(TriMesh& mesh, const VoxelizeJob& options, Progress progress, VoxelizeDone& done);

}  // namespace povmesh::job
