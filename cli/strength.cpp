// povmesh strength: colours that tell where a model is weak.
#include "job/strength.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cli/change.h"
#include "cli/commands.h"
#include "cli/model.h"
#include "cli/picture_file.h"
#include "cli/shared_options.h"
#include "job/numbers.h"
#include "job/picture/picture.h"

namespace povmesh::cli {
namespace {

constexpr std::uint32_t kPictureWidth = 1088;  // without the legend
constexpr std::uint32_t kPictureHeight = 900;

const job::NamedLoad& load_named(const std::string& name) {
    return *std::find_if(job::kStrengthLoads.begin(), job::kStrengthLoads.end() - 1,
                         [&](const job::NamedLoad& load) { return name == load.name; });
}

double rounded(double value, double unit) {
    return std::round(value / unit) * unit;
}

std::string percent(double share) {
    return human_number(rounded(100 * share, 0.1)) + " %";
}

// Which shares of the highest energy are cyan, green, yellow and red.
void tell_scale(const StrengthReport& strength, ChangeReport& report) {
    constexpr std::array<const char*, kScaleSteps.size()> kColours = {"cyan", "green", "yellow",
                                                                      "red"};
    if (!strength.is_scale_by_quantiles) return;
    report.json["scale"] = Json::array();
    std::string text;
    for (std::size_t i = 0; i < kColours.size(); ++i) {
        const double share = double{strength.steps_of_scale[i]} / double{strength.highest};
        text += std::string(i == 0 ? "" : ", ") + kColours[i] + " " +
                human_number(100 * kScaleSteps[i].below) + " %";
        report.json["scale"].push_back(
            {{"colour", kColours[i]}, {"below", kScaleSteps[i].below}, {"share", share}});
    }
    const double red = double{strength.steps_of_scale.back()} / double{strength.highest};
    report.rows.emplace_back("scale", "by how much of the surface is stronger: " + text + ", or " +
                                          percent(red) + " of the highest energy");
}

void tell_places(const std::vector<job::WeakPlace>& places, ChangeReport& report) {
    std::string label = "weakest";
    report.json["weakest"] = Json::array();
    for (const job::WeakPlace& weak : places) {
        const auto [x, y, z] = to_double(weak.place);
        report.rows.emplace_back(
            label, human_number(rounded(x, 1e-3)) + ", " + human_number(rounded(y, 1e-3)) + ", " +
                       human_number(rounded(z, 1e-3)) + "   " + percent(weak.share));
        report.json["weakest"].push_back({{"place", {x, y, z}}, {"share", weak.share}});
        label = "then";
    }
    if (places.empty()) report.rows.emplace_back("weakest", "no place stands out");
}

ChangeReport report_of(const StrengthReport& strength, const std::string& load, bool is_fem) {
    ChangeReport report;
    if (!is_fem) {
        report.rows = {{"weak sections", std::to_string(strength.sections)}};
        report.json = {{"method", "sections"}, {"sections", strength.sections}};
        return report;
    }
    report.rows = {{"load", load_named(load).text},
                   {"elements", with_separators(strength.elements) + " of " +
                                    human_number(strength.voxel_size)},
                   {"steps", std::to_string(strength.steps) + " in " +
                                 human_number(rounded(strength.solve_seconds, 1e-3)) +
                                 " s, residual " + percent(strength.residual)}};
    report.json = {{"method", "fem"},
                   {"load", load},
                   {"elements", strength.elements},
                   {"nodes", strength.nodes},
                   {"voxel_size", strength.voxel_size},
                   {"steps", strength.steps},
                   {"residual", strength.residual},
                   {"converged", strength.is_converged},
                   {"loose_bodies", strength.loose_bodies},
                   {"solve_seconds", strength.solve_seconds}};
    return report;
}

picture::Image picture_of(const TriMesh& mesh) {
    picture::Model model;
    model.mesh = &mesh;
    model.use_face_colours = true;
    model.colours_inside = true;
    picture::RenderOptions options;
    options.width = kPictureWidth;
    options.height = kPictureHeight;
    const auto colour = [](double share) { return strength_colour(1 - share); };
    return with_legend(picture::render({model}, options), {"WEAK", "STRONG", colour});
}

// What is wrong with the command line; empty when nothing is.
std::string usage_error(const Arguments& arguments) {
    if (!has_extension(arguments.text("--output"), ".obj")) {
        return arguments.text("--output") +
               ": only OBJ files keep colours; give a name that ends in .obj";
    }
    if (arguments.has("--render") && !has_extension(arguments.text("--render"), ".png")) {
        return arguments.text("--render") +
               ": only PNG can be drawn; give a name that ends in .png";
    }
    return {};
}

int run_strength(const Arguments& arguments, Console& console) {
    if (const std::string error = usage_error(arguments); !error.empty()) {
        console.error(error);
        return Usage;
    }
    const bool is_fem = arguments.text("--method") == "fem";
    const std::string& load = arguments.text("--load");
    std::optional<picture::Image> image;
    const int status = run_change(arguments, console, [&](TriMesh& mesh, Progress progress) {
        job::StrengthJob job;
        job.method = is_fem ? StrengthMethod::FiniteElements : StrengthMethod::Sections;
        job.load = load_named(load);
        job::StrengthDone done;
        const Status analysed = job::strength(mesh, job, progress, done);
        ChangeReport report = report_of(done.report, load, is_fem);
        report.seconds = done.seconds;
        report.failure = analysed.text();
        if (!analysed.ok()) return report;
        static_cast<Remarks&>(report) = done;
        tell_scale(done.report, report);
        tell_places(done.places, report);
        if (arguments.has("--render")) image = picture_of(mesh);
        return report;
    });
    if ((status != Clean && status != Flawed) || !image) return status;
    if (const Status written = write_file(arguments.text("--render"), picture::encode_png(*image));
        !written.ok()) {
        console.error(written.text());
        return CannotWrite;
    }
    return status;
}

}  // namespace

OperationSpec strength_operation() {
    return {
        .name = "strength",
        .summary = "Colour a model where it is weak",
        .description =
            "Holds the lowest layer of the model, loads it and finds by finite elements where it "
            "is strained, or looks for thin cross-sections. Writes the model in even triangles, "
            "coloured from blue (strong) to red (weak), and tells the weakest places.",
        .positionals = {kModelFile},
        .options = {output("OUT", "File to write; its name ends in .obj"),
                    {.name = "--method",
                     .type = ValueType::Choice,
                     .placeholder = "METHOD",
                     .default_value = "fem",
                     .choices = {"fem", "sections"},
                     .help = "Finite elements, or thin cross-sections"},
                    {.name = "--load",
                     .type = ValueType::Choice,
                     .placeholder = "LOAD",
                     .default_value = "top",
                     .choices = {"top", "all", "centre", "gravity", "bottom", "right", "left",
                                 "back", "front", "ends-x", "ends-y", "spots", "points"},
                     .help = "Pressure from the top, all sides or one side, a force on the "
                             "centre or the ends of the top, or the own weight; for fem"},
                    {.name = "--render",
                     .type = ValueType::Text,
                     .placeholder = "PNG",
                     .help = "Draw a picture with a legend, too"},
                    json_object()},
        .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
        .run = run_strength,
    };
}

}  // namespace povmesh::cli
