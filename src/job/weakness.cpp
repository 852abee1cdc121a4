#include "job/weakness.h"

#include "mesh/shells.h"
#include "remesh/parallel_reduce.h"
#include "remesh/reduce.h"

namespace povmesh::job {
namespace {

// As of the function for hosts: the sections are the same.
constexpr double kKept = 0.5;
constexpr double kLeastKept = 0.05;

}  // namespace

Status weakness(TriMesh& mesh, const WeaknessJob& job, Progress progress, WeaknessDone& done) {
    RunLog log;
    RunContext run{{}, log};
    reduce_for_weakness(mesh, [&](TriMesh& reduced) {
        povmesh::reduce(reduced, kReduceScans);
        reduce_parallel(reduced, {.keep = kKept, .least_keep = kLeastKept}, run);
    });
    progress.set(60);
    label_shells(mesh);
    done.sections =
        detect_weakness(mesh, job.all ? SectionMode::All : SectionMode::LocalMinima, run);
    return {};
}

}  // namespace povmesh::job
