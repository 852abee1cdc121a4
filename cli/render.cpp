// povmesh render: a picture of models, with their flaws in colour or pulled apart when asked.
#include <array>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cli/commands.h"
#include "cli/model.h"
#include "cli/picture_file.h"
#include "cli/section.h"
#include "cli/shared_options.h"
#include "job/render.h"

namespace povmesh::cli {
namespace {

picture::View view_named(std::string_view name) {
    constexpr std::array<std::pair<std::string_view, picture::View>, 7> kViews = {
        {{"iso", picture::View::Iso},
         {"front", picture::View::Front},
         {"back", picture::View::Back},
         {"left", picture::View::Left},
         {"right", picture::View::Right},
         {"top", picture::View::Top},
         {"bottom", picture::View::Bottom}}};
    for (const auto& [known, view] : kViews) {
        if (known == name) return view;
    }
    return picture::View::Iso;  // the option admits no other name
}

job::RenderJob job_of(const Arguments& arguments) {
    const PixelSize size = parse_pixel_size(arguments.text("--size"));
    job::RenderJob job;
    job.width = static_cast<std::uint32_t>(size.width);
    job.height = static_cast<std::uint32_t>(size.height);
    job.view = view_named(arguments.text("--view"));
    job.flaws = arguments.has("--flaws");
    job.explode = arguments.has("--explode");
    if (arguments.has("--section")) job.section = parse_section(arguments.text("--section"));
    job.compare = arguments.has("--compare");
    job.has_supports = arguments.has("--supports");
    return job;
}

// Reads the models and draws them; one line for the user when that fails, else empty.
std::string make_png(const std::vector<std::string>& paths, const Arguments& arguments,
                     Progress progress, std::vector<LoadedModel>& models, job::RenderDone& done,
                     Array<char>& png) {
    for (const std::string& path : paths) {
        std::string failure = load_model(path, progress, models.emplace_back());
        if (!failure.empty()) return failure;
    }
    try {
        std::vector<TriMesh*> meshes;
        meshes.reserve(models.size());
        for (LoadedModel& model : models) meshes.push_back(&model.mesh);
        png = picture::encode_png(job::render(meshes, job_of(arguments), done));
    } catch (...) {
        return failure_text(paths.front());
    }
    return {};
}

// What is wrong with a combination of options; empty when nothing is.
std::string usage_error(const Arguments& arguments) {
    if (arguments.has("--compare") && arguments.all("FILE").size() > 1) {
        return "render: --compare draws one model beside another; give one FILE";
    }
    if (arguments.has("--supports") && (arguments.has("--compare") || arguments.has("--explode"))) {
        return "render: --supports goes with neither --compare nor --explode";
    }
    if (arguments.has("--explode") && (arguments.has("--compare") || arguments.has("--flaws"))) {
        return "render: --explode goes with neither --compare nor --flaws";
    }
    if (arguments.has("--section")) {
        if (!parse_section(arguments.text("--section"))) {
            return "render: --section takes x, y or z, or one of them with a place, such as z=12.5";
        }
        if (arguments.has("--compare") || arguments.has("--explode") || arguments.has("--flaws")) {
            return "render: --section goes with neither --compare nor --explode nor --flaws";
        }
    }
    return {};
}

int run_render(const Arguments& arguments, Console& console) {
    std::vector<std::string> paths = arguments.all("FILE");
    if (const std::string error = usage_error(arguments); !error.empty()) {
        console.error(error);
        return Usage;
    }
    for (const char* option : {"--compare", "--supports"}) {
        if (arguments.has(option)) paths.push_back(arguments.text(option));
    }
    const std::string& target = arguments.text("--output");
    if (!has_extension(target, ".png")) {
        console.error(target + ": only PNG can be drawn; give a name that ends in .png");
        return Usage;
    }
    ProgressLine line(console, paths.front());
    std::vector<LoadedModel> models;
    job::RenderDone done;
    Array<char> png;
    const std::string failure = make_png(paths, arguments, line.progress(), models, done, png);
    line.stop();
    if (!failure.empty()) {
        console.error(failure);
        return CannotRead;
    }
    for (const LoadedModel& model : models) warn_of(model, console);
    if (const Status status = write_file(target, png); !status.ok()) {
        console.error(status.text());
        return CannotWrite;
    }
    if (!console.is_quiet()) {
        console.print(on_one_line(target) + ": " + arguments.text("--size") + " pixels, " +
                      arguments.text("--view") + " view\n");
    }
    for (std::size_t i = 0; i < models.size(); ++i) {
        if (models.size() > 1 && !done.legends[i].empty()) {
            console.print(on_one_line(models[i].path) + "\n");
        }
        console.print(done.legends[i]);
    }
    return Clean;
}

}  // namespace

OperationSpec render_operation() {
    return {
        .name = "render",
        .summary = "Draw a picture of a model",
        .description = "Draws the models together in parallel projection and writes a PNG file.",
        .positionals = {{"FILE", true, "STL, OBJ, PLY and 3MF files"}},
        .options = {output("PNG", "File to write; its name ends in .png"),
                    {.name = "--size",
                     .type = ValueType::PixelSize,
                     .placeholder = "WIDTHxHEIGHT",
                     .unit = "pixels",
                     .default_value = "800x600",
                     .low = 16,
                     .high = 8192,
                     .help = "Size of the picture"},
                    {.name = "--view",
                     .type = ValueType::Choice,
                     .placeholder = "VIEW",
                     .default_value = "iso",
                     .choices = {"iso", "front", "back", "left", "right", "top", "bottom"},
                     .help = "Side to look from; z is up, front looks along y"},
                    {.name = "--compare",
                     .type = ValueType::Text,
                     .placeholder = "OTHER",
                     .help = "Draw another model, seen the same way, on the right"},
                    {.name = "--supports",
                     .type = ValueType::Text,
                     .placeholder = "SUPPORTS",
                     .help = "Draw another model, such as supports, with the others, in green"},
                    {.name = "--explode",
                     .help =
                         "Pull the models apart, each body for itself, in two colours by turns"},
                    {.name = "--section",
                     .type = ValueType::Text,
                     .placeholder = "AXIS[=VALUE]",
                     .help = "Cut the models open across x, y or z, through the middle of the "
                             "picture or at VALUE"},
                    {.name = "--flaws", .help = "Draw the flaws in colour, print the legend"}},
        .statuses = {Clean, Usage, CannotRead, CannotWrite},
        .run = run_render,
    };
}

}  // namespace povmesh::cli
