// Makes a model fit to print.
#pragma once

#include "job/job.h"
#include "job/mending.h"
#include "job/model_file.h"

namespace povmesh::job {

struct RepairJob {
    bool outward = false;  // cavities are turned outward, too
    double drop_tiny = 0;  // shells smaller than a cube of this volume, in volume and area, go
    // In `before` and `Mending::after`, for those who tell of them. That there are no more than
    // before is looked after in any case.
    bool counts_crossings = true;
};

/// A doubt says so where parts of the model are gone, walls without thickness that lie outside of
/// what is left.
struct RepairDone : Remarks {
    Findings before;
    Mending mending;
};

Status repair(TriMesh& mesh, const RepairJob& options, Progress progress, RepairDone& done);

/// The same for a model as it was read. Several objects of a package are repaired each by itself:
/// the wall at which two of them touch stays in both, and new faces belong to the object that they
/// close, but in objects with textures, where holes stay open. The numbers are those of all
/// together.
Status repair(LoadedModel& model, const RepairJob& options, Progress progress, RepairDone& done);

/// What is found in each of the objects of a model, added up; in the whole of it when it has one.
Findings examine_objects(LoadedModel& model, Progress progress);

}  // namespace povmesh::job
