// povmesh wrap: makes a solid of any triangles.
#include "job/wrap.h"
#include "cli/commands.h"
#include "cli/shared_options.h"

#include <string>

#include "cli/change.h"
#include "cli/solid_surface.h"
#include "job/numbers.h"

namespace povmesh::cli {
namespace {

WrapOptions options_of(const Arguments& arguments) {
    WrapOptions options;
    if (arguments.has("--tolerance")) options.tolerance = arguments.number("--tolerance");
    if (arguments.has("--gap")) options.gap = arguments.number("--gap");
    if (arguments.has("--cell")) options.cell = arguments.number("--cell");
    options.keeps_thin = arguments.text("--thin") == "keep";
    options.all_triangles = arguments.has("--all-triangles");
    return options;
}

ChangeReport change(TriMesh& mesh, const WrapOptions& options, Progress progress) {
    job::WrapDone done;
    ChangeReport report;
    const Status status = job::wrap(mesh, {options}, progress, done);
    static_cast<Remarks&>(report) = done;
    report.seconds = done.seconds;
    if (!status.ok()) {
        report.failure = status.text();
        if (status.code() == StatusCode::BadOption) report.failed_with = Usage;
        return report;
    }
    const WrapReport& wrapped = done.report;
    report.rows = {{"cell", human_number(wrapped.cell)},
                   {"tolerance", human_number(wrapped.tolerance)},
                   {"gap", human_number(wrapped.gap)}};
    report.json = {{"cell", wrapped.cell}, {"tolerance", wrapped.tolerance}, {"gap", wrapped.gap}};
    add_labels(wrapped.label, report);
    const double there = done.distance.there.greatest;
    const double back = done.distance.back.greatest;
    report.rows.emplace_back("model to result", "at most " + human_number(there));
    report.rows.emplace_back("result to model", "at most " + human_number(back));
    report.json["distance"] = {{"to_result", there}, {"to_model", back}};
    return report;
}

int run_wrap(const Arguments& arguments, Console& console) {
    if (!are_above_zero(arguments, {"--tolerance", "--cell"}, "wrap", console)) return Usage;
    return run_change(arguments, console, [&](TriMesh& mesh, Progress progress) {
        return change(mesh, options_of(arguments), progress);
    });
}

}  // namespace

OperationSpec wrap_operation() {
    return {
        .name = "wrap",
        .summary = "Make a solid of any triangles",
        .description =
            "Makes a closed surface without crossings around a model of any kind: open, crossing, "
            "doubled, turned inside out. It follows the faces themselves, with their edges, and is "
            "new only where faces are missing or not thick. Texture coordinates are not "
            "kept. Prints how far the two surfaces are apart.",
        .positionals = {kModelFile},
        .options = {model_output(),
                    {.name = "--tolerance",
                     .type = ValueType::Number,
                     .placeholder = "T",
                     .unit = "units of the file, else 1/400 of the diagonal",
                     .low = 0,
                     .high = kNoLimit,
                     .help = "How far the result may be from the model, above 0"},
                    {.name = "--gap",
                     .type = ValueType::Number,
                     .placeholder = "G",
                     .unit = "units of the file",
                     .low = 0,
                     .high = kNoLimit,
                     .help = "Close openings up to this width, and none that is wider; without it "
                             "those of open models: cracks up to twice the tolerance, and holes "
                             "of any width where the faces agree on their outside"},
                    {.name = "--thin",
                     .type = ValueType::Choice,
                     .default_value = "keep",
                     .choices = {"keep", "drop"},
                     .help = "Make sheets and walls thinner than a cell about two cells thick, or "
                             "leave them out"},
                    cell_option("units of the file, else half the tolerance"),
                    all_triangles_option(),
                    json_object()},
        .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
        .run = run_wrap,
    };
}

}  // namespace povmesh::cli
