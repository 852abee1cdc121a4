#include "job/support.h"

#include <algorithm>
#include <string>

#include "base/timer.h"
#include "job/numbers.h"
#include "mesh/bounds.h"
#include "orient/orientation.h"

namespace povmesh::job {

Status support(const TriMesh& mesh, const SupportJob& job, Progress progress, SupportDone& done) {
    const Timer timer;
    const Box3f box = finite_bounds(mesh);
    done.plate = job.plate.value_or(box.is_empty() ? 0.0 : double{box.low.z});
    if (job.measures_solid) done.solid = measure_support_volume(mesh, {0, 0, 1});
    if (job.columns.empty()) {
        RunLog log;
        RunContext run{{}, log};
        ColumnOptions options;
        options.spacing = job.spacing;
        options.angle = job.angle;
        options.plate = done.plate;
        Status found = find_columns(mesh, options, run, done.columns);
        if (!found.ok()) return found;
    } else {
        done.columns = job.columns;
    }
    progress.set(70);
    add_tubes(done.tubes, done.columns, column_radius(job.spacing));
    done.seconds = timer.seconds();
    if (done.columns.empty()) {
        return {StatusCode::Nothing,
                "nothing hangs over that leans out from upright by more than " +
                    human_number(job.angle) +
                    " degrees, is 5 units above what is below and about " +
                    human_number(job.spacing) + " wide; take a smaller --angle or --spacing"};
    }
    for (const Column& column : done.columns) {
        done.longest = std::max(done.longest, double{column.top.z} - double{column.bottom.z});
        done.on_plate += column.bottom.z == static_cast<float>(done.plate) ? 1 : 0;
    }
    return {};
}

}  // namespace povmesh::job
