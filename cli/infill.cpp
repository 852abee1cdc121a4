// povmesh infill: takes material out of a solid model in closed cells.
#include "job/infill.h"
#include "cli/commands.h"
#include "cli/shared_options.h"

#include <cmath>
#include <string>

#include "cli/change.h"
#include "job/numbers.h"

namespace povmesh::cli {
namespace {

std::string density_text(const InfillReport& report, double wanted) {
    std::string reached = human_number(std::round(report.density * 1e4) / 1e4);
    if (report.density <= wanted) return reached;
    return reached + ", with all cells taken; " + human_number(wanted) + " cannot be reached";
}

ChangeReport report_of(const job::InfillDone& done, double wanted) {
    const InfillReport& filled = done.report;
    ChangeReport report;
    static_cast<Remarks&>(report) = done;
    report.rows = {
        {"voxel size", human_number(filled.voxel_size)},
        {"cells", with_separators(filled.taken) + " of " + with_separators(filled.cells)},
        {"cells volume", human_number(filled.cells_volume)},
        {"density", density_text(filled, wanted)},
        {"material saved", human_number(std::round(done.saved_percent * 100) / 100) + " %"},
        {"smallest skin", human_number(done.smallest_skin)}};
    report.json = {{"voxel_size", filled.voxel_size},    {"cells", filled.taken},
                   {"cells_made", filled.cells},         {"cells_volume", filled.cells_volume},
                   {"density", filled.density},          {"saved_percent", done.saved_percent},
                   {"smallest_skin", done.smallest_skin}};
    report.seconds = done.seconds;
    return report;
}

int run_infill(const Arguments& arguments, Console& console) {
    const job::InfillJob options{.skin = arguments.number("--skin"),
                                 .density = arguments.number("--density"),
                                 .cells_only = arguments.has("--cells-only")};
    return run_change(arguments, console, [&](TriMesh& mesh, Progress progress) {
        job::InfillDone done;
        const Status status = job::infill(mesh, options, progress, done);
        if (status.ok()) return report_of(done, options.density);
        ChangeReport report;
        report.failure = status.text();
        return report;
    });
}

}  // namespace

OperationSpec infill_operation() {
    return {
        .name = "infill",
        .summary = "Take material out of a solid model in closed cells",
        .description =
            "Fills the inside of the model, below a skin, with cells that have walls between them, "
            "and writes the model with the largest of them taken out, as many as the density "
            "allows. Works on voxels of 0.25 to 1 unit; walls are two voxels thick.",
        .positionals = {kModelFile},
        .options = {model_output(),
                    {.name = "--skin",
                     .type = ValueType::Number,
                     .placeholder = "THICKNESS",
                     .unit = "units of the file",
                     .low = 0,
                     .high = kNoLimit,
                     .is_required = true,
                     .help = "Thickness of the skin above the cells"},
                    {.name = "--density",
                     .type = ValueType::Number,
                     .placeholder = "SHARE",
                     .low = 0,
                     .high = 1,
                     .is_required = true,
                     .help = "Share of what lies below the skin that stays material"},
                    {.name = "--cells-only",
                     .help = "Write the surfaces of the cells alone, their outside out"},
                    json_object()},
        .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
        .run = run_infill,
    };
}

}  // namespace povmesh::cli
