#include "job/remesh.h"

#include "base/timer.h"
#include "job/findings.h"
#include "job/new_faults.h"
#include "job/numbers.h"
#include "mesh/edge_mates.h"
#include "remesh/agreeing_windings.h"

namespace povmesh::job {
namespace {

// A change of volume beyond this share is told: details smaller than the edge are lost.
constexpr double kNotableVolume = 0.01;

void tell_changes(const RemeshReport& report, Remarks& remarks) {
    if (report.turned_faces != 0) {
        remarks.warnings.push_back(counted(report.turned_faces, "triangle") +
                                   " wound against their neighbours turned over, one " +
                                   place_text(report.turned_at));
    }
    if (report.kept_faces == 0) return;
    if (report.is_done) {
        remarks.warnings.push_back(counted(report.kept_faces, "triangle") +
                                   " left as they were, where new ones would cross, one " +
                                   place_text(report.kept_at));
    } else {
        remarks.doubts.push_back("nothing was changed, because new triangles would cross " +
                                 place_text(report.kept_at) + "; try a shorter --edge");
    }
}

}  // namespace

Status remesh(TriMesh& mesh, const RemeshJob& job, Progress progress, RemeshDone& done) {
    done.source = mesh;
    RunLog log;
    RunContext run{{}, log};
    RemeshOptions options;
    options.edge_length = job.edge_length;
    options.face_lengths = job.lengths;
    const ProgressObserver scaled = [&](std::uint32_t percent) { progress.set(50 + percent / 4); };
    options.progress = Progress(nullptr, &scaled);
    const Timer timer;
    done.report = povmesh::remesh(mesh, options, run);
    done.seconds = timer.seconds();
    if (!done.report.is_done && done.report.kept_faces == 0) {
        return {StatusCode::Nothing, "a coordinate is not finite; take these triangles out first"};
    }
    tell_changes(done.report, done);
    // The volume of faces that disagree tells nothing.
    if (done.report.turned_faces != 0) make_windings_agree(done.source, EdgeMates(done.source));
    add_faults(done.source, mesh, kNotableVolume, done);
    return {};
}

}  // namespace povmesh::job
