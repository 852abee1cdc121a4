// How the operations of this room are called.
//
// An operation is a function of the namespace povmesh::job, in the header of its name:
//
//     TriMesh mesh = ...;
//     job::RepairDone done;
//     Status status = job::repair(mesh, {.drop_tiny = 2.5}, progress, done);
//
// - What it may do stands in a struct `...Job`, whose defaults are those of the tool; what it did
//   in a struct `...Done`, which has the remarks for a person beside the numbers.
// - The mesh is changed in place and compact afterwards. Models that become several are in
//   `mesh.parts`, and the mesh itself is empty.
// - A status other than Ok has one line without a file name, and leaves mesh and struct in a state
//   that is good for nothing but to be thrown away. `Nothing` is a model that gives no result.
// - Lack of memory is std::bad_alloc, as everywhere. What the memory may be, who may cancel and how
//   many threads work is found in the JobState of the calling thread, when there is one
//   (base/job_state.h).
// - Progress goes from 50 to 80, or 70 where there are several results.
// - Whether the result is to be written is asked of `refusal`; the tool does that, and so does the
//   second interface.
#pragma once

#include "base/status.h"
#include "job/remarks.h"
#include "mesh/tri_mesh.h"
#include "run/progress.h"
