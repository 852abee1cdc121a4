#include "job/revise.h"

#include "base/timer.h"
#include "job/new_faults.h"

namespace povmesh::job {
namespace {

// A change of volume beyond this share is told.
constexpr double kNotableVolume = 0.01;

}  // namespace

Status revise(TriMesh& mesh, const ReviseJob& options, Progress progress, ReviseDone& done) {
    TriMesh source = mesh;
    const Timer timer;
    done.report = revise_triangles(mesh, options.options);
    done.seconds = timer.seconds();
    progress.set(75);
    if (done.report.collapses + done.report.flips + done.report.splits > 0) {
        add_faults(source, mesh, kNotableVolume, done);
    }
    return {};
}

}  // namespace povmesh::job
