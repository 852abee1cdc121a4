// Where walls of a model are too thin to print, and gaps too narrow.
#pragma once

#include "job/job.h"
#include "job/thin_places.h"

namespace povmesh::job {

struct ThicknessJob {
    ThicknessOptions options;
    bool paints = true;  // makes the coloured model
};

struct ThicknessDone : ThinMeasurement {
    TriMesh painted;     // by its walls, red where it is thin
    double seconds = 0;  // of measuring
};

/// Builds the uses and shells of the mesh, and changes nothing else.
Status thickness(TriMesh& mesh, const ThicknessJob& job, Progress progress, ThicknessDone& done);

}  // namespace povmesh::job
