// povmesh render: a picture of models, with their flaws in colour or pulled apart when asked.
#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cli/apart.h"
#include "cli/commands.h"
#include "cli/model.h"
#include "cli/picture_file.h"
#include "cli/section.h"
#include "cli/shared_options.h"
#include "job/findings.h"
#include "job/numbers.h"
#include "job/picture/picture.h"
#include "spatial/separation.h"

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

// What the colours of the picture mean, for the flaws that there are. The words follow the palette.
std::string legend_of(const Findings& findings, const FlawFaces& faces) {
    std::string text;
    const auto add = [&](std::string_view colour, std::uint64_t count, std::string_view what) {
        if (count != 0) text += "  " + std::string(colour) + counted(count, what) + "\n";
    };
    add("red faces:     ", faces.inverted.size(), "inverted face");
    add("orange lines:  ", findings[Flaw::OpenEdges].count, "open edge");
    add("purple lines:  ", findings[Flaw::NonManifoldEdges].count, "non-manifold edge");
    add("teal dots:     ", findings.detected.degenerate, "degenerate face");
    if (findings[Flaw::OpenEdges].count != 0)
        text += "  blue faces:    the inside, seen through an opening\n";
    return text.empty() ? "  no flaws to show\n" : text;
}

// A model of the picture and what is to be said about it.
struct Subject {
    LoadedModel loaded;
    TriMesh opened;  // what a section leaves of it
    TriMesh caps;
    std::string legend;
    bool is_secondary = false;

    picture::Model model(bool with_flaws) {
        picture::Model model;
        model.mesh = &loaded.mesh;
        if (is_secondary) model.colour = picture::palette::kSecondary;
        model.use_face_colours = has_colours(loaded.mesh);
        if (with_flaws) {
            FlawFaces faces;
            const Findings findings =
                examine(loaded.mesh, {}, SelfIntersectionSearch::Never, &faces);
            model.overlay = picture::flaw_overlay(loaded.mesh, faces);
            legend = legend_of(findings, faces);
        }
        return model;
    }
};

void widen(Box3d& box, const Box3d& by) {
    if (by.is_empty()) return;
    box.widen(by.low);
    box.widen(by.high);
}

// The bodies of all models, moved apart, in two colours by turns.
picture::Image draw_exploded(std::vector<Subject>& subjects,
                             const picture::RenderOptions& options) {
    Box3d scene_box;
    std::vector<TriMesh> bodies;
    for (Subject& subject : subjects) {
        TriMesh& mesh = subject.loaded.mesh;
        widen(scene_box, scene_box_of(mesh));
        separate_bodies(mesh, {.keep_cavities = true, .all_faces = true});
        std::move(mesh.parts.begin(), mesh.parts.end(), std::back_inserter(bodies));
    }
    return draw_apart(bodies, scene_box, options);
}

// The models with what is nearer to the viewer taken away, the cut itself in the second colour.
picture::Image draw_section(std::vector<Subject>& subjects, const Section& section,
                            const picture::RenderOptions& options) {
    Box3d scene_box;
    for (const Subject& subject : subjects) widen(scene_box, scene_box_of(subject.loaded.mesh));
    picture::Scene scene;
    for (Subject& subject : subjects) {
        subject.opened = subject.loaded.mesh;
        cut_open(subject.opened, section, options.view, scene_box, subject.caps);
        scene.push_back(subject.model(false));
        scene.back().mesh = &subject.opened;
        picture::Model& caps = scene.emplace_back();
        caps.mesh = &subject.caps;
        caps.colour = picture::palette::kSecondary;
        caps.inside = picture::palette::kSecondary;
    }
    return picture::render(scene, options);
}

picture::RenderOptions options_of(const Arguments& arguments) {
    const PixelSize size = parse_pixel_size(arguments.text("--size"));
    picture::RenderOptions options;
    options.width = static_cast<std::uint32_t>(size.width);
    options.height = static_cast<std::uint32_t>(size.height);
    options.view = view_named(arguments.text("--view"));
    return options;
}

// All models fill the picture together; with one to compare, two stand side by side, seen by the
// same camera.
picture::Image draw(std::vector<Subject>& subjects, const Arguments& arguments) {
    const bool with_flaws = arguments.has("--flaws");
    picture::RenderOptions options = options_of(arguments);
    if (arguments.has("--explode")) return draw_exploded(subjects, options);
    if (arguments.has("--section")) {
        return draw_section(subjects, *parse_section(arguments.text("--section")), options);
    }
    if (!arguments.has("--compare")) {
        picture::Scene scene;
        for (Subject& subject : subjects) scene.push_back(subject.model(with_flaws));
        return picture::render(scene, options);
    }
    for (const Subject& subject : subjects) widen(options.frame, scene_box_of(subject.loaded.mesh));
    const std::uint32_t width = options.width;
    options.width = (width - kLineWidth) / 2;
    const picture::Image left = picture::render({subjects[0].model(with_flaws)}, options);
    return beside(left, picture::render({subjects[1].model(with_flaws)}, options),
                  width - 2 * options.width);
}

// Reads the models and draws them; one line for the user when that fails, else empty.
std::string make_png(const std::vector<std::string>& paths, const Arguments& arguments,
                     Progress progress, std::vector<Subject>& subjects, Array<char>& png) {
    for (const std::string& path : paths) {
        std::string failure = load_model(path, progress, subjects.emplace_back().loaded);
        if (!failure.empty()) return failure;
    }
    subjects.back().is_secondary = arguments.has("--supports");
    try {
        png = picture::encode_png(draw(subjects, arguments));
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
    std::vector<Subject> subjects;
    Array<char> png;
    const std::string failure = make_png(paths, arguments, line.progress(), subjects, png);
    line.stop();
    if (!failure.empty()) {
        console.error(failure);
        return CannotRead;
    }
    for (const Subject& subject : subjects) warn_of(subject.loaded, console);
    if (const Status status = write_file(target, png); !status.ok()) {
        console.error(status.text());
        return CannotWrite;
    }
    if (!console.is_quiet()) {
        console.print(on_one_line(target) + ": " + arguments.text("--size") + " pixels, " +
                      arguments.text("--view") + " view\n");
    }
    for (const Subject& subject : subjects) {
        if (subjects.size() > 1 && !subject.legend.empty()) {
            console.print(on_one_line(subject.loaded.path) + "\n");
        }
        console.print(subject.legend);
    }
    return Clean;
}

}  // namespace

OperationSpec render_operation() {
    return {
        .name = "render",
        .summary = "Draw a picture of a model",
        .description = "Draws the models together in parallel projection and writes a PNG file.",
        .positionals = {{"FILE", true, "STL files, binary or ASCII, and OBJ files"}},
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
