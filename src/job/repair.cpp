#include "job/repair.h"

#include <cmath>

#include "job/numbers.h"

namespace povmesh::job {
namespace {

RepairOptions options_of(const RepairJob& job) {
    RepairOptions options = tool_repair_options();
    options.keep_cavities = !job.outward;
    options.tiny_volume = job.drop_tiny;
    // Smaller than a cube in volume and in area; a large sheet without volume stays.
    const double side = std::cbrt(job.drop_tiny);
    options.tiny_area = 6 * side * side;
    return options;
}

}  // namespace

Status repair(TriMesh& mesh, const RepairJob& options, Progress progress, RepairDone& done) {
    done.before = examine(mesh, {}, SelfIntersectionSearch::UpToQuickFaces);
    progress.set(60);
    done.mending =
        mend(mesh, options_of(options), done.before, SelfIntersectionSearch::UpToQuickFaces);
    const std::string gone = wall_warning(done.mending.report);
    if (!gone.empty()) done.warnings.push_back(gone);
    if (live_face_count(mesh) != 0) return {};
    if (done.mending.report.dropped_shells == 0) {
        return {StatusCode::Nothing,
                "every triangle has a coordinate that is infinite or no number; nothing is "
                "written"};
    }
    return {StatusCode::Nothing, "every shell is smaller than a cube of the volume " +
                                     human_number(options.drop_tiny) +
                                     "; nothing is written; give a smaller volume"};
}

}  // namespace povmesh::job
