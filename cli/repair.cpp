// povmesh repair: makes a model fit to print, and tells what was wrong, what was done and what is left.
#include <cmath>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/findings_report.h"
#include "cli/measures.h"
#include "cli/mending.h"
#include "cli/model.h"
#include "cli/numbers.h"
#include "cli/read_back.h"

namespace povmesh::cli {
namespace {

struct Outcome {
    ExitStatus status = Clean;
    std::string failure;                // one line, with the file; then there is no result
    std::vector<std::string> warnings;  // of what was read, without the file
    std::vector<std::string> lost;      // of what was written
    std::size_t triangles_before = 0;
    std::size_t triangles_after = 0;
    Findings before;
    Findings after;  // of what was read back
    RepairReport done;

    void fail(ExitStatus with, const std::string& text) {
        status = with;
        failure = text;
    }
};

RepairOptions options_of(const Arguments& arguments) {
    RepairOptions options = tool_repair_options();
    options.keep_cavities = !arguments.has("--outward");
    if (arguments.has("--drop-tiny")) {
        options.tiny_volume = arguments.number("--drop-tiny");
        // Smaller than a cube in volume and in area; a large sheet without volume stays.
        const double side = std::cbrt(options.tiny_volume);
        options.tiny_area = 6 * side * side;
    }
    return options;
}

// Reads the result back, compares it and examines it.
void verify(const TriMesh& mesh, const std::string& target, Progress progress, Outcome& outcome) {
    LoadedModel back;
    const std::string failure = read_back(mesh, target, back);
    if (!failure.empty()) return outcome.fail(CannotWrite, failure);
    outcome.triangles_after = back.mesh.faces.size();
    outcome.after = examine(back.mesh, progress, SelfIntersectionSearch::UpToQuickFaces);
    outcome.status = outcome.after.has_flaws() ? Flawed : Clean;
}

Outcome repair_file(const Arguments& arguments, Progress progress) {
    const std::string& source = arguments.text("IN");
    const std::string& target = arguments.text("--output");
    Outcome outcome;
    LoadedModel model;
    const std::string read_failure = load_model(source, progress, model);
    if (!read_failure.empty()) {
        outcome.fail(CannotRead, read_failure);
        return outcome;
    }
    outcome.triangles_before = model.triangles;
    outcome.warnings = load_warnings(model);
    outcome.lost = loss_warnings(model, kind_of(target));
    try {
        outcome.before = examine(model.mesh, {}, SelfIntersectionSearch::UpToQuickFaces);
        progress.set(60);
        outcome.done = repair(model.mesh, options_of(arguments));
        progress.set(70);
        if (live_face_count(model.mesh) == 0) {
            outcome.fail(Flawed, source + ": every shell is smaller than --drop-tiny " +
                                     arguments.text("--drop-tiny") +
                                     "; nothing is written; give a smaller volume");
            return outcome;
        }
        const std::string write_failure = save_model(model, target);
        progress.set(75);
        if (!write_failure.empty()) {
            outcome.fail(CannotWrite, write_failure);
            return outcome;
        }
        verify(model.mesh, target, progress, outcome);
    } catch (...) {
        outcome.fail(CannotRead, failure_text(source));
    }
    return outcome;
}

std::vector<Row> column(const std::string& head, std::size_t triangles, const Findings& findings) {
    std::vector<Row> rows = {{"", head}, {"triangles", with_separators(triangles)}};
    const std::vector<Row> more = finding_rows(findings, true);
    rows.insert(rows.end(), more.begin(), more.end());
    return rows;
}

std::string table(const std::string& source, const std::string& target, const Outcome& outcome) {
    std::vector<Row> done = mending_rows(outcome.done);
    if (done.empty()) done.emplace_back("done", "nothing: no flaw was found that repair mends");
    done.emplace_back("verified",
                      "read back, " + counted(outcome.triangles_after, "triangle") + " as written");
    const std::string left = verdict(outcome.after);
    done.emplace_back("verdict", left.starts_with("flaws") ? "left over: " + left.substr(7) : left);
    return on_one_line(source) + " -> " + on_one_line(target) + "\n" +
           side_by_side(column("before", outcome.triangles_before, outcome.before),
                        column("after", outcome.triangles_after, outcome.after)) +
           "\n" + table_text(done);
}

Json findings_json(std::size_t triangles, const Findings& findings) {
    Json json = {{"triangles", triangles}};
    add_findings(json, findings);
    return json;
}

Json to_json(const std::string& source, const std::string& target, const Outcome& outcome) {
    Json json = {{"file", source}, {"output", target}};
    if (!outcome.failure.empty()) {
        json["verdict"] = outcome.status == CannotRead    ? "unreadable"
                          : outcome.status == CannotWrite ? "unwritten"
                                                          : "empty";
        json["error"] = outcome.failure;
        return json;
    }
    json["verdict"] = outcome.status == Clean ? "clean" : "flaws";
    json["before"] = findings_json(outcome.triangles_before, outcome.before);
    json["after"] = findings_json(outcome.triangles_after, outcome.after);
    json["done"] = mending_json(outcome.done);
    std::vector<std::string> warnings = outcome.warnings;
    warnings.insert(warnings.end(), outcome.lost.begin(), outcome.lost.end());
    json["warnings"] = warnings;
    return json;
}

}  // namespace

int run_repair(const Arguments& arguments, Console& console) {
    const std::string& source = arguments.text("IN");
    const std::string& target = arguments.text("--output");
    if (!is_model_name(target, console)) return Usage;
    ProgressLine line(console, source);
    const Outcome outcome = repair_file(arguments, line.progress());
    line.stop();
    if (!outcome.failure.empty()) console.error(outcome.failure);
    if (arguments.has("--json")) {
        console.print(json_text(to_json(source, target, outcome)));
    } else if (outcome.failure.empty()) {
        warn_of(source, outcome.warnings, console);
        warn_of(target, outcome.lost, console);
        console.print(table(source, target, outcome));
    }
    return outcome.status;
}

}  // namespace povmesh::cli
