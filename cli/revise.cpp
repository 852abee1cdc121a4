// povmesh revise: mends triangles of bad shape, and tells how many were and are left.
#include "job/revise.h"
#include "cli/commands.h"
#include "cli/shared_options.h"

#include <string>

#include "cli/change.h"
#include "cli/distance.h"
#include "cli/triangle_quality.h"
#include "job/numbers.h"

namespace povmesh::cli {
namespace {

std::vector<Row> all_rows(const TriangleQuality& quality) {
    std::vector<Row> rows = shape_rows(quality);
    for (Row& row : quality_rows(quality)) rows.push_back(std::move(row));
    return rows;
}

Json all_json(const TriangleQuality& quality) {
    Json json = shape_json(quality);
    json.update(quality_json(quality));
    return json;
}

ChangeReport change(TriMesh& mesh, Progress progress) {
    const TriMesh source = mesh;
    const TriangleQuality before = triangle_quality(mesh);
    ChangeReport table;
    job::ReviseDone done;
    table.failure = job::revise(mesh, {}, progress, done).text();
    static_cast<Remarks&>(table) = done;
    table.seconds = done.seconds;
    const ReviseReport& report = done.report;
    const TriangleQuality after = triangle_quality(mesh);
    table.before = all_rows(before);
    table.after = all_rows(after);
    table.json_before = all_json(before);
    table.json_after = all_json(after);
    table.rows = {{"edges collapsed", with_separators(report.collapses)},
                  {"edges turned", with_separators(report.flips)},
                  {"edges split", with_separators(report.splits)}};
    table.json = {
        {"collapsed", report.collapses}, {"turned", report.flips}, {"split", report.splits}};
    add_distance(source, mesh, table);
    return table;
}

int run_revise(const Arguments& arguments, Console& console) {
    return run_change(arguments, console, change);
}

}  // namespace

OperationSpec revise_operation() {
    return {
        .name = "revise",
        .summary = "Mend triangles of bad shape and leave the others alone",
        .description =
            "Collapses needles, whose one edge is under 1/20 of the others, and turns or splits "
            "away caps, which have an angle above 170 degrees. The surface moves by at most 1/1000 "
            "of the model's diagonal. Reads the result back and prints how many were and are left.",
        .positionals = {kModelFile},
        .options = {model_output(), json_object()},
        .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
        .run = run_revise,
    };
}

}  // namespace povmesh::cli
