// povmesh balance: carves a model from the inside so that it stands.
#include "job/balance.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "cli/balance_picture.h"
#include "cli/change.h"
#include "cli/commands.h"
#include "cli/drains.h"
#include "cli/measures.h"
#include "cli/model.h"
#include "cli/picture_file.h"
#include "cli/pieces.h"
#include "cli/shared_options.h"
#include "job/numbers.h"

namespace povmesh::cli {
namespace {

std::string rounded(double number, double step) {
    return human_number(std::round(number / step) * step + 0.0);
}

std::string centre_text(Vec3d p) {
    return rounded(p.x, 1e-3) + ", " + rounded(p.y, 1e-3) + ", " + rounded(p.z, 1e-3);
}

Json place_json(Vec3d p) {
    return {p.x, p.y, p.z};
}

using job::degrees_text;
using job::length_text;

job::BalanceJob job_of(const Arguments& arguments) {
    job::BalanceJob job;
    if (arguments.has("--thickness")) job.thickness = arguments.number("--thickness");
    job.firm = arguments.number("--angle");
    job.infill = arguments.number("--infill") / 100;
    job.only_measures = arguments.has("--check");
    job.drains = drains_of(arguments);
    job.drain_name = [&](std::size_t drain) { return arguments.all("--drain")[drain]; };
    return job;
}

std::string verdict_of(const Standing& standing, double firm) {
    const std::string tilt = " (" + degrees_text(standing.tilt) + ")";
    if (standing.tilt >= firm) return "stands firmly" + tilt;
    if (standing.tilt >= kStands) return "stands, if shakily" + tilt;
    const std::string falls = standing.margin > 0 ? "falls at a touch " : "falls ";
    return falls + job::towards(standing) + tilt;
}

void add_standing(const Standing& standing, std::vector<Row>& rows, Json& json) {
    rows.emplace_back("centre of mass", centre_text(standing.centre));
    rows.emplace_back("tilt", degrees_text(standing.tilt));
    json["centre_of_mass"] = place_json(standing.centre);
    json["margin"] = standing.margin;
    json["tilt"] = standing.tilt;
}

void add_carving(const job::BalanceDone& done, ChangeReport& report) {
    const BalanceReport& balanced = done.report;
    report.rows.insert(report.rows.end(),
                       {{"voxel size", human_number(balanced.voxel_size)},
                        {"layers", std::to_string(balanced.layers)},
                        {"cavity volume", human_number(balanced.cavity_volume)},
                        {"material saved", rounded(done.saved_percent, 0.01) + " %"},
                        {"smallest wall", human_number(balanced.smallest_wall)}});
    report.json.update({{"voxel_size", balanced.voxel_size},
                        {"layers", balanced.layers},
                        {"cavity_volume", balanced.cavity_volume},
                        {"saved_percent", done.saved_percent},
                        {"smallest_wall", balanced.smallest_wall}});
}

// The pictures; why they cannot be written, or nothing.
std::string draw(const Arguments& arguments, const Stand& before, const Stand* after) {
    if (!arguments.has("--preview")) return {};
    const Status status =
        write_file(arguments.text("--preview"), picture::encode_png(draw_stands(before, after)));
    return status.ok() ? std::string() : status.text();
}

ChangeReport balance_model(const Arguments& arguments, TriMesh& mesh, Progress progress,
                           std::string& picture_failure) {
    const job::BalanceJob job = job_of(arguments);
    TriMesh before;
    if (arguments.has("--preview")) before = mesh;
    job::BalanceDone done;
    ChangeReport report;
    report.failure = job::balance(mesh, job, progress, done).text();
    report.seconds = done.seconds;
    if (!report.failure.empty()) return report;
    const BalanceReport& balanced = done.report;
    const Stand stand{&before, balanced.base, balanced.before};
    if (balanced.status == BalanceStatus::Falls) {
        report.failure = done.falls;
        picture_failure = draw(arguments, stand, nullptr);
        return report;
    }
    static_cast<Remarks&>(report) = done;
    report.rows.emplace_back("base area", human_number(area_of(balanced.base)));
    report.json["base_area"] = area_of(balanced.base);
    const bool is_carved = balanced.status == BalanceStatus::Carved;
    if (is_carved) {
        add_carving(done, report);
        if (!job.drains.empty()) {
            add_drain_rows(done.drains.holes, done.drains.closed_cavities, done.drains.cavities,
                           report);
        }
    }
    add_standing(balanced.before, report.before, report.json_before);
    add_standing(done.after, report.after, report.json_after);
    std::string verdict = verdict_of(done.after, job.firm);
    if (!is_carved) {
        verdict = balanced.before.tilt >= job.firm
                      ? "it stands firmly already (" + degrees_text(balanced.before.tilt) + ")"
                      : verdict + "; carving gains nothing";
    }
    report.rows.emplace_back("verdict", verdict);
    report.json["carved"] = is_carved;
    report.json["firm"] = done.after.tilt >= job.firm;
    const Stand after{&mesh, done.base_after, done.after};
    picture_failure = draw(arguments, stand, is_carved ? &after : nullptr);
    return report;
}

struct CheckOutcome : Outcome {
    job::BalanceDone done;
};

// Measures without carving; with a thickness, what carving would reach, too.
void check(const Arguments& arguments, Progress progress, CheckOutcome& outcome) {
    const std::string& source = arguments.text("IN");
    LoadedModel model;
    const std::string failure = load_model(source, progress, model);
    if (!failure.empty()) return outcome.fail(CannotRead, failure);
    outcome.warnings = load_warnings(model);
    try {
        const job::BalanceJob job = job_of(arguments);
        const Status status = job::balance(model.mesh, job, progress, outcome.done);
        for (const auto* lines : {&outcome.done.warnings, &outcome.done.doubts}) {
            outcome.warnings.insert(outcome.warnings.end(), lines->begin(), lines->end());
        }
        if (!status.ok()) return outcome.fail(Flawed, source + ": " + status.text());
        const Standing& before = outcome.done.report.before;
        if (before.tilt < job.firm || !outcome.done.doubts.empty()) outcome.status = Flawed;
        const std::string picture =
            draw(arguments, {&model.mesh, outcome.done.report.base, before}, nullptr);
        if (!picture.empty()) outcome.fail(CannotWrite, picture);
    } catch (...) {
        outcome.fail(CannotRead, failure_text(source));
    }
}

// What carving would reach, when it was asked; empty when there is no need of it.
std::string carved_text(const BalanceReport& report) {
    if (report.status == BalanceStatus::Carved) {
        return "would withstand " + degrees_text(report.after.tilt);
    }
    if (report.status == BalanceStatus::Stands) return "would gain nothing";
    return report.after.margin > 0
               ? "would withstand no more than " + degrees_text(report.after.tilt)
               : "would leave the centre of mass " + length_text(-report.after.margin) +
                     " outside the base";
}

std::string check_table(const Arguments& arguments, const CheckOutcome& outcome) {
    const BalanceReport& report = outcome.done.report;
    const double firm = arguments.number("--angle");
    std::vector<Row> rows = {{"base area", human_number(area_of(report.base))},
                             {"centre of mass", centre_text(report.before.centre)},
                             {"verdict", verdict_of(report.before, firm)}};
    if (arguments.has("--thickness") && report.before.tilt < firm) {
        rows.emplace_back("carving", carved_text(report));
    }
    rows.emplace_back("time", seconds_text(outcome.done.seconds));
    return on_one_line(arguments.text("IN")) + "\n" + table_text(rows);
}

Json check_json(const Arguments& arguments, const CheckOutcome& outcome) {
    Json json = {{"file", arguments.text("IN")}};
    if (!outcome.failure.empty()) {
        json["error"] = outcome.failure;
        return json;
    }
    const BalanceReport& report = outcome.done.report;
    std::vector<Row> unused;
    json["base_area"] = area_of(report.base);
    add_standing(report.before, unused, json);
    json["firm"] = report.before.tilt >= arguments.number("--angle");
    if (arguments.has("--thickness")) {
        json["carving_helps"] = report.status == BalanceStatus::Carved;
        json["tilt_carved"] = report.after.tilt;
    }
    json["seconds"] = outcome.done.seconds;
    json["warnings"] = warnings_json(outcome);
    return json;
}

// What is wrong with the options; empty when nothing is.
std::string usage_error(const Arguments& arguments) {
    const bool only_checks = arguments.has("--check");
    if (only_checks && (arguments.has("--output") || arguments.has("--drain"))) {
        return "balance: --check only measures; it goes with neither --output nor --drain";
    }
    if (!only_checks && !arguments.has("--output")) {
        return "balance: --output is missing; give a file to write, or --check to measure only";
    }
    if (!arguments.has("--thickness") && (!only_checks || arguments.number("--infill") < 100)) {
        return "balance: --thickness is missing: how thick the wall is to be";
    }
    if (arguments.has("--preview") && !has_extension(arguments.text("--preview"), ".png")) {
        return arguments.text("--preview") +
               ": only PNG can be drawn; give a name that ends in .png";
    }
    return {};
}

int run_balance(const Arguments& arguments, Console& console) {
    if (const std::string error = usage_error(arguments); !error.empty()) {
        console.error(error);
        return Usage;
    }
    if (arguments.has("--check")) {
        ProgressLine line(console, arguments.text("IN"));
        CheckOutcome outcome;
        check(arguments, line.progress(), outcome);
        line.stop();
        return tell(
            outcome, arguments, console, [&] { return check_json(arguments, outcome); },
            [&] { return check_table(arguments, outcome); });
    }
    std::string picture_failure;
    const int status = run_change(arguments, console, [&](TriMesh& mesh, Progress progress) {
        return balance_model(arguments, mesh, progress, picture_failure);
    });
    if (picture_failure.empty()) return status;
    console.error(picture_failure);
    return CannotWrite;
}

}  // namespace

OperationSpec balance_operation() {
    return {
        .name = "balance",
        .summary = "Carve a model from the inside so that it stands",
        .description =
            "Takes out of a model that falls, or stands shakily, what moves its centre of mass "
            "over its base. All that can be seen stays as it is. A model that stands firmly is "
            "written unchanged.",
        .positionals = {kModelFile},
        .options = {{.name = "--output",
                     .short_name = "-o",
                     .type = ValueType::Text,
                     .placeholder = "OUT",
                     .help = model_output().help},
                    {.name = "--thickness",
                     .type = ValueType::Number,
                     .placeholder = "THICKNESS",
                     .unit = "units of the file",
                     .low = 0,
                     .high = kNoLimit,
                     .help = "Thickness of the wall that stays"},
                    drain_option(),
                    {.name = "--angle",
                     .type = ValueType::Number,
                     .placeholder = "DEGREES",
                     .unit = "degrees",
                     .default_value = "10",
                     .low = 1,
                     .high = 90,
                     .help = "Carve what withstands a smaller tilt of the plate than this"},
                    {.name = "--infill",
                     .type = ValueType::Number,
                     .placeholder = "PERCENT",
                     .unit = "percent",
                     .default_value = "100",
                     .low = 1,
                     .high = 100,
                     .help = "How much of the inside is printed where nothing is carved"},
                    {.name = "--check",
                     .help = "Measure and tell only; status 1 when it does not stand firmly"},
                    {.name = "--preview",
                     .type = ValueType::Text,
                     .placeholder = "PNG",
                     .help = "Draw the model cut open, before and after, with its base in green "
                             "and a plumb line from its centre of mass"},
                    json_object()},
        .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
        .run = run_balance,
    };
}

}  // namespace povmesh::cli
