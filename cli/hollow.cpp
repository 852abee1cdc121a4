// povmesh hollow: makes a shell of a solid model.
#include "job/hollow.h"
#include "cli/commands.h"
#include "cli/shared_options.h"

#include <cmath>
#include <string>

#include "cli/change.h"
#include "cli/drains.h"
#include "job/numbers.h"

namespace povmesh::cli {
namespace {

std::string saved_text(double percent) {
    return human_number(std::round(percent * 100) / 100) + " %";
}

ChangeReport report_of(const job::HollowDone& done, const job::HollowJob& job) {
    ChangeReport report;
    static_cast<Remarks&>(report) = done;
    report.seconds = done.seconds;
    report.rows = {{job.is_exact ? "cell" : "voxel size", human_number(done.voxel_size)},
                   {"cavity volume", human_number(done.cavity_volume)},
                   {"material saved", saved_text(done.saved_percent)},
                   {"smallest wall", human_number(done.smallest_wall)}};
    report.json = {{job.is_exact ? "cell" : "voxel_size", done.voxel_size},
                   {"cavity_volume", done.cavity_volume},
                   {"saved_percent", done.saved_percent},
                   {"smallest_wall", done.smallest_wall}};
    if (job.is_exact) {
        report.rows.emplace_back("mean wall", human_number(done.mean_wall));
        report.json["mean_wall"] = done.mean_wall;
    } else {
        report.rows.insert(report.rows.begin() + 1, {"layers", std::to_string(done.layers)});
        report.json = {{"voxel_size", done.voxel_size},
                       {"layers", done.layers},
                       {"cavity_volume", done.cavity_volume},
                       {"saved_percent", done.saved_percent},
                       {"smallest_wall", done.smallest_wall}};
    }
    if (!job.drains.empty()) {
        add_drain_rows(job.drains.size(), done.closed_cavities, done.cavities, report);
    }
    return report;
}

int run_hollow(const Arguments& arguments, Console& console) {
    if (arguments.has("--drain") && arguments.has("--cavity-only")) {
        console.error(
            "--drain cuts holes through the wall, which --cavity-only leaves out; take one of "
            "them; "
            "see 'povmesh hollow --help'");
        return Usage;
    }
    const job::HollowJob options{
        .thickness = arguments.number("--thickness"),
        .is_exact = arguments.text("--wall") != "voxel",
        .cavity_only = arguments.has("--cavity-only"),
        .drains = drains_of(arguments),
        .drain_name = [&](std::size_t drain) { return arguments.all("--drain")[drain]; }};
    return run_change(arguments, console, [&](TriMesh& mesh, Progress progress) {
        job::HollowDone done;
        const Status status = job::hollow(mesh, options, progress, done);
        ChangeReport report;
        if (status.ok()) report = report_of(done, options);
        report.seconds = done.seconds;
        report.failure = status.text();
        return report;
    });
}

}  // namespace

OperationSpec hollow_operation() {
    return {
        .name = "hollow",
        .summary = "Make a shell of a solid model",
        .description =
            "Finds the cavity that leaves a wall of the thickness, and writes the model with it. "
            "The wall is measured, and at least 0.98 of the thickness everywhere.",
        .positionals = {kModelFile},
        .options =
            {model_output(),
             {.name = "--thickness",
              .type = ValueType::Number,
              .placeholder = "THICKNESS",
              .unit = "units of the file",
              .low = 0,
              .high = kNoLimit,
              .is_required = true,
              .help = "Thickness of the wall"},
             {.name = "--wall",
              .type = ValueType::Choice,
              .placeholder = "KIND",
              .default_value = "exact",
              .choices = {"exact", "voxel"},
              .help =
                  "A cavity at an exact distance, or one made of voxels of 0.4 to 2 units, whose "
                  "wall is right within about 1.4 of them"},
             drain_option(),
             {.name = "--cavity-only",
              .help = "Write the surface of the cavity alone, its outside out"},
             json_object()},
        .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
        .run = run_hollow,
    };
}

}  // namespace povmesh::cli
