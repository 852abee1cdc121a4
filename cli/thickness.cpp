// povmesh thickness: where walls are too thin to print, and gaps too narrow.
#include "job/thickness.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "base/convert.h"
#include "cli/commands.h"
#include "cli/measures.h"
#include "cli/model.h"
#include "cli/picture_file.h"
#include "cli/read_back.h"
#include "cli/shared_options.h"
#include "cli/thin_places.h"
#include "field/thickness_map.h"
#include "job/numbers.h"
#include "job/picture/picture.h"

namespace povmesh::cli {
namespace {

constexpr double kMostListed = 10000;

// Without the legend.
constexpr std::uint32_t kPictureWidth = 1088;
constexpr std::uint32_t kPictureHeight = 900;

struct ThicknessOutcome {
    ExitStatus status = Clean;
    std::string failure;  // why there is no result, as one line with the file
    std::size_t triangles = 0;
    std::vector<std::string> warnings;  // without the file
    job::ThicknessDone done;

    void fail(ExitStatus with, const std::string& text) {
        status = with;
        failure = text;
    }
};

ThicknessOptions options_of(const Arguments& arguments) {
    ThicknessOptions options;
    options.wall = arguments.number("--wall");
    if (arguments.has("--gap")) options.gap = arguments.number("--gap");
    return options;
}

picture::Image picture_of(const TriMesh& painted, std::uint32_t width) {
    picture::Model model;
    model.mesh = &painted;
    model.use_face_colours = true;
    model.colours_inside = true;
    picture::RenderOptions options;
    options.width = width;
    options.height = kPictureHeight;
    return picture::render({model}, options);
}

// The walls, and beside them the gaps if they were looked for.
picture::Image preview_of(const TriMesh& model, const job::ThicknessDone& done) {
    const picture::Image walls = picture_of(done.painted, kPictureWidth);
    const auto colour_of = [](double share) { return wall_colour(share); };
    picture::Image image = with_legend(walls, {"THIN", "THICK", colour_of});
    if (done.report.gaps.asked == 0) return image;
    const TriMesh grey = thickness_map(done.measured(model), done.report.gaps, gap_colour);
    const auto grey_of = [](double share) { return gap_colour(share); };
    return beside(image, with_legend(picture_of(grey, kPictureWidth), {"NARROW", "WIDE", grey_of}));
}

std::string write_map(const TriMesh& painted, const std::string& target) {
    TriMesh mesh = painted;
    std::string failure = save_model(mesh, target);
    LoadedModel back;
    return failure.empty() ? read_back(mesh, {}, target, back) : failure;
}

void measure_file(const Arguments& arguments, Progress progress, ThicknessOutcome& outcome) {
    const std::string& path = arguments.text("IN");
    LoadedModel model;
    const std::string failure = load_model(path, progress, model);
    if (!failure.empty()) return outcome.fail(CannotRead, failure);
    outcome.triangles = model.triangles;
    outcome.warnings = load_warnings(model);
    try {
        const bool is_written = arguments.has("--output") || arguments.has("--preview");
        const Status status =
            job::thickness(model.mesh, {.options = options_of(arguments), .paints = is_written},
                           progress, outcome.done);
        const std::vector<std::string>& warnings = outcome.done.warnings;
        outcome.warnings.insert(outcome.warnings.end(), warnings.begin(), warnings.end());
        if (!status.ok()) return outcome.fail(Flawed, path + ": " + status.text());
        if (outcome.done.report.is_thin()) outcome.status = Flawed;
        if (!is_written) return;
        std::string write_failure;
        if (arguments.has("--output")) {
            write_failure = write_map(outcome.done.painted, arguments.text("--output"));
        }
        if (write_failure.empty() && arguments.has("--preview")) {
            write_failure = write_file(arguments.text("--preview"),
                                       picture::encode_png(preview_of(model.mesh, outcome.done)))
                                .text();
        }
        if (!write_failure.empty()) outcome.fail(CannotWrite, write_failure);
    } catch (...) {
        outcome.fail(CannotRead, failure_text(path));
    }
}

std::string share_text(const ThinPlaces& found) {
    const double percent = std::round(found.share * 1000) / 10;
    const std::string text = percent == 0 ? "less than 0.05" : human_number(percent);
    return text + " % of the surface, area " + human_number(found.area);
}

std::string extent_text(const ThinPlace& place) {
    Box3f box;
    for (const Vec3d& p : {place.box.low, place.box.high}) {
        box.widen({narrow_to_float(p.x), narrow_to_float(p.y), narrow_to_float(p.z)});
    }
    return size_text(box);
}

void add_rows(const ThinPlaces& found, const std::string& what, const std::string& places,
              std::size_t listed, std::vector<Row>& rows) {
    if (found.count == 0) {
        rows.emplace_back(what,
                          std::isfinite(found.smallest)
                              ? human_number(static_cast<double>(found.smallest)) + " at the least"
                              : human_number(2 * found.asked) + " or more everywhere");
        return;
    }
    rows.emplace_back(what, places + ", " + share_text(found));
    for (std::size_t i = 0; i < found.places.size() && i < listed; ++i) {
        const ThinPlace& place = found.places[i];
        rows.emplace_back("  place", human_number(place.smallest) + " " +
                                         place_text(told_point(place)) + ", area " +
                                         human_number(place.area) + ", size " + extent_text(place));
    }
    const std::size_t untold = found.count - std::min(listed, found.places.size());
    if (untold != 0) rows.emplace_back("", "and " + counted(untold, "smaller place"));
}

std::string verdict_of(const ThicknessReport& report) {
    std::string text;
    if (report.walls.count != 0) text = thin_text(report.walls);
    if (report.gaps.count != 0) text += (text.empty() ? "" : ", ") + narrow_text(report.gaps);
    if (!text.empty()) return text;
    return report.gaps.asked != 0 ? "thick and wide enough" : "thick enough";
}

std::string table(const Arguments& arguments, const ThicknessOutcome& outcome) {
    const auto listed = saturate_to<std::size_t>(arguments.number("--list"));
    const ThicknessReport& report = outcome.done.report;
    std::vector<Row> rows = {{"triangles", with_separators(outcome.triangles)},
                             {"measured at", counted(report.walls.pieces.size(), "place")}};
    add_rows(report.walls, "walls", thin_text(report.walls), listed, rows);
    if (report.gaps.asked != 0) {
        add_rows(report.gaps, "gaps", narrow_text(report.gaps), listed, rows);
    }
    rows.emplace_back("verdict", verdict_of(report));
    rows.emplace_back("time", seconds_text(outcome.done.seconds));
    return on_one_line(arguments.text("IN")) + "\n" + table_text(rows);
}

Json to_json(const Arguments& arguments, const ThicknessOutcome& outcome) {
    Json json = {{"file", arguments.text("IN")}};
    if (arguments.has("--output")) json["output"] = arguments.text("--output");
    if (!outcome.failure.empty()) {
        json["error"] = outcome.failure;
        return json;
    }
    const auto listed = saturate_to<std::size_t>(arguments.number("--list"));
    const ThicknessReport& report = outcome.done.report;
    json["wall"] = thin_json(report.walls, listed);
    json["gap"] = report.gaps.asked != 0 ? thin_json(report.gaps, listed) : Json();
    json["samples"] = report.walls.pieces.size();
    json["seconds"] = outcome.done.seconds;
    json["warnings"] = outcome.warnings;
    return json;
}

// What is wrong with the command line; empty when nothing is.
std::string usage_error(const Arguments& arguments) {
    for (const char* option : {"--wall", "--gap"}) {
        if (arguments.has(option) && !(arguments.number(option) > 0)) {
            return "thickness: " + std::string(option) + " takes a length above 0";
        }
    }
    if (arguments.has("--output") && !has_extension(arguments.text("--output"), ".obj")) {
        return arguments.text("--output") +
               ": only OBJ files keep colours; give a name that ends in .obj";
    }
    if (arguments.has("--preview") && !has_extension(arguments.text("--preview"), ".png")) {
        return arguments.text("--preview") +
               ": only PNG can be drawn; give a name that ends in .png";
    }
    return {};
}

int run_thickness(const Arguments& arguments, Console& console) {
    if (const std::string error = usage_error(arguments); !error.empty()) {
        console.error(error);
        return Usage;
    }
    ProgressLine line(console, arguments.text("IN"));
    ThicknessOutcome outcome;
    measure_file(arguments, line.progress(), outcome);
    line.stop();
    if (!outcome.failure.empty()) console.error(outcome.failure);
    if (arguments.has("--json")) {
        console.print(json_text(to_json(arguments, outcome)));
    } else if (outcome.failure.empty()) {
        warn_of(arguments.text("IN"), outcome.warnings, console);
        console.print(table(arguments, outcome));
    }
    return outcome.status;
}

}  // namespace

OperationSpec thickness_operation() {
    return {
        .name = "thickness",
        .summary = "Tell where walls are too thin",
        .description =
            "Measures the walls of a model with balls that touch it from inside, and the gaps "
            "between them from outside; tells where they are thinner or narrower than asked. "
            "Changes nothing; writes a coloured model or a picture on request.",
        .positionals = {kModelFile},
        .options = {{.name = "--wall",
                     .type = ValueType::Number,
                     .placeholder = "WALL",
                     .unit = "units of the file",
                     .low = 0,
                     .high = kNoLimit,
                     .is_required = true,
                     .help = "Thickness that walls should have"},
                    {.name = "--gap",
                     .type = ValueType::Number,
                     .placeholder = "GAP",
                     .unit = "units of the file",
                     .low = 0,
                     .high = kNoLimit,
                     .help = "Look for gaps, too, that are narrower than this"},
                    {.name = "--list",
                     .type = ValueType::Number,
                     .placeholder = "COUNT",
                     .default_value = "5",
                     .low = 0,
                     .high = kMostListed,
                     .help = "Tell that many places, the largest first"},
                    {.name = "--output",
                     .short_name = "-o",
                     .type = ValueType::Text,
                     .placeholder = "OUT",
                     .help = "Write the model in colours, red where it is thin; the name ends in "
                             ".obj"},
                    {.name = "--preview",
                     .type = ValueType::Text,
                     .placeholder = "PNG",
                     .help = "Draw a picture of it with a legend"},
                    json_object()},
        .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
        .run = run_thickness,
    };
}

}  // namespace povmesh::cli
