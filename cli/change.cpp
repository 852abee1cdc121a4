#include "cli/change.h"

#include <string>

#include "cli/measures.h"
#include "cli/model.h"
#include "cli/pieces.h"
#include "cli/read_back.h"
#include "job/bodies.h"
#include "job/numbers.h"
#include "job/refusal.h"

namespace povmesh::cli {
namespace {

struct ChangeOutcome : Outcome {
    Measures before;
    Measures after;
    ChangeReport report;
};

std::string table(const std::string& source, const std::string& target,
                  const ChangeOutcome& outcome) {
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

Json to_json(const std::string& source, const std::string& target, const ChangeOutcome& outcome) {
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
    json["warnings"] = warnings_json(outcome);
    return json;
}

}  // namespace

void rewrite_model(const Arguments& arguments, Progress progress, const RewriteSteps& steps,
                   Outcome& outcome) {
    const std::string& source = arguments.text("IN");
    const std::string& target = arguments.text("--output");
    LoadedModel model;
    const std::string read_failure = load_model(source, progress, model);
    if (!read_failure.empty()) return outcome.fail(CannotRead, read_failure);
    outcome.warnings = load_warnings(model);
    outcome.lost = loss_warnings(model, kind_of(target));
    try {
        const bool was_finite = has_finite_corners(model.mesh);
        const std::size_t closed_before = closed_body_count(model);
        const std::size_t bodies_before = model.extras.package.bodies.size();
        const ThreeMfContent& package = model.extras.package;
        const bool has_bodies = kind_of(target) == FileKind::ThreeMf && !package.labels.empty();
        const TriMesh before = has_bodies ? model.mesh : TriMesh{};
        std::string reason = steps.change(model);
        if (reason.empty()) reason = refusal(model.mesh, was_finite);
        if (!reason.empty()) return outcome.fail(Flawed, source + ": " + reason);
        if (has_bodies && !give_to_bodies(model.mesh, before, package)) {
            outcome.lost.emplace_back(kLostBodies);
        }
        progress.set(80);
        OutputFile file(target);
        std::string failure = save_model(model, file.path());
        progress.set(90);
        LoadedModel back;
        if (failure.empty()) failure = read_back(model.mesh, model.extras, file.path(), back);
        if (failure.empty()) failure = file.deliver();
        if (!failure.empty()) return outcome.fail(CannotWrite, failure);
        if (steps.inspect) steps.inspect(back);
        const std::size_t closed_after = closed_body_count(model);
        const bool are_the_same = package.bodies.size() >= bodies_before;
        if (are_the_same && closed_after < closed_before && keeps_bodies(model.mesh, package)) {
            outcome.lost.push_back(
                counted(closed_before - closed_after, "object is", "objects are") +
                " no longer closed: objects that touch are changed as one; split the "
                "model and change each by itself");
            if (outcome.status == Clean) outcome.status = Flawed;
        }
    } catch (...) {
        outcome.fail(CannotRead, failure_text(source));
    }
}

int run_change(const Arguments& arguments, Console& console, const Change& change) {
    const std::string& source = arguments.text("IN");
    const std::string& target = arguments.text("--output");
    if (!is_model_name(target, console)) return Usage;
    ProgressLine line(console, source);
    ChangeOutcome outcome;
    const auto change_model = [&](LoadedModel& model) -> std::string {
        outcome.before = measures_of(model.mesh);
        line.progress().set(50);
        outcome.report = change(model.mesh, line.progress());
        const std::string& failure = outcome.report.failure;
        if (!failure.empty()) return failure + "; nothing is written";
        outcome.after = measures_of(model.mesh);
        if (!outcome.report.new_body.empty() && kind_of(target) == FileKind::ThreeMf) {
            add_body(model.mesh, outcome.report.new_body_from, outcome.report.new_body,
                     model.extras.package);
        }
        const std::vector<std::string>& warnings = outcome.report.warnings;
        outcome.lost.insert(outcome.lost.end(), warnings.begin(), warnings.end());
        return {};
    };
    rewrite_model(arguments, line.progress(), {change_model, {}}, outcome);
    line.stop();
    if (!outcome.report.failure.empty()) outcome.status = outcome.report.failed_with;
    const std::vector<std::string>& doubts = outcome.report.doubts;
    if (!doubts.empty() && outcome.status == Clean) outcome.status = Flawed;
    outcome.warnings.insert(outcome.warnings.end(), doubts.begin(), doubts.end());
    return tell(
        outcome, arguments, console, [&] { return to_json(source, target, outcome); },
        [&] { return table(source, target, outcome); });
}

}  // namespace povmesh::cli
