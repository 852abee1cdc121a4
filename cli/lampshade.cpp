// povmesh lampshade: turns a model into a shade for a lamp.
#include "job/lampshade.h"
#include "cli/commands.h"
#include "cli/shared_options.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "cli/change.h"
#include "cli/picture_file.h"
#include "cli/section.h"
#include "cli/solid_surface.h"
#include "job/findings.h"
#include "job/numbers.h"
#include "mesh/bounds.h"

namespace povmesh::cli {
namespace {

// Pixels of one picture.
constexpr std::uint32_t kSide = 600;

// The words that --top takes instead of a level.
struct TopWord {
    std::string_view word;
    LampshadeTop top;
};
constexpr TopWord kTopWords[] = {
    {"auto", LampshadeTop::Auto}, {"open", LampshadeTop::Open}, {"closed", LampshadeTop::Closed}};

// False, and told, when the value is none.
bool read_options(const Arguments& arguments, LampshadeOptions& options, Console& console) {
    options.all_triangles = arguments.has("--all-triangles");
    if (arguments.has("--cell")) options.cell = arguments.number("--cell");
    if (arguments.has("--bottom")) options.bottom = arguments.number("--bottom");
    const std::string& top = arguments.text("--top");
    for (const TopWord& known : kTopWords) {
        if (top != known.word) continue;
        options.top = known.top;
        return true;
    }
    const double level = parse_number(top);
    if (std::isfinite(level)) options.top_level = level;
    if (!options.top_level) {
        console.error("lampshade: --top must be auto, open, closed or a level, not '" + top + "'");
    } else if (options.bottom && *options.bottom >= level) {
        console.error("lampshade: --top must be higher than --bottom");
    } else {
        return true;
    }
    return false;
}

// One line about the openings at one end of all shades.
std::string opening_text(const std::vector<const LampshadeOpening*>& openings) {
    if (openings.empty()) return "none";
    const auto& narrowest =
        **std::min_element(openings.begin(), openings.end(),
                           [](const auto* a, const auto* b) { return a->radius < b->radius; });
    double area = 0;
    for (const LampshadeOpening* opening : openings) area += opening->area;
    std::string text = openings.size() > 1 ? std::to_string(openings.size()) + " openings, " : "";
    text += "area " + four_digits(area) + ", ";
    text += openings.size() > 1 ? "circle in the narrowest " : "largest circle ";
    return text + "of diameter " + four_digits(2 * narrowest.radius) + " " +
           place_text(narrowest.centre);
}

std::string cut_text(double below, double above) {
    std::string text;
    if (below > 0) text = four_digits(below) + " below";
    if (above > 0) text += (text.empty() ? "" : ", ") + four_digits(above) + " above";
    return text.empty() ? "nothing" : text;
}

Json opening_json(const LampshadeOpening& opening) {
    return {{"level", opening.level},
            {"area", opening.area},
            {"cut", opening.is_cut},
            {"circle",
             {{"centre", {opening.centre.x, opening.centre.y, opening.centre.z}},
              {"diameter", 2 * opening.radius}}}};
}

void add_openings(const job::LampshadeDone& done, ChangeReport& report) {
    std::vector<const LampshadeOpening*> bottoms;
    std::vector<const LampshadeOpening*> tops;
    Json shades = Json::array();
    for (const LampshadeShade& shade : done.report.shades) {
        bottoms.push_back(&shade.bottom);
        Json json = {{"bottom", opening_json(shade.bottom)}, {"top", nullptr}};
        if (shade.top) {
            tops.push_back(&*shade.top);
            json["top"] = opening_json(*shade.top);
        }
        shades.push_back(std::move(json));
    }
    report.rows.emplace_back("opening below", opening_text(bottoms));
    report.rows.emplace_back("opening above", opening_text(tops));
    report.rows.emplace_back("cut off", cut_text(done.cut_below, done.cut_above));
    report.json["shades"] = std::move(shades);
    report.json["cut_below"] = done.cut_below;
    report.json["cut_above"] = done.cut_above;
}

void add_wall(const LampshadeReport& made, ChangeReport& report) {
    report.rows.insert(report.rows.end(), {{"cell", human_number(made.cell)},
                                           {"smallest wall", four_digits(made.smallest_wall)},
                                           {"mean wall", four_digits(made.mean_wall)},
                                           {"ceilings", "area " + four_digits(made.ceiling_area)}});
    report.json.update({{"cell", made.cell},
                        {"smallest_wall", made.smallest_wall},
                        {"mean_wall", made.mean_wall},
                        {"uneven_percent", made.uneven_share * 100},
                        {"ceiling_area", made.ceiling_area},
                        {"models", made.models},
                        {"solid_models", made.models - made.shades.size()},
                        {"solid_pieces", made.closed_pieces + made.overlapped_pieces}});
}

// Cut open through the circle of the first opening, and seen from below.
picture::Image picture_of(const TriMesh& mesh, const LampshadeReport& made) {
    picture::RenderOptions options;
    options.width = options.height = kSide;
    const Box3f bounds = finite_bounds(mesh);
    const Box3d box{to_double(bounds.low), to_double(bounds.high)};
    TriMesh opened = mesh;
    TriMesh caps;
    cut_open(opened, {1, made.shades.front().bottom.centre.y}, options.view, box, caps);
    picture::Scene scene(2);
    scene[0].mesh = &opened;
    scene[1].mesh = &caps;
    scene[1].colour = scene[1].inside = picture::palette::kSecondary;
    const picture::Image left = picture::render(scene, options);
    options.view = picture::View::Bottom;
    scene.resize(1);
    scene[0].mesh = &mesh;
    return beside(left, picture::render(scene, options));
}

ChangeReport make(const Arguments& arguments, TriMesh& mesh, const job::LampshadeJob& options,
                  Progress progress, std::string& picture_failure) {
    ChangeReport report;
    job::LampshadeDone done;
    report.failure = job::lampshade(mesh, options, progress, done).text();
    report.seconds = done.seconds;
    if (!report.failure.empty()) return report;
    static_cast<Remarks&>(report) = done;
    add_openings(done, report);
    add_wall(done.report, report);
    if (arguments.has("--preview")) {
        const Status status = write_file(arguments.text("--preview"),
                                         picture::encode_png(picture_of(mesh, done.report)));
        if (!status.ok()) picture_failure = status.text();
    }
    return report;
}

int run_lampshade(const Arguments& arguments, Console& console) {
    if (!are_above_zero(arguments, {"--thickness", "--cell"}, "lampshade", console)) return Usage;
    job::LampshadeJob options;
    options.thickness = arguments.number("--thickness");
    if (!read_options(arguments, options.options, console)) return Usage;
    if (arguments.has("--preview") && !has_extension(arguments.text("--preview"), ".png")) {
        console.error(arguments.text("--preview") +
                      ": only PNG can be drawn; give a name that ends in .png");
        return Usage;
    }
    std::string picture_failure;
    const int status = run_change(arguments, console, [&](TriMesh& mesh, Progress progress) {
        return make(arguments, mesh, options, progress, picture_failure);
    });
    if (picture_failure.empty()) return status;
    console.error(picture_failure);
    return CannotWrite;
}

}  // namespace

OperationSpec lampshade_operation() {
    return {
        .name = "lampshade",
        .summary = "Turn a model into a shade for a lamp",
        .description =
            "Hollows a model so that its wall has the same thickness everywhere and light shines "
            "through evenly, and opens it below, and above where it ends flat. What has no flat "
            "base that is wide enough inside is cut off level. The outside stays as it is.",
        .positionals = {kModelFile},
        .options = {model_output(),
                    {.name = "--thickness",
                     .type = ValueType::Number,
                     .placeholder = "THICKNESS",
                     .unit = "units of the file",
                     .low = 0,
                     .high = kNoLimit,
                     .is_required = true,
                     .help = "Thickness of the wall"},
                    {.name = "--bottom",
                     .type = ValueType::Number,
                     .placeholder = "LEVEL",
                     .unit = "units of the file",
                     .low = -kNoLimit,
                     .high = kNoLimit,
                     .help = "Cut off what is lower than this z, in place of the flat base or "
                             "the level at which the inside is wide enough"},
                    {.name = "--top",
                     .type = ValueType::Text,
                     .placeholder = "END",
                     .default_value = "auto",
                     .help = "auto: open where it ends flat and is wide inside; open: cut off "
                             "where it gets narrow inside; closed: a roof; or the z to cut off "
                             "at"},
                    cell_option("units of the file, else a quarter to a third of the thickness"),
                    all_triangles_option(),
                    {.name = "--preview",
                     .type = ValueType::Text,
                     .placeholder = "PNG",
                     .help = "Draw the shade cut open, and seen from below"},
                    json_object()},
        .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
        .run = run_lampshade,
    };
}

}  // namespace povmesh::cli
