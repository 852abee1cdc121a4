// povmesh reduce: makes a model of fewer triangles, and tells what ended that.
#include "cli/commands.h"
#include "cli/shared_options.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "base/timer.h"
#include "cli/change.h"
#include "cli/distance.h"
#include "cli/findings_report.h"
#include "cli/new_faults.h"
#include "cli/numbers.h"
#include "mesh/volume.h"
#include "remesh/checked_reduce.h"
#include "remesh/reduce.h"

namespace povmesh::cli {
namespace {

// A change of volume beyond this share is told.
constexpr double kNotableVolume = 0.1;

// A rule that kept edges from being collapsed, and how often.
struct Rule {
    std::size_t count;
    std::string_view key;  // in JSON
    std::string text;
};

std::vector<Rule> rules(const ReduceReport& report, bool is_automatic) {
    std::vector<Rule> all = {
        {report.normal_limit, "normal_limit",
         is_automatic ? "would turn a face by more than 9.9 degrees"
                      : "would turn a face by 90 degrees or more"},
        {report.link, "link", "would pinch the surface"},
    };
    if (is_automatic) {
        all.push_back({report.boundary, "boundary", "have an end on a border"});
        all.push_back({report.valence, "valence", "would join too many triangles at a vertex"});
        all.push_back(
            {report.too_few_faces, "too_few_faces", "have an end with fewer than 3 faces"});
    } else {
        all.push_back({report.movement, "movement",
                       "would move the surface by more than a tenth of its diagonal"});
        all.push_back({report.slivers, "sliver", "would make a degenerate triangle"});
        all.push_back({report.held_edges, "boundary",
                       "have an end where other than two triangles meet, or that was held"});
        all.push_back({report.seam_edges, "seam", "lie between borders or seams"});
    }
    std::stable_sort(all.begin(), all.end(),
                     [](const Rule& a, const Rule& b) { return a.count > b.count; });
    return all;
}

// Which rule ended the reduction, in words and as a key.
std::pair<std::string, std::string> end_of(const CheckedReduceReport& checked, bool is_automatic) {
    const ReduceReport& report = checked.reduction;
    if (report.faces_aimed >= report.faces_before) {
        return {is_automatic ? "nothing to do: no shell has more than 100,000 triangles"
                             : "nothing to do: all triangles may stay",
                "nothing_to_do"};
    }
    if (report.is_reached) return {"target reached", "target"};
    if (checked.is_eased) {
        return {"with fewer triangles the surface would cross itself, " +
                    place_text(checked.crossing_place),
                "crossing"};
    }
    std::string text;
    for (const Rule& rule : rules(report, is_automatic)) {
        if (rule.count == 0) continue;
        text += text.empty() ? "no edge left that may go: " : ", ";
        text += with_separators(rule.count) + " " + rule.text;
    }
    if (text.empty()) return {"no edge left that may go: no shape of fewer triangles", "shape"};
    return {text, std::string(rules(report, is_automatic).front().key)};
}

CheckedReduceReport reduce_mesh(TriMesh& mesh, const Arguments& arguments) {
    if (arguments.has("--auto")) {
        TriMesh source = mesh;
        CheckedReduceReport report;
        report.reduction = reduce(mesh, kReduceScans);
        if (report.reduction.faces_after != report.reduction.faces_before) {
            report.faults = find_new_faults(source, mesh);
        }
        return report;
    }
    double target = 0;
    if (arguments.has("--keep")) {
        target = arguments.number("--keep");
    } else {
        target = arguments.number("--faces") / static_cast<double>(live_face_count(mesh));
    }
    RunLog log;
    RunContext run{{}, log};
    return reduce_checked(mesh, target, run);
}

// What the target's format does not keep must not stand in the way.
void drop_attributes(TriMesh& mesh) {
    for (Face& face : mesh.faces) {
        face.colour.fill(255);
        face.label = -1;
        face.uv.fill(-1);
    }
    mesh.texture_coordinates.clear();
}

ChangeReport reduce_and_measure(TriMesh& mesh, const Arguments& arguments) {
    TriMesh source;
    if (kind_of(arguments.text("--output")) == FileKind::Stl) drop_attributes(mesh);
    if (arguments.has("--measure")) source = mesh;
    ChangeReport change;
    const std::size_t count = live_face_count(mesh);
    const double volume_before = volume(mesh);
    const Timer timer;
    const CheckedReduceReport checked = reduce_mesh(mesh, arguments);
    const ReduceReport& report = checked.reduction;
    change.seconds = timer.seconds();
    add_faults(checked.faults, volume_before, volume(mesh), kNotableVolume, change);

    const bool is_automatic = arguments.has("--auto");
    const auto [text, key] = end_of(checked, is_automatic);
    const double kept = static_cast<double>(live_face_count(mesh)) / static_cast<double>(count);
    change.rows = {{"kept", human_number(std::round(kept * 1e4) / 100) + " %"},
                   {"aimed at", counted(report.faces_aimed, "triangle")},
                   {"ended by", text}};
    change.json["aimed"] = report.faces_aimed;
    change.json["ended_by"] = key;
    for (const Rule& rule : rules(report, is_automatic)) {
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
    return run_change(arguments, console, [&](TriMesh& mesh, Progress /*progress*/) {
        return reduce_and_measure(mesh, arguments);
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
