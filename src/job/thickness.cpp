#include "job/thickness.h"

#include "base/timer.h"
#include "field/thickness_map.h"

namespace povmesh::job {

Status thickness(TriMesh& mesh, const ThicknessJob& job, Progress progress, ThicknessDone& done) {
    // The values of the search for flaws go from 48 to 100.
    ProgressObserver scaled = [&](std::uint32_t percent) { progress.set(50 + (percent - 48) / 5); };
    const Findings findings =
        examine(mesh, Progress(nullptr, &scaled), SelfIntersectionSearch::UpToQuickFaces);
    progress.set(60);
    const Timer timer;
    static_cast<ThinMeasurement&>(done) = measure_thin(mesh, findings, job.options);
    done.seconds = timer.seconds();
    if (!done.report.status.ok()) return done.report.status;
    if (done.report.walls.values.empty()) {
        return {StatusCode::Nothing, "no triangle has an area; there is nothing to measure"};
    }
    progress.set(75);
    if (job.paints)
        done.painted = thickness_map(done.measured(mesh), done.report.walls, wall_colour);
    return {};
}

}  // namespace povmesh::job
