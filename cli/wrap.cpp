// povmesh wrap: makes a solid of any triangles.
#include "field/wrap.h"
#include "cli/commands.h"
#include "cli/shared_options.h"

#include <cmath>
#include <string>

#include "base/timer.h"
#include "cli/change.h"
#include "cli/numbers.h"
#include "cli/solid_surface.h"
#include "mesh/compact.h"
#include "spatial/nearest_face.h"
#include "spatial/surface_distance.h"

namespace povmesh::cli {
namespace {

// The vertex of the result that is farthest from the model.
Vec3f farthest_vertex(const TriMesh& model, const TriMesh& result) {
    const NearestFace faces(model);
    Vec3f place{};
    double farthest = -1;
    for (const Vertex& vertex : result.vertices) {
        const NearestPoint nearest = faces.find(to_double(vertex.position()));
        if (nearest.is_found() && nearest.squared_distance > farthest) {
            farthest = nearest.squared_distance;
            place = vertex.position();
        }
    }
    return place;
}

void add_distances(const TriMesh& model, const TriMesh& result, const WrapReport& wrapped,
                   ChangeReport& report) {
    const SurfaceDistance distance = surface_distance(model, result);
    report.rows.emplace_back("model to result", "at most " + human_number(distance.there.greatest));
    report.rows.emplace_back("result to model", "at most " + human_number(distance.back.greatest));
    report.json["distance"] = {{"to_result", distance.there.greatest},
                               {"to_model", distance.back.greatest}};
    const bool has_bridges = wrapped.label.bridge_edges > 0;
    if (distance.back.greatest > wrapped.tolerance && !has_bridges) {
        report.warnings.push_back("the result is " + human_number(distance.back.greatest) +
                                  " from the model, farther than the tolerance, " +
                                  place_text(farthest_vertex(model, result)));
    }
    const bool is_covered = wrapped.label.buried_area > 0 || has_bridges;
    if (distance.there.greatest > wrapped.tolerance && !is_covered) {
        report.warnings.push_back("parts of the model are " +
                                  human_number(distance.there.greatest) +
                                  " from the result, farther than the tolerance: details narrower "
                                  "than two cells; take a smaller --tolerance");
    }
}

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
    ChangeReport report;
    warn_of_lost_attributes(mesh, report);
    TriMesh source = mesh;
    RunLog log;
    ProgressObserver scaled = [&](std::uint32_t percent) { progress.set(50 + percent / 4); };
    RunContext run{Progress(nullptr, &scaled), log};
    const Timer timer;
    WrapReport wrapped;
    const Status status = wrap(mesh, options, run, wrapped);
    report.seconds = timer.seconds();
    if (!status.ok()) {
        report.failure = status.text();
        if (status.code() == StatusCode::BadOption) report.failed_with = Usage;
        return report;
    }
    compact(mesh);
    report.rows = {{"cell", human_number(wrapped.cell)},
                   {"tolerance", human_number(wrapped.tolerance)},
                   {"gap", human_number(wrapped.gap)}};
    report.json = {{"cell", wrapped.cell}, {"tolerance", wrapped.tolerance}, {"gap", wrapped.gap}};
    add_labels(wrapped.label, report);
    add_distances(source, mesh, wrapped, report);
    check_solid(mesh, report);
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
            "new only where faces are missing or not thick. Colours, groups and texture "
            "coordinates are not kept. Prints how far the two surfaces are apart.",
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
