// In which directions a model is best printed, and the model stood up in one.
#pragma once

#include <cstddef>
#include <optional>

#include "job/job.h"
#include "orient/orientation.h"

namespace povmesh::job {

struct OrientJob {
    std::optional<Vec3d> up;  // a direction to be measured, too; finite, not 0
    std::size_t choose = 0;   // the row to stand the model up by, from 1 on; 0: none
};

struct OrientDone : Remarks {
    OrientationReport report;
    double seconds = 0;
};

/// Leaves faces and vertices as they are. BadOption when there is no such row.
Status orient(TriMesh& mesh, const OrientJob& job, Progress progress, OrientDone& done);

/// Turns the mesh so that it stands as a row has it, and tells what rounding spoilt.
Remarks stand_up(TriMesh& mesh, const Orientation& row);

/// Whether a mesh that was stood up is what was chosen.
///
/// @param area  of the surface before
Remarks check_pose(const TriMesh& mesh, double area, const Orientation& row);

}  // namespace povmesh::job
