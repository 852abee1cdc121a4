// povmesh reduce: makes a model of fewer triangles, and tells what ended that.
#include "cli/commands.h"
#include "cli/shared_options.h"

#include <cmath>
#include <string>

#include "cli/change.h"
#include "cli/distance.h"
#include "job/numbers.h"
#include "job/reduce.h"

namespace povmesh::cli {
namespace {

// What the target's format does not keep must not stand in the way.
void drop_attributes(TriMesh& mesh) {
    for (Face& face : mesh.faces) {
        face.colour.fill(255);
        face.label = -1;
        face.uv.fill(-1);
    }
    mesh.texture_coordinates.clear();
}

job::ReduceJob job_of(const Arguments& arguments) {
    job::ReduceJob options;
    options.automatic = arguments.has("--auto");
    if (arguments.has("--keep")) {
        options.keep = arguments.number("--keep");
    } else if (arguments.has("--faces")) {
        options.faces = arguments.number("--faces");
    }
    return options;
}

ChangeReport reduce_and_measure(TriMesh& mesh, const Arguments& arguments, Progress progress) {
    TriMesh source;
    if (kind_of(arguments.text("--output")) == FileKind::Stl) drop_attributes(mesh);
    if (arguments.has("--measure")) source = mesh;
    job::ReduceDone done;
    ChangeReport change;
    change.failure = job::reduce(mesh, job_of(arguments), progress, done).text();
    static_cast<Remarks&>(change) = done;
    change.seconds = done.seconds;
    change.rows = {{"kept", human_number(std::round(done.kept * 1e4) / 100) + " %"},
                   {"aimed at", counted(done.checked.reduction.faces_aimed, "triangle")},
                   {"ended by", done.end_text}};
    change.json["aimed"] = done.checked.reduction.faces_aimed;
    change.json["ended_by"] = done.end_key;
    for (const job::ReductionRule& rule : done.rules) {
        change.json["turned_down"][std::string(rule.key)] = rule.count;
    }
    if (arguments.has("--measure")) add_distance(source, mesh, change);
    return change;
}

// Empty when the options say how far to reduce.
std::string wrong_options(const Arguments& arguments) {
    int given = 0;
    for (const char* option : {"--keep", "--faces", "--auto"})
        given += arguments.has(option) ? 1 : 0;
    if (given != 1) return "reduce: give one of --keep, --faces and --auto";
    if (arguments.has("--faces")) {
        const double count = arguments.number("--faces");
        if (count != std::floor(count)) return "reduce: --faces takes a whole number";
    }
    return {};
}

int run_reduce(const Arguments& arguments, Console& console) {
    if (const std::string wrong = wrong_options(arguments); !wrong.empty()) {
        console.error(wrong + "; see 'povmesh reduce --help'");
        return Usage;
    }
    return run_change(arguments, console, [&](TriMesh& mesh, Progress progress) {
        return reduce_and_measure(mesh, arguments, progress);
    });
}

}  // namespace

OperationSpec reduce_operation() {
    return {
        .name = "reduce",
        .summary = "Make a model of fewer triangles",
        .description =
            "Collapses edges where the surface changes least. Open borders, and those of colours "
            "and of texture coordinates, stay where they run. Checks the result: no faces cross "
            "that did not. Give one of --keep, --faces and "
            "--auto. Reads the result back and prints what ended the reduction.",
        .positionals = {kModelFile},
        .options = {model_output(),
                    {.name = "--keep",
                     .type = ValueType::Number,
                     .placeholder = "SHARE",
                     .low = 0,
                     .high = 1,
                     .help = "Share of the triangles of each shell that shall stay"},
                    {.name = "--faces",
                     .type = ValueType::Number,
                     .placeholder = "COUNT",
                     .unit = "triangles",
                     .low = 1,
                     .high = kNoLimit,
                     .help = "How many shall stay, every shell keeping the same share"},
                    {.name = "--auto",
                     .help = "Reduce shells of more than 100,000 triangles to these and 30 % of "
                             "the rest, turning no face by more than 9.9 degrees"},
                    {.name = "--measure", .help = "Print how far the result is from the model"},
                    json_object()},
        .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
        .run = run_reduce,
    };
}

}  // namespace povmesh::cli
