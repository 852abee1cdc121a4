#include "job/offset.h"

#include "base/timer.h"
#include "job/model_file.h"
#include "job/solid_surface.h"
#include "mesh/compact.h"
#include "remesh/carry_attributes.h"

namespace povmesh::job {

Status offset(TriMesh& mesh, const OffsetJob& job, Progress progress, OffsetDone& done) {
    warn_of_lost_textures(mesh, done);
    const TriMesh source = has_colours(mesh) ? mesh : TriMesh{};
    RunLog log;
    ProgressObserver scaled = [&](std::uint32_t percent) { progress.set(50 + percent / 4); };
    RunContext run{Progress(nullptr, &scaled), log};
    const Timer timer;
    Status status = povmesh::offset(mesh, job.distance, job.options, run, done.report);
    done.seconds = timer.seconds();
    if (!status.ok()) return status;
    compact(mesh);
    carry_colours(source, mesh);
    check_solid(mesh, done);
    return status;
}

}  // namespace povmesh::job
