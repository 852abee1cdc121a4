// povmesh lampshade: turns a model into a shade for a lamp.
#include "design/lampshade.h"
#include "cli/commands.h"
#include "cli/shared_options.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "base/timer.h"
#include "cli/change.h"
#include "cli/picture_file.h"
#include "cli/section.h"
#include "cli/solid_surface.h"
#include "job/cavity.h"
#include "job/new_faults.h"
#include "job/numbers.h"
#include "mesh/bounds.h"
#include "mesh/compact.h"

namespace povmesh::cli {
namespace {

// Pixels of one picture.
constexpr std::uint32_t kSide = 600;

// A model hardly longer than the wall is thick was not meant in that unit.
constexpr double kSmallShare = 0.1;

// How far the mean wall may be off, and how much of the inner wall may be uneven, untold.
constexpr double kMeanWithin = 0.02;
constexpr double kMostUneven = 0.01;

// A cut that takes off more of the height is told.
constexpr double kNotableCut = 0.25;

// The words that --top takes instead of a level.
struct TopWord {
    std::string_view word;
    LampshadeTop top;
};
constexpr TopWord kTopWords[] = {
    {"auto", LampshadeTop::Auto}, {"open", LampshadeTop::Open}, {"closed", LampshadeTop::Closed}};

std::string rounded(double number) {
    if (!(std::abs(number) > 0)) return "0";
    const double step = std::pow(10.0, std::floor(std::log10(std::abs(number))) - 3);
    return human_number(std::round(number / step) * step);
}

std::string place_of(Vec3d p) {
    return place_text({static_cast<float>(p.x), static_cast<float>(p.y), static_cast<float>(p.z)});
}

std::string percent_text(double share) {
    return human_number(std::round(share * 1000) / 10) + " %";
}

// False, and told, when the value is none.
bool read_options(const Arguments& arguments, LampshadeOptions& options, Console& console) {
    options.measures = true;
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

std::string level_failure(const TriMesh& mesh, const LampshadeOptions& options) {
    const Box3f box = finite_bounds(mesh);
    for (const auto& [name, level] :
         {std::pair{"--bottom ", options.bottom}, std::pair{"--top ", options.top_level}}) {
        if (!level || (*level > double{box.low.z} && *level < double{box.high.z})) continue;
        return name + human_number(*level) + " lies not within the model, whose levels go from " +
               human_number(double{box.low.z}) + " to " + human_number(double{box.high.z});
    }
    return {};
}

std::string failure_of(const LampshadeReport& made, double thickness, TriMesh& model) {
    const std::string wall = "a wall of " + human_number(thickness);
    switch (made.status) {
        case LampshadeStatus::Made:
            return {};
        case LampshadeStatus::NoModel:
            return "the model encloses no volume, or is inside out; repair it first";
        case LampshadeStatus::Failed:
            return "no lampshade can be made: " + made.why.text();
        case LampshadeStatus::Thin:
            break;
    }
    if (made.overlapped_pieces != 0) {
        return "no lampshade can be made: bodies overlap or are inside out where it would be "
               "hollow, " +
               place_of(made.overlap) + "; join them with 'povmesh wrap' first";
    }
    const std::string otherwise = "take a thinner wall";
    return "the model is too thin: " + wall + " leaves nothing inside" +
           (made.closed_pieces != 0 ? " that reaches an opening; " : "; ") +
           cure_of(model, kSmallShare * thickness, otherwise);
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
    text += "area " + rounded(area) + ", ";
    text += openings.size() > 1 ? "circle in the narrowest " : "largest circle ";
    return text + "of diameter " + rounded(2 * narrowest.radius) + " " + place_of(narrowest.centre);
}

std::string cut_text(double below, double above) {
    std::string text;
    if (below > 0) text = rounded(below) + " below";
    if (above > 0) text += (text.empty() ? "" : ", ") + rounded(above) + " above";
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

void add_openings(const LampshadeReport& made, ChangeReport& report) {
    std::vector<const LampshadeOpening*> bottoms;
    std::vector<const LampshadeOpening*> tops;
    double below = 0;
    double above = 0;
    Json shades = Json::array();
    for (const LampshadeShade& shade : made.shades) {
        bottoms.push_back(&shade.bottom);
        below = std::max(below, shade.bottom.level - shade.low);
        const double cut = shade.bottom.level - shade.low;
        if (cut > kNotableCut * (shade.high - shade.low)) {
            report.warnings.push_back("the lowest " + rounded(cut) +
                                      " of the model are cut away; --bottom sets another level");
        }
        Json json = {{"bottom", opening_json(shade.bottom)}, {"top", nullptr}};
        if (shade.top) {
            tops.push_back(&*shade.top);
            above = std::max(above, shade.high - shade.top->level);
            json["top"] = opening_json(*shade.top);
        }
        shades.push_back(std::move(json));
    }
    report.rows.emplace_back("opening below", opening_text(bottoms));
    report.rows.emplace_back("opening above", opening_text(tops));
    report.rows.emplace_back("cut off", cut_text(below, above));
    report.json["shades"] = std::move(shades);
    report.json["cut_below"] = below;
    report.json["cut_above"] = above;
}

void add_pieces(const LampshadeReport& made, ChangeReport& report) {
    const std::size_t solid = made.models - made.shades.size();
    report.json["models"] = made.models;
    report.json["solid_models"] = solid;
    report.json["solid_pieces"] = made.closed_pieces + made.overlapped_pieces;
    if (solid != 0) {
        report.warnings.push_back(counted(solid, "model") + " of " + std::to_string(made.models) +
                                  (solid == 1 ? " is" : " are") +
                                  " too thin for the wall, or open, and stays solid");
    }
    if (made.closed_pieces != 0) {
        report.warnings.push_back(counted(made.closed_pieces, "piece") + " of the inside " +
                                  (made.closed_pieces == 1 ? "has" : "have") +
                                  " no way to an opening and stays solid");
    }
    if (made.overlapped_pieces != 0) {
        report.warnings.push_back(
            "bodies overlap, or are inside out, " + place_of(made.overlap) +
            ": it stays solid there, and walls stand inside; 'povmesh wrap' joins them");
    }
    if (made.loose_pieces != 0) {
        report.warnings.push_back(counted(made.loose_pieces, "wall") +
                                  " around a cavity of the model hangs free inside");
    }
}

void add_wall(const LampshadeReport& made, double thickness, ChangeReport& report) {
    report.rows.insert(report.rows.end(), {{"cell", human_number(made.cell)},
                                           {"smallest wall", rounded(made.smallest_wall)},
                                           {"mean wall", rounded(made.mean_wall)},
                                           {"ceilings", "area " + rounded(made.ceiling_area)}});
    report.json.update({{"cell", made.cell},
                        {"smallest_wall", made.smallest_wall},
                        {"mean_wall", made.mean_wall},
                        {"uneven_percent", made.uneven_share * 100},
                        {"ceiling_area", made.ceiling_area}});
    if (made.smallest_wall < kLeastLampshadeWall * thickness) {
        report.doubts.push_back("the wall is only " + rounded(made.smallest_wall) +
                                " thick, the inner wall " + place_of(made.thinnest));
    }
    const bool is_off = std::abs(made.mean_wall - thickness) > kMeanWithin * thickness;
    if (is_off || made.uneven_share > kMostUneven) {
        report.warnings.push_back(percent_text(made.uneven_share) +
                                  " of the inner wall are more than 6 % thicker or thinner than "
                                  "asked for; --cell takes smaller cells");
    }
}

void check_faults(const TriMesh& before, TriMesh& mesh, ChangeReport& report) {
    TriMesh model = before;
    NewFaults faults = find_new_faults(model, mesh);
    // Rims and inner walls have thin triangles: none is degenerate.
    faults.slivers = {};
    add_faults(faults, 0, 0, 0, report);
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

ChangeReport make(const Arguments& arguments, TriMesh& mesh, const LampshadeOptions& options,
                  Progress progress, std::string& picture_failure) {
    const double thickness = arguments.number("--thickness");
    ChangeReport report;
    report.failure = level_failure(mesh, options);
    if (!report.failure.empty()) return report;
    const Timer timer;
    RunLog log;
    // The values of the operation itself go from 10 to 90.
    ProgressObserver scaled = [&](std::uint32_t percent) { progress.set(50 + percent / 4); };
    RunContext run{Progress(nullptr, &scaled), log};
    const TriMesh before = mesh;
    const LampshadeReport made = lampshade(mesh, static_cast<float>(thickness), run, options);
    report.seconds = timer.seconds();
    report.failure = failure_of(made, thickness, mesh);
    if (!report.failure.empty()) return report;
    compact(mesh);
    add_openings(made, report);
    add_wall(made, thickness, report);
    add_pieces(made, report);
    check_faults(before, mesh, report);
    if (arguments.has("--preview")) {
        const Status status =
            write_file(arguments.text("--preview"), picture::encode_png(picture_of(mesh, made)));
        if (!status.ok()) picture_failure = status.text();
    }
    return report;
}

int run_lampshade(const Arguments& arguments, Console& console) {
    if (!are_above_zero(arguments, {"--thickness", "--cell"}, "lampshade", console)) return Usage;
    LampshadeOptions options;
    if (!read_options(arguments, options, console)) return Usage;
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
