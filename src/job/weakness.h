// Cross-sections at which a model would break first.
#pragma once

#include <vector>

#include "analysis/weakness.h"
#include "job/job.h"

namespace povmesh::job {

struct WeaknessJob {
    bool all = false;  // every section, not only weak places
};

struct WeaknessDone : Remarks {
    std::vector<WeakSection> sections;  // the weakest first; there need be none
};

/// Reduces a large mesh, as far as that changes little, before it looks at it.
Status weakness(TriMesh& mesh, const WeaknessJob& job, Progress progress, WeaknessDone& done);

}  // namespace povmesh::job
