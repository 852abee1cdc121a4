// povmesh orient: in which directions a model is best printed, and the model stood up in one.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "cli/change.h"
#include "cli/commands.h"
#include "cli/measures.h"
#include "cli/model.h"
#include "cli/picture_file.h"
#include "cli/pieces.h"
#include "cli/shared_options.h"
#include "job/numbers.h"
#include "job/orient.h"
#include "job/picture/picture.h"
#include "mesh/bounds.h"
#include "mesh/volume.h"
#include "orient/pose.h"

namespace povmesh::cli {
namespace {

constexpr std::size_t kListed = 5;  // rows when nothing else is asked for
constexpr double kMostRows = 64;

// Pixels of each of the two poses.
constexpr std::uint32_t kPictureWidth = 1202;
constexpr std::uint32_t kPictureHeight = 600;
constexpr picture::Colour kHeld = picture::palette::kFlipped;
constexpr picture::Colour kLeaning{238, 164, 140};
constexpr picture::Colour kResting{40, 150, 60};

struct OrientOutcome : Outcome {
    job::OrientDone done;
    std::size_t written_triangles = 0;
};

// Which row is chosen, from 1 on.
std::size_t chosen(const Arguments& arguments) {
    return arguments.has("--choose") ? static_cast<std::size_t>(arguments.number("--choose")) : 1;
}

const Orientation& row_of(const Arguments& arguments, const OrientOutcome& outcome) {
    return outcome.done.report.best[chosen(arguments) - 1];
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
    std::vector<Row> rows = {
        {"measured", counted(outcome.done.report.directions_measured, "direction")},
        {"time", seconds_text(outcome.done.seconds)}};
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
    return head + "\n" + orientation_table(arguments, outcome.done.report) + "\n" +
           table_text(rows);
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
    const OrientationReport& report = outcome.done.report;
    json["as_is"] = to_json(report.as_is);
    json["orientations"] = Json::array();
    for (std::size_t i = 0; i < listed(arguments, report); ++i) {
        json["orientations"].push_back(to_json(report.best[i]));
    }
    if (arguments.has("--up")) json["asked"] = to_json(report.asked);
    if (uses_row(arguments)) json["chosen"] = chosen(arguments);
    json["directions"] = report.directions_measured;
    json["seconds"] = outcome.done.seconds;
    json["warnings"] = warnings_json(outcome);
    return json;
}

// Fills the report; fails the outcome when there is nothing to choose from.
void search(TriMesh& mesh, const Arguments& arguments, Progress progress, OrientOutcome& outcome) {
    job::OrientJob job;
    if (arguments.has("--up")) job.up = arguments.vector("--up");
    if (uses_row(arguments)) job.choose = chosen(arguments);
    const Status status = job::orient(mesh, job, progress, outcome.done);
    const std::vector<std::string>& warnings = outcome.done.warnings;
    outcome.warnings.insert(outcome.warnings.end(), warnings.begin(), warnings.end());
    if (status.ok()) return;
    const bool is_usage = status.code() == StatusCode::BadOption;
    outcome.fail(is_usage ? Usage : Flawed, arguments.text("IN") + ": " + status.text());
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
    const Array<char> png = draw(mesh, row_of(arguments, outcome));
    const Status status = write_file(arguments.text("--preview"), png);
    if (!status.ok()) outcome.fail(CannotWrite, status.text());
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
        area = surface_area(model.mesh);
        const Remarks remarks = job::stand_up(model.mesh, row_of(arguments, outcome));
        outcome.lost.insert(outcome.lost.end(), remarks.warnings.begin(), remarks.warnings.end());
        outcome.written_triangles = live_face_count(model.mesh);
        return {};
    };
    const auto look = [&](LoadedModel& back) {
        const Remarks remarks = job::check_pose(back.mesh, area, row_of(arguments, outcome));
        outcome.lost.insert(outcome.lost.end(), remarks.doubts.begin(), remarks.doubts.end());
        if (!remarks.doubts.empty()) outcome.status = Flawed;
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
