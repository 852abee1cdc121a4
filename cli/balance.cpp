// povmesh balance: carves a model from the inside so that it stands.
#include "design/balance.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "base/timer.h"
#include "cli/balance_picture.h"
#include "cli/change.h"
#include "cli/commands.h"
#include "cli/drains.h"
#include "cli/measures.h"
#include "cli/model.h"
#include "cli/picture_file.h"
#include "cli/pieces.h"
#include "cli/shared_options.h"
#include "job/cavity.h"
#include "job/new_faults.h"
#include "job/numbers.h"
#include "mesh/compact.h"
#include "mesh/shells.h"
#include "spatial/separation.h"

namespace povmesh::cli {
namespace {

// No walls are thinner.
constexpr double kLeastThickness = 0.5;

// Shares of the thickness with which a model that falls is tried again.
constexpr double kThinner[] = {0.7, 0.4};

std::string rounded(double number, double step) {
    return human_number(std::round(number / step) * step + 0.0);
}

std::string degrees_text(double degrees) {
    return rounded(degrees, 0.01) + " degrees";
}

std::string centre_text(Vec3d p) {
    return rounded(p.x, 1e-3) + ", " + rounded(p.y, 1e-3) + ", " + rounded(p.z, 1e-3);
}

Json place_json(Vec3d p) {
    return {p.x, p.y, p.z};
}

// A length to two significant digits.
std::string length_text(double length) {
    if (!(length > 0)) return "0";
    return rounded(length, std::pow(10.0, std::floor(std::log10(length)) - 1));
}

std::string towards(const Standing& standing) {
    const Vec3d to = fall_direction(standing);
    return "towards x " + rounded(to.x, 0.01) + ", y " + rounded(to.y, 0.01);
}

BalanceOptions options_of(const Arguments& arguments) {
    return {.firm = arguments.number("--angle"),
            .infill = arguments.number("--infill") / 100,
            .measures_wall = true};
}

// What is to be known about a model before it is trusted to stand on its own.
std::vector<std::string> warnings_of(TriMesh& mesh) {
    std::vector<std::string> warnings;
    label_shells(mesh);
    const std::size_t bodies = group_shells(mesh, {.keep_cavities = true}).size();
    if (bodies > 1) {
        warnings.push_back("its " + std::to_string(bodies) +
                           " bodies do not touch one another; they are balanced as if they were "
                           "joined");
    }
    if (!is_closed(mesh)) {
        warnings.emplace_back(
            "the model is open, so that its centre of mass is a guess; repair it "
            "for a better answer");
    }
    return warnings;
}

// What carving with a thinner wall would do about a model that falls; empty when it helps little.
std::string thinner_text(const TriMesh& mesh, double thickness, const BalanceReport& fallen,
                         const BalanceOptions& options) {
    std::string text;
    RunLog log;
    RunContext run{{}, log};
    for (const double share : kThinner) {
        const double thinner = std::max(std::round(thickness * share * 10) / 10, kLeastThickness);
        if (thinner >= thickness) break;
        const BalanceReport report =
            preview_balance(mesh, static_cast<float>(thinner), run, options);
        if (report.status == BalanceStatus::Carved) {
            return human_number(thinner) + " withstands " + degrees_text(report.after.tilt);
        }
        if (report.after.margin < 0 && report.after.margin > fallen.after.margin) {
            text = human_number(thinner) + " leaves " + length_text(-report.after.margin);
        }
    }
    return text;
}

std::string falls_text(TriMesh& mesh, double thickness, const BalanceReport& report,
                       const BalanceOptions& options) {
    const Standing& best = report.after;
    std::string text = best.margin <= 0 ? "its centre of mass stays " + length_text(-best.margin) +
                                              " outside its base " + towards(best)
                                        : "it withstands no more than " + degrees_text(best.tilt) +
                                              ", and falls " + towards(best);
    const std::string thinner = thinner_text(mesh, thickness, report, options);
    text += "; take ";
    if (report.core_voxels == 0 && thinner.empty()) {
        text = "a wall of " + human_number(thickness) + " leaves nothing to carve: " + text;
    }
    if (!thinner.empty()) text += "a thinner wall (" + thinner + "), ";
    return text + "a wider base, or 'povmesh orient'";
}

std::string failure_of(TriMesh& mesh, double thickness, const BalanceReport& report,
                       const BalanceOptions& options) {
    if (report.status == BalanceStatus::NoModel) {
        return "the model encloses no volume, or is inside out; repair it first";
    }
    if (report.status == BalanceStatus::Falls) {
        return falls_text(mesh, thickness, report, options);
    }
    return {};
}

std::string verdict_of(const Standing& standing, double firm) {
    const std::string tilt = " (" + degrees_text(standing.tilt) + ")";
    if (standing.tilt >= firm) return "stands firmly" + tilt;
    if (standing.tilt >= kStands) return "stands, if shakily" + tilt;
    const std::string falls = standing.margin > 0 ? "falls at a touch " : "falls ";
    return falls + towards(standing) + tilt;
}

void add_standing(const Standing& standing, std::vector<Row>& rows, Json& json) {
    rows.emplace_back("centre of mass", centre_text(standing.centre));
    rows.emplace_back("tilt", degrees_text(standing.tilt));
    json["centre_of_mass"] = place_json(standing.centre);
    json["margin"] = standing.margin;
    json["tilt"] = standing.tilt;
}

// How a finished model stands, by its faces. With an infill they do not tell what it weighs.
Stand finished_stand(const TriMesh& mesh, const BalanceReport& report,
                     const BalanceOptions& options) {
    Stand stand{&mesh, base_of(mesh), report.after};
    if (options.infill == 1) {
        const Vec3d middle = stand.base.middle;
        stand.standing = stand_on(stand.base, middle + mass_of(mesh, middle).centre());
    }
    return stand;
}

void add_carving(const BalanceReport& balanced, ChangeReport& report) {
    const double saved = balanced.cavity_volume / balanced.model_volume * 100;
    report.rows.insert(report.rows.end(),
                       {{"voxel size", human_number(balanced.voxel_size)},
                        {"layers", std::to_string(balanced.layers)},
                        {"cavity volume", human_number(balanced.cavity_volume)},
                        {"material saved", rounded(saved, 0.01) + " %"},
                        {"smallest wall", human_number(balanced.smallest_wall)}});
    report.json.update({{"voxel_size", balanced.voxel_size},
                        {"layers", balanced.layers},
                        {"cavity_volume", balanced.cavity_volume},
                        {"saved_percent", saved},
                        {"smallest_wall", balanced.smallest_wall}});
}

// What a model that was carved has to keep.
void check_promises(const TriMesh& before, TriMesh& mesh, const BalanceReport& balanced,
                    const Standing& after, double thickness, ChangeReport& report) {
    TriMesh model = before;
    NewFaults faults = find_new_faults(model, mesh);
    // Cavities have triangles a little less flat than degenerate ones: none is that.
    faults.slivers = {};
    add_faults(faults, 0, 0, 0, report);
    if (after.tilt < kStands || after.tilt <= balanced.before.tilt) {
        report.doubts.push_back("with its drain holes it withstands " + degrees_text(after.tilt) +
                                " only");
    }
    const double least = std::max(thickness, kLeastThickness) - 2 * balanced.voxel_size;
    if (balanced.smallest_wall < least) {
        report.doubts.push_back("its smallest wall is " + human_number(balanced.smallest_wall));
    }
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
    const double thickness = arguments.number("--thickness");
    const BalanceOptions options = options_of(arguments);
    const Timer timer;
    RunLog log;
    // The values of the operation itself go from 30 to 85.
    ProgressObserver scaled = [&](std::uint32_t percent) { progress.set(50 + percent / 4); };
    RunContext run{Progress(nullptr, &scaled), log};
    ChangeReport report;
    report.warnings = warnings_of(mesh);
    const TriMesh before = mesh;
    const BalanceReport balanced = balance(mesh, static_cast<float>(thickness), run, options);
    report.seconds = timer.seconds();
    const Stand stand{&before, balanced.base, balanced.before};
    report.failure = failure_of(mesh, thickness, balanced, options);
    if (!report.failure.empty()) {
        if (balanced.status == BalanceStatus::Falls) {
            picture_failure = draw(arguments, stand, nullptr);
        }
        return report;
    }
    report.rows.emplace_back("base area", human_number(area_of(balanced.base)));
    report.json["base_area"] = area_of(balanced.base);
    const bool is_carved = balanced.status == BalanceStatus::Carved;
    if (is_carved) {
        compact(mesh);
        add_carving(balanced, report);
        cut_drains(arguments, mesh, before.faces.size(), thickness, report);
        if (!report.failure.empty()) return report;
        if (!arguments.has("--drain")) {
            const SealedCavities sealed = sealed_cavities(mesh);
            report.warnings.push_back(sealed_text(sealed, sealed.count));
        }
    } else if (arguments.has("--drain")) {
        report.warnings.emplace_back("nothing is carved, so that no drain hole is cut");
    }
    const Stand after = finished_stand(mesh, balanced, options);
    add_standing(balanced.before, report.before, report.json_before);
    add_standing(after.standing, report.after, report.json_after);
    std::string verdict = verdict_of(after.standing, options.firm);
    if (!is_carved) {
        verdict = balanced.before.tilt >= options.firm
                      ? "it stands firmly already (" + degrees_text(balanced.before.tilt) + ")"
                      : verdict + "; carving gains nothing";
    }
    report.rows.emplace_back("verdict", verdict);
    report.json["carved"] = is_carved;
    report.json["firm"] = after.standing.tilt >= options.firm;
    if (is_carved) {
        check_promises(before, mesh, balanced, after.standing, thickness, report);
    }
    picture_failure = draw(arguments, stand, is_carved ? &after : nullptr);
    return report;
}

struct CheckOutcome : Outcome {
    BalanceReport report;
    double seconds = 0;
};

// Measures without carving; with a thickness, what carving would reach, too.
void check(const Arguments& arguments, Progress progress, CheckOutcome& outcome) {
    const std::string& source = arguments.text("IN");
    LoadedModel model;
    const std::string failure = load_model(source, progress, model);
    if (!failure.empty()) return outcome.fail(CannotRead, failure);
    outcome.warnings = load_warnings(model);
    try {
        const Timer timer;
        RunLog log;
        RunContext run{{}, log};
        for (std::string& warning : warnings_of(model.mesh)) {
            outcome.warnings.push_back(std::move(warning));
        }
        const double thickness = arguments.has("--thickness") ? arguments.number("--thickness") : 0;
        const BalanceOptions options = options_of(arguments);
        outcome.report = preview_balance(model.mesh, static_cast<float>(thickness), run, options);
        outcome.seconds = timer.seconds();
        if (outcome.report.status == BalanceStatus::NoModel) {
            return outcome.fail(
                Flawed, source + ": " + failure_of(model.mesh, thickness, outcome.report, options));
        }
        const Standing& before = outcome.report.before;
        if (before.tilt < options.firm) outcome.status = Flawed;
        const std::string picture =
            draw(arguments, {&model.mesh, outcome.report.base, before}, nullptr);
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
    const BalanceReport& report = outcome.report;
    const double firm = arguments.number("--angle");
    std::vector<Row> rows = {{"base area", human_number(area_of(report.base))},
                             {"centre of mass", centre_text(report.before.centre)},
                             {"verdict", verdict_of(report.before, firm)}};
    if (arguments.has("--thickness") && report.before.tilt < firm) {
        rows.emplace_back("carving", carved_text(report));
    }
    rows.emplace_back("time", seconds_text(outcome.seconds));
    return on_one_line(arguments.text("IN")) + "\n" + table_text(rows);
}

Json check_json(const Arguments& arguments, const CheckOutcome& outcome) {
    Json json = {{"file", arguments.text("IN")}};
    if (!outcome.failure.empty()) {
        json["error"] = outcome.failure;
        return json;
    }
    const BalanceReport& report = outcome.report;
    std::vector<Row> unused;
    json["base_area"] = area_of(report.base);
    add_standing(report.before, unused, json);
    json["firm"] = report.before.tilt >= arguments.number("--angle");
    if (arguments.has("--thickness")) {
        json["carving_helps"] = report.status == BalanceStatus::Carved;
        json["tilt_carved"] = report.after.tilt;
    }
    json["seconds"] = outcome.seconds;
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
