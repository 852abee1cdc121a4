// povmesh offset: grows or shrinks a model by a distance.
#include "job/offset.h"
#include "cli/commands.h"
#include "cli/shared_options.h"

#include <string>

#include "cli/change.h"
#include "cli/solid_surface.h"
#include "job/numbers.h"

namespace povmesh::cli {
namespace {

ChangeReport change(TriMesh& mesh, const job::OffsetJob& job, Progress progress) {
    job::OffsetDone done;
    ChangeReport report;
    const Status status = job::offset(mesh, job, progress, done);
    static_cast<Remarks&>(report) = done;
    report.seconds = done.seconds;
    if (!status.ok()) {
        report.failure = status.text();
        if (status.code() == StatusCode::BadOption) report.failed_with = Usage;
        return report;
    }
    report.rows = {{"distance", human_number(job.distance)},
                   {"cell", human_number(done.report.cell)}};
    report.json = {{"cell", done.report.cell}, {"distance", job.distance}};
    add_labels(done.report.label, report);
    return report;
}

int run_offset(const Arguments& arguments, Console& console) {
    const double distance = arguments.number("--distance");
    if (distance == 0) {
        console.error("offset: --distance must not be 0; see 'povmesh offset --help'");
        return Usage;
    }
    if (!are_above_zero(arguments, {"--cell"}, "offset", console)) return Usage;
    OffsetOptions options;
    if (arguments.has("--cell")) options.cell = arguments.number("--cell");
    options.all_triangles = arguments.has("--all-triangles");
    if (arguments.text("--corners") == "sharp") options.corners = OffsetCorners::Sharp;
    return run_change(arguments, console, [&](TriMesh& mesh, Progress progress) {
        return change(mesh, {distance, options}, progress);
    });
}

}  // namespace

OperationSpec offset_operation() {
    return {
        .name = "offset",
        .summary = "Grow or shrink a model by a distance",
        .description =
            "Writes the surface at a distance from that of the model: around it, or within it "
            "when the distance is below 0. The result is closed and does not cross itself; a "
            "flawed model is taken for the solid that wrap would make. Texture coordinates are not "
            "kept.",
        .positionals = {kModelFile},
        .options = {model_output(),
                    {.name = "--distance",
                     .type = ValueType::Number,
                     .placeholder = "D",
                     .unit = "units of the file",
                     .low = -1e9,
                     .high = 1e9,
                     .is_required = true,
                     .help = "Distance from the surface; below 0 the model shrinks"},
                    {.name = "--corners",
                     .type = ValueType::Choice,
                     .default_value = "round",
                     .choices = {"round", "sharp"},
                     .help = "Round: every point lies at the distance. Sharp: edges and corners "
                             "that would become round stay, up to twice the distance away"},
                    cell_option("units of the file, else a fifth of the distance, between 1/200 "
                                "and 1/1500 of the longest side"),
                    all_triangles_option(),
                    json_object()},
        .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
        .run = run_offset,
    };
}

}  // namespace povmesh::cli
