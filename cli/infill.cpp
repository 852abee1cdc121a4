// povmesh infill: takes material out of a solid model in closed cells.
#include "design/infill.h"
#include "cli/commands.h"
#include "cli/shared_options.h"

#include <cmath>
#include <string>

#include "base/timer.h"
#include "cli/cavity.h"
#include "cli/change.h"
#include "cli/numbers.h"
#include "design/cell_pieces.h"
#include "mesh/volume.h"

namespace povmesh::cli {
namespace {

// Empty when there is a result.
std::string failure_of(const InfillReport& report, double skin, TriMesh& model) {
    const std::string size = human_number(report.voxel_size);
    const double least = kThinnestSkin * report.voxel_size;
    if (skin < least) {
        return "a skin of " + human_number(skin) + " is too thin for the cubes of " + size +
               " that cells of this model are made of; take at least " + human_number(least);
    }
    if (report.taken > 0) return "";
    return "no cell fits under a skin of " + human_number(skin) +
           ": one needs room for about eight cubes of " + size + " each way; " +
           cure_of(model, report.voxel_size, "take a thinner skin");
}

std::string density_text(const InfillReport& report, double wanted) {
    std::string reached = human_number(std::round(report.density * 1e4) / 1e4);
    if (report.density <= wanted) return reached;
    return reached + ", with all cells taken; " + human_number(wanted) + " cannot be reached";
}

ChangeReport report_of(const InfillReport& filled, double wanted, double model_volume,
                       double skin) {
    const double saved = filled.cells_volume / model_volume * 100;
    ChangeReport report;
    report.rows = {
        {"voxel size", human_number(filled.voxel_size)},
        {"cells", with_separators(filled.taken) + " of " + with_separators(filled.cells)},
        {"cells volume", human_number(filled.cells_volume)},
        {"density", density_text(filled, wanted)},
        {"material saved", human_number(std::round(saved * 100) / 100) + " %"},
        {"smallest skin", human_number(skin)}};
    report.json = {{"voxel_size", filled.voxel_size},
                   {"cells", filled.taken},
                   {"cells_made", filled.cells},
                   {"cells_volume", filled.cells_volume},
                   {"density", filled.density},
                   {"saved_percent", saved},
                   {"smallest_skin", skin}};
    return report;
}

int run_infill(const Arguments& arguments, Console& console) {
    InfillOptions options;
    options.skin = arguments.number("--skin");
    options.density = arguments.number("--density");
    return run_change(arguments, console, [&](TriMesh& mesh, Progress progress) {
        const Timer timer;
        ChangeReport report;
        const double model_volume = volume(mesh);
        if (!(model_volume > 0)) {
            report.failure = "the model encloses no volume, or is inside out; repair it first";
            return report;
        }
        RunLog log;
        // The values of the operation itself go from 30 to 70.
        ProgressObserver scaled = [&](std::uint32_t percent) { progress.set(40 + percent / 2); };
        RunContext run{Progress(nullptr, &scaled), log};
        TriMesh cells = mesh;
        const InfillReport filled = infill_to_density(cells, options, run);
        const double seconds = timer.seconds();
        report.failure = failure_of(filled, options.skin, mesh);
        if (!report.failure.empty()) return report;
        report = report_of(filled, options.density, model_volume, smallest_wall(mesh, cells));
        report.seconds = seconds;
        if (arguments.has("--cells-only")) {
            mesh = std::move(cells);
        } else {
            add_cavities(mesh, cells);
        }
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
