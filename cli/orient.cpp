// povmesh orient: in which directions a model is best printed, and the model stood up in one.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "base/timer.h"
#include "cli/change.h"
#include "cli/commands.h"
#include "cli/measures.h"
#include "cli/model.h"
#include "cli/picture_file.h"
#include "cli/pieces.h"
#include "cli/shared_options.h"
#include "job/numbers.h"
#include "job/picture/picture.h"
#include "mesh/bounds.h"
#include "mesh/volume.h"
#include "orient/orientation.h"
#include "orient/pose.h"
#include "spatial/self_intersection.h"

namespace povmesh::cli {
namespace {

constexpr std::size_t kListed = 5;  // rows when nothing else is asked for
constexpr double kMostRows = 64;

// A gain of cost below this is not worth turning a model for.
constexpr double kNotableGain = 0.01;

// Pairs that are compared before and after; where there are more, their number is.
constexpr std::size_t kListedPairs = 100000;

// What is written is measured again, on other columns: a share by which height and area, and an
// amount and a share by which the cost may differ. (Open models have no volume to compare.)
constexpr double kSameLength = 1e-4;
constexpr double kSameCost = 0.03;
constexpr double kSameCostShare = 0.2;

// Pixels of each of the two poses.
constexpr std::uint32_t kPictureWidth = 1202;
constexpr std::uint32_t kPictureHeight = 600;
constexpr picture::Colour kHeld = picture::palette::kFlipped;
constexpr picture::Colour kLeaning{238, 164, 140};
constexpr picture::Colour kResting{40, 150, 60};

struct OrientOutcome : Outcome {
    OrientationReport report;
    std::size_t written_triangles = 0;
    double seconds = 0;
};

// Which row is chosen, from 1 on.
std::size_t chosen(const Arguments& arguments) {
    return arguments.has("--choose") ? static_cast<std::size_t>(arguments.number("--choose")) : 1;
}

bool uses_row(const Arguments& arguments) {
    return arguments.has("--output") || arguments.has("--preview");
}

// How many rows are told, the chosen one included.
std::size_t listed(const Arguments& arguments, const OrientationReport& report) {
    std::size_t count = uses_row(arguments) ? chosen(arguments) : kListed;
    if (arguments.has("--list")) count = static_cast<std::size_t>(arguments.number("--list"));
    if (uses_row(arguments)) count = std::max(count, chosen(arguments));
    return std::min(count, report.best.size());
}

// To four decimals, as --up takes it.
std::string direction_text(Vec3d up) {
    const auto text = [](double v) { return human_number(std::round(v * 1e4) / 1e4 + 0.0); };
    return text(up.x) + "," + text(up.y) + "," + text(up.z);
}

std::vector<std::string> line_of(const std::string& name, const Orientation& row) {
    const auto rounded = [](double v, double to) { return human_number(std::round(v / to) * to); };
    return {name,
            direction_text(row.up),
            rounded(row.score(), 1e-3),
            human_number(row.support_volume),
            human_number(row.scar_area),
            human_number(row.contact_area),
            row.tilt > 0 ? rounded(row.tilt, 0.1) : "falls",
            human_number(row.height)};
}

std::string orientation_table(const Arguments& arguments, const OrientationReport& report) {
    std::vector<std::vector<std::string>> lines = {
        {"pose", "up", "score", "support", "touched", "contact", "tilt", "height"},
        line_of("as it is", report.as_is)};
    for (std::size_t i = 0; i < listed(arguments, report); ++i) {
        lines.push_back(line_of(std::to_string(i + 1), report.best[i]));
    }
    if (arguments.has("--up")) lines.push_back(line_of("--up", report.asked));
    return columns_text(lines);
}

std::string table(const Arguments& arguments, const OrientOutcome& outcome) {
    std::string head = on_one_line(arguments.text("IN"));
    std::vector<Row> rows = {{"measured", counted(outcome.report.directions_measured, "direction")},
                             {"time", seconds_text(outcome.seconds)}};
    const std::string row = "row " + std::to_string(chosen(arguments));
    if (arguments.has("--preview")) {
        rows.emplace_back("picture", on_one_line(arguments.text("--preview")) +
                                         ": as it is on the left, " + row + " on the right");
    }
    if (arguments.has("--output")) {
        head += " -> " + on_one_line(arguments.text("--output"));
        rows.emplace_back("written", row + " upward, on z = 0");
        rows.emplace_back("verified", "read back, " +
                                          counted(outcome.written_triangles, "triangle") +
                                          " as written, and measured again");
    }
    return head + "\n" + orientation_table(arguments, outcome.report) + "\n" + table_text(rows);
}

Json to_json(const Orientation& row) {
    return {{"up", {row.up.x, row.up.y, row.up.z}},
            {"score", row.score()},
            {"cost", row.cost},
            {"support_volume", volume_json(row.support_volume)},
            {"touched_area", volume_json(row.scar_area)},
            {"contact_area", volume_json(row.contact_area)},
            {"tilt", row.tilt},
            {"height", volume_json(row.height)}};
}

Json to_json(const Arguments& arguments, const OrientOutcome& outcome) {
    Json json = {{"file", arguments.text("IN")}};
    for (const auto& [option, key] : {std::pair{"--output", "output"}, {"--preview", "preview"}}) {
        if (arguments.has(option)) json[key] = arguments.text(option);
    }
    if (!outcome.failure.empty()) {
        json["error"] = outcome.failure;
        return json;
    }
    const OrientationReport& report = outcome.report;
    json["as_is"] = to_json(report.as_is);
    json["orientations"] = Json::array();
    for (std::size_t i = 0; i < listed(arguments, report); ++i) {
        json["orientations"].push_back(to_json(report.best[i]));
    }
    if (arguments.has("--up")) json["asked"] = to_json(report.asked);
    if (uses_row(arguments)) json["chosen"] = chosen(arguments);
    json["directions"] = report.directions_measured;
    json["seconds"] = outcome.seconds;
    json["warnings"] = warnings_json(outcome);
    return json;
}

// Fills the report; fails the outcome when there is nothing to choose from.
void search(TriMesh& mesh, const Arguments& arguments, Progress progress, OrientOutcome& outcome) {
    const Timer timer;
    RunLog log;
    // The values of the search go from 20 to 80.
    ProgressObserver scaled = [&](std::uint32_t percent) { progress.set(45 + percent * 3 / 8); };
    RunContext run{Progress(nullptr, &scaled), log};
    OrientOptions options;
    options.measures_all_rows = true;
    if (arguments.has("--up")) options.up = arguments.vector("--up");
    outcome.report = find_orientations(mesh, run, options);
    outcome.seconds = timer.seconds();
    const OrientationReport& report = outcome.report;
    const std::string& source = arguments.text("IN");
    if (report.best.empty()) {
        return outcome.fail(Flawed, source +
                                        ": no triangle has an area and finite coordinates, so that "
                                        "all directions are the same; nothing is written");
    }
    if (uses_row(arguments) && chosen(arguments) > report.best.size()) {
        return outcome.fail(Usage, source + ": only " + counted(report.best.size(), "direction") +
                                       " found; --choose takes 1 to " +
                                       std::to_string(report.best.size()));
    }
    if (!is_closed(mesh)) {
        outcome.warnings.emplace_back(
            "the model is open: what looks down with nothing below it is taken to need support; "
            "repair it for a better answer");
    }
    if (report.as_is.cost - report.best.front().cost < kNotableGain) {
        outcome.warnings.emplace_back("it is best as it is: turning it gains next to nothing");
    }
    if (uses_row(arguments) && !(report.best[chosen(arguments) - 1].tilt > 0)) {
        outcome.warnings.emplace_back("row " + std::to_string(chosen(arguments)) +
                                      " falls over by itself; hold it with supports");
    }
}

// A pose on the plate, in colours.
struct Pose {
    TriMesh mesh;
    picture::Model model;

    Pose(const TriMesh& from, Vec3d up) : mesh(from) {
        turn_up(mesh, up);
        PoseFaces faces = faces_of_pose(mesh, {0, 0, 1});
        model.mesh = &mesh;
        model.overlay.faces = {{kLeaning, std::move(faces.leaning)},
                               {kHeld, std::move(faces.held)},
                               {kResting, std::move(faces.resting)}};
    }
};

Array<char> draw(const TriMesh& mesh, const Orientation& row) {
    const Pose as_is(mesh, {0, 0, 1});
    const Pose best(mesh, row.up);
    picture::RenderOptions options;
    options.width = (kPictureWidth - kLineWidth) / 2;
    options.height = kPictureHeight;
    for (const Pose* pose : {&as_is, &best}) {
        const Box3f box = finite_bounds(pose->mesh);
        options.frame.widen(to_double(box.low));
        options.frame.widen(to_double(box.high));
    }
    const picture::Image left = picture::render({as_is.model}, options);
    return picture::encode_png(beside(left, picture::render({best.model}, options)));
}

void draw_preview(const TriMesh& mesh, const Arguments& arguments, OrientOutcome& outcome) {
    if (!arguments.has("--preview") || !outcome.failure.empty()) return;
    const Array<char> png = draw(mesh, outcome.report.best[chosen(arguments) - 1]);
    const Status status = write_file(arguments.text("--preview"), png);
    if (!status.ok()) outcome.fail(CannotWrite, status.text());
}

// Rounding moves every corner by a little: what touched may cross, what was tiny may be gone.
void compare(const TriMesh& before, const TriMesh& after, OrientOutcome& outcome) {
    const std::size_t gone = live_face_count(before) - live_face_count(after);
    if (gone != 0) {
        outcome.lost.push_back(counted(gone, "triangle") +
                               " dropped: too small for the coordinates of 32-bit floats");
    }
    const SelfIntersections were = find_self_intersections(before, kListedPairs);
    const SelfIntersections are = find_self_intersections(after, kListedPairs);
    std::size_t fresh = are.count > were.count ? are.count - were.count : 0;
    if (gone == 0 && were.count == were.pairs.size() && are.count == are.pairs.size()) {
        std::vector<FacePair> added;
        std::set_difference(are.pairs.begin(), are.pairs.end(), were.pairs.begin(),
                            were.pairs.end(), std::back_inserter(added),
                            [](const FacePair& a, const FacePair& b) {
                                return std::pair(a.first, a.second) < std::pair(b.first, b.second);
                            });
        fresh = added.size();
    }
    if (fresh == 0) return;
    outcome.lost.push_back(counted(fresh, "pair") +
                           " of faces cross that the model did not have: they lay so near to each "
                           "other that rounding to 32-bit floats brought them together");
}

// A share of the greater one.
bool is_near(double a, double b, double share) {
    return std::abs(a - b) <= share * std::max(std::abs(a), std::abs(b));
}

void inspect(const TriMesh& written, double area_before, const Orientation& row,
             OrientOutcome& outcome) {
    const Orientation again = measure_orientation(written, {0, 0, 1});
    const Box3f box = finite_bounds(written);
    const auto doubt = [&](const std::string& text) {
        outcome.status = Flawed;
        outcome.lost.push_back(text + "; do not print it, and tell the developers");
    };
    if (box.low.z != 0 || !is_near(again.height, row.height, kSameLength)) {
        doubt("the model written stands from z " + human_number(double{box.low.z}) + " and is " +
              human_number(again.height) + " high instead of " + human_number(row.height));
    } else if (!is_near(surface_area(written), area_before, kSameLength) ||
               std::abs(again.cost - row.cost) > kSameCost + kSameCostShare * row.cost) {
        doubt("the model written is not the one chosen: it needs " +
              human_number(again.support_volume) + " of support instead of " +
              human_number(row.support_volume));
    }
}

void orient(const Arguments& arguments, Progress progress, OrientOutcome& outcome) {
    if (!arguments.has("--output")) {
        LoadedModel model;
        const std::string failure = load_model(arguments.text("IN"), progress, model);
        if (!failure.empty()) return outcome.fail(CannotRead, failure);
        outcome.warnings = load_warnings(model);
        try {
            search(model.mesh, arguments, progress, outcome);
            draw_preview(model.mesh, arguments, outcome);
        } catch (...) {
            outcome.fail(CannotRead, failure_text(arguments.text("IN")));
        }
        return;
    }
    double area = 0;
    Outcome failed;
    const auto change = [&](LoadedModel& model) -> std::string {
        search(model.mesh, arguments, progress, outcome);
        draw_preview(model.mesh, arguments, outcome);
        failed = outcome;
        if (!failed.failure.empty()) return failed.failure;
        const TriMesh before = model.mesh;
        turn_up(model.mesh, outcome.report.best[chosen(arguments) - 1].up);
        compare(before, model.mesh, outcome);
        outcome.written_triangles = live_face_count(model.mesh);
        area = surface_area(before);
        return {};
    };
    const auto look = [&](LoadedModel& back) {
        inspect(back.mesh, area, outcome.report.best[chosen(arguments) - 1], outcome);
    };
    rewrite_model(arguments, progress, {change, look}, outcome);
    if (!failed.failure.empty()) outcome.fail(failed.status, failed.failure);
}

// What is wrong with the options; empty when nothing is.
std::string usage_error(const Arguments& arguments) {
    for (const char* option : {"--list", "--choose"}) {
        if (arguments.has(option) &&
            arguments.number(option) != std::floor(arguments.number(option))) {
            return "orient: " + std::string(option) + " takes a whole number";
        }
    }
    if (arguments.has("--choose") && !uses_row(arguments)) {
        return "orient: --choose takes the row to write or draw; give --output or --preview";
    }
    if (arguments.has("--up")) {
        const Vec3d up = arguments.vector("--up");
        if (!is_finite(up) || up == Vec3d{}) return "orient: --up takes a direction, such as 0,0,1";
    }
    if (arguments.has("--preview") && !has_extension(arguments.text("--preview"), ".png")) {
        return arguments.text("--preview") +
               ": only PNG can be drawn; give a name that ends in .png";
    }
    return {};
}

int run_orient(const Arguments& arguments, Console& console) {
    if (const std::string error = usage_error(arguments); !error.empty()) {
        console.error(error);
        return Usage;
    }
    if (arguments.has("--output") && !is_model_name(arguments.text("--output"), console)) {
        return Usage;
    }
    ProgressLine line(console, arguments.text("IN"));
    OrientOutcome outcome;
    orient(arguments, line.progress(), outcome);
    line.stop();
    return tell(
        outcome, arguments, console, [&] { return to_json(arguments, outcome); },
        [&] { return table(arguments, outcome); });
}

OptionSpec optional_output() {
    OptionSpec option = model_output();
    option.is_required = false;
    return option;
}

}  // namespace

OperationSpec orient_operation() {
    return {
        .name = "orient",
        .summary = "Tell which side of a model to print downward",
        .description =
            "Finds the directions in which a model needs the least support, is scarred least and "
            "stands firmly. Prints them beside the pose as it is; writes the model stood up in one "
            "of them, its lowest point on z = 0, when --output is given.",
        .positionals = {kModelFile},
        .options = {{.name = "--list",
                     .type = ValueType::Number,
                     .placeholder = "COUNT",
                     .unit = "directions, else 5, or the one written",
                     .low = 1,
                     .high = kMostRows,
                     .help = "How many to print"},
                    optional_output(),
                    {.name = "--choose",
                     .type = ValueType::Number,
                     .placeholder = "ROW",
                     .unit = "of the table, else 1",
                     .low = 1,
                     .high = kMostRows,
                     .help = "Direction to write and to draw"},
                    {.name = "--up",
                     .type = ValueType::Vector,
                     .placeholder = "X,Y,Z",
                     .help = "Measure this direction, too"},
                    {.name = "--preview",
                     .type = ValueType::Text,
                     .placeholder = "PNG",
                     .help = "Draw the model as it is and stood up: red needs support, green "
                             "rests on the plate"},
                    json_object()},
        .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
        .run = run_orient,
    };
}

}  // namespace povmesh::cli
