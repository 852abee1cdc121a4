#include "cli/change.h"

#include <string>
#include <utility>

#include "cli/measures.h"
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
    Measures before;
    Measures after;
    ChangeReport report;

    void fail(ExitStatus with, const std::string& text) {
        status = with;
        failure = text;
    }
};

Outcome change_file(const std::string& source, const std::string& target, Progress progress,
                    const Change& change) {
    Outcome outcome;
    LoadedModel model;
    const std::string read_failure = load_model(source, progress, model);
    if (!read_failure.empty()) {
        outcome.fail(CannotRead, read_failure);
        return outcome;
    }
    outcome.warnings = load_warnings(model);
    outcome.lost = loss_warnings(model, kind_of(target));
    try {
        outcome.before = measures_of(model.mesh);
        progress.set(50);
        outcome.report = change(model.mesh, progress);
        progress.set(80);
        if (!outcome.report.failure.empty()) {
            outcome.fail(Flawed, source + ": " + outcome.report.failure + "; nothing is written");
            return outcome;
        }
        const std::vector<std::string>& doubts = outcome.report.doubts;
        if (!doubts.empty()) outcome.status = Flawed;
        outcome.warnings.insert(outcome.warnings.end(), doubts.begin(), doubts.end());
        outcome.after = measures_of(model.mesh);
        if (outcome.after.triangles == 0) {
            outcome.fail(Flawed, source + ": no triangle would be left; nothing is written");
            return outcome;
        }
        std::string failure = save_model(model.mesh, target);
        progress.set(90);
        LoadedModel back;
        if (failure.empty()) failure = read_back(model.mesh, target, back);
        if (!failure.empty()) outcome.fail(CannotWrite, failure);
    } catch (...) {
        outcome.fail(CannotRead, failure_text(source));
    }
    return outcome;
}

std::string table(const std::string& source, const std::string& target, const Outcome& outcome) {
    std::vector<Row> done = outcome.report.rows;
    done.emplace_back("time", seconds_text(outcome.report.seconds));
    done.emplace_back("verified",
                      "read back, " + counted(outcome.after.triangles, "triangle") + " as written");
    std::vector<Row> before = measure_rows("before", outcome.before);
    std::vector<Row> after = measure_rows("after", outcome.after);
    const ChangeReport& report = outcome.report;
    before.insert(before.end(), report.before.begin(), report.before.end());
    after.insert(after.end(), report.after.begin(), report.after.end());
    return on_one_line(source) + " -> " + on_one_line(target) + "\n" + side_by_side(before, after) +
           "\n" + table_text(done);
}

Json to_json(const std::string& source, const std::string& target, const Outcome& outcome) {
    Json json = {{"file", source}, {"output", target}};
    if (!outcome.failure.empty()) {
        json["error"] = outcome.failure;
        return json;
    }
    json["before"] = measures_json(outcome.before);
    json["after"] = measures_json(outcome.after);
    json["before"].update(outcome.report.json_before);
    json["after"].update(outcome.report.json_after);
    json.update(outcome.report.json);
    json["seconds"] = outcome.report.seconds;
    std::vector<std::string> warnings = outcome.warnings;
    warnings.insert(warnings.end(), outcome.lost.begin(), outcome.lost.end());
    json["warnings"] = warnings;
    return json;
}

}  // namespace

int run_change(const Arguments& arguments, Console& console, const Change& change) {
    const std::string& source = arguments.text("IN");
    const std::string& target = arguments.text("--output");
    if (!is_model_name(target, console)) return Usage;
    ProgressLine line(console, source);
    const Outcome outcome = change_file(source, target, line.progress(), change);
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
