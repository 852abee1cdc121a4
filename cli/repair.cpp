// povmesh repair: makes a model fit to print, and tells what was wrong, what was done and what is
// left.
#include <cstddef>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "cli/change.h"
#include "cli/commands.h"
#include "cli/measures.h"
#include "cli/mending.h"
#include "cli/shared_options.h"
#include "cli/solid_surface.h"
#include "field/make_solid.h"
#include "job/numbers.h"
#include "job/repair.h"
#include "mesh/copy_mesh.h"

namespace povmesh::cli {
namespace {

struct RepairOutcome : Outcome {
    std::size_t triangles_before = 0;
    std::size_t triangles_after = 0;
    Findings after;  // of what was read back
    job::RepairDone done;
    std::optional<SolidReport> solid;  // with --solid
};

// Wraps the bodies that repair could not make solid. Returns why nothing is to be written.
std::string solidify(TriMesh& mesh, RepairOutcome& outcome) {
    RunLog log;
    RunContext run{{}, log};
    SolidReport report;
    ChangeReport lost;
    warn_of_lost_textures(mesh, lost);
    const Status status = make_solid(mesh, {}, run, report);
    if (!status.ok()) return status.text() + "; nothing is written";
    if (report.wrapped != 0) {
        outcome.done.mending.after.reset();
        outcome.lost.insert(outcome.lost.end(), lost.warnings.begin(), lost.warnings.end());
    }
    outcome.solid = report;
    return {};
}

void repair_file(const Arguments& arguments, Progress progress, RepairOutcome& outcome) {
    const auto change = [&](LoadedModel& model) -> std::string {
        outcome.triangles_before = model.triangles;
        job::RepairJob options{.outward = arguments.has("--outward")};
        if (arguments.has("--drop-tiny")) options.drop_tiny = arguments.number("--drop-tiny");
        const bool is_solid = arguments.has("--solid");
        TriMesh source;
        if (is_solid) source = copy_mesh(model.mesh);
        const Status status = job::repair(model, options, progress, outcome.done);
        const bool is_plain = !options.outward && options.drop_tiny == 0;
        if (is_solid && is_plain && !outcome.done.doubts.empty()) {
            // Walls would be missing that wrapping makes thick.
            model.mesh = std::move(source);
            outcome.done.mending = {};
            outcome.done.mending.report.were_holes_tried = true;
            outcome.done.doubts.clear();
            return solidify(model.mesh, outcome);
        }
        for (const auto* gone : {&outcome.done.warnings, &outcome.done.doubts}) {
            outcome.lost.insert(outcome.lost.end(), gone->begin(), gone->end());
        }
        if (status.ok()) return is_solid ? solidify(model.mesh, outcome) : std::string();
        if (outcome.done.mending.report.dropped_shells == 0) return status.text();
        return "every shell is smaller than --drop-tiny " + arguments.text("--drop-tiny") +
               "; nothing is written; give a smaller volume";
    };
    const auto inspect = [&](LoadedModel& back) {
        outcome.triangles_after = back.mesh.faces.size();
        // What was read back has the same faces; OBJ files have them in the order of their labels.
        const std::optional<Findings>& known = outcome.done.mending.after;
        const bool is_known = known && !known->has_labels && known->has_self_intersection_count;
        outcome.after = is_known ? *known : job::examine_objects(back, progress);
        const bool is_fine = !outcome.after.has_flaws() && outcome.done.doubts.empty();
        outcome.status = is_fine ? Clean : Flawed;
    };
    rewrite_model(arguments, progress, {change, inspect}, outcome);
}

std::vector<Row> column(const std::string& head, std::size_t triangles, const Findings& findings) {
    std::vector<Row> rows = {{"", head}, {"triangles", with_separators(triangles)}};
    const std::vector<Row> more = finding_rows(findings, true);
    rows.insert(rows.end(), more.begin(), more.end());
    return rows;
}

std::string table(const std::string& source, const std::string& target,
                  const RepairOutcome& outcome) {
    std::vector<Row> done = mending_rows(outcome.done.mending);
    if (outcome.solid && outcome.solid->wrapped != 0) {
        done.emplace_back("wrapped", counted(outcome.solid->wrapped, "body", "bodies") + " of " +
                                         with_separators(outcome.solid->bodies) +
                                         ", at a tolerance of " +
                                         human_number(outcome.solid->wrap.tolerance));
    }
    if (const double sheets = outcome.solid ? outcome.solid->wrap.label.sheet_area : 0;
        sheets > 0) {
        done.emplace_back("made thick", "sheets of about " + human_number(sheets) + " squared");
    }
    if (done.empty()) done.emplace_back("done", "nothing: no flaw was found that repair mends");
    done.emplace_back("verified",
                      "read back, " + counted(outcome.triangles_after, "triangle") + " as written");
    const std::string left = verdict(outcome.after);
    std::string text = left.starts_with("flaws") ? "left over: " + left.substr(7) : left;
    if (!outcome.done.doubts.empty()) text += "; walls of the model are gone";
    done.emplace_back("verdict", text);
    return on_one_line(source) + " -> " + on_one_line(target) + "\n" +
           side_by_side(column("before", outcome.triangles_before, outcome.done.before),
                        column("after", outcome.triangles_after, outcome.after)) +
           "\n" + table_text(done);
}

Json findings_json(std::size_t triangles, const Findings& findings) {
    Json json = {{"triangles", triangles}};
    add_findings(json, findings);
    return json;
}

Json to_json(const std::string& source, const std::string& target, const RepairOutcome& outcome) {
    Json json = {{"file", source}, {"output", target}};
    if (!outcome.failure.empty()) {
        json["verdict"] = outcome.status == CannotRead    ? "unreadable"
                          : outcome.status == CannotWrite ? "unwritten"
                                                          : "empty";
        json["error"] = outcome.failure;
        return json;
    }
    json["verdict"] = outcome.status == Clean ? "clean" : "flaws";
    json["before"] = findings_json(outcome.triangles_before, outcome.done.before);
    json["after"] = findings_json(outcome.triangles_after, outcome.after);
    json["done"] = mending_json(outcome.done.mending);
    if (outcome.solid) {
        json["done"]["bodies"] = outcome.solid->bodies;
        json["done"]["wrapped_bodies"] = outcome.solid->wrapped;
    }
    json["warnings"] = warnings_json(outcome);
    return json;
}

int run_repair(const Arguments& arguments, Console& console) {
    const std::string& source = arguments.text("IN");
    const std::string& target = arguments.text("--output");
    if (!is_model_name(target, console)) return Usage;
    ProgressLine line(console, source);
    RepairOutcome outcome;
    repair_file(arguments, line.progress(), outcome);
    line.stop();
    return tell(
        outcome, arguments, console, [&] { return to_json(source, target, outcome); },
        [&] { return table(source, target, outcome); });
}

}  // namespace

OperationSpec repair_operation() {
    return {
        .name = "repair",
        .summary = "Make a model fit to print",
        .description =
            "Removes duplicate faces, closes holes of up to 50 edges and turns faces outward; "
            "cavities stay cavities. Reads the result back and prints what was wrong, what was "
            "done and what is left. IN and OUT may be the same file; OUT is replaced only when the "
            "new content is complete.",
        .positionals = {kModelFile},
        .options =
            {model_output(),
             {.name = "--drop-tiny",
              .type = ValueType::Number,
              .placeholder = "VOLUME",
              .unit = "cubed units of the file",
              .low = 0,
              .high = kNoLimit,
              .help =
                  "Drop shells that are smaller than a cube of this volume, in volume and in area"},
             {.name = "--solid",
              .help = "Then wrap the bodies that are still open or cross themselves, so that the "
                      "result is solid whatever the model is (see 'povmesh wrap')"},
             {.name = "--outward", .help = "Turn cavities outward, too"},
             json_object()},
        .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
        .run = run_repair,
    };
}

}  // namespace povmesh::cli
