// povmesh render: a picture of a model, with its flaws in colour when asked.
#include <array>
#include <exception>
#include <string>
#include <string_view>
#include <utility>

#include "cli/commands.h"
#include "cli/findings.h"
#include "cli/model.h"
#include "cli/numbers.h"
#include "cli/picture/picture.h"
#include "io/file.h"

namespace povmesh::cli {
namespace {

View view_named(std::string_view name) {
    constexpr std::array<std::pair<std::string_view, View>, 7> kViews = {
        {{"iso", View::Iso},
         {"front", View::Front},
         {"back", View::Back},
         {"left", View::Left},
         {"right", View::Right},
         {"top", View::Top},
         {"bottom", View::Bottom}}};
    for (const auto& [known, view] : kViews) {
        if (known == name) return view;
    }
    return View::Iso;  // the option admits no other name
}

// What the colours of the picture mean, for the flaws that there are. The words follow the palette.
std::string legend(const Findings& findings, const FlawFaces& faces) {
    std::string text;
    const auto add = [&](std::string_view colour, std::size_t count, std::string_view what) {
        if (count != 0) text += "  " + std::string(colour) + counted(count, what) + "\n";
    };
    add("red faces:     ", faces.inverted.size(), "inverted face");
    add("orange lines:  ", findings.open_edges, "open edge");
    add("purple lines:  ", findings.non_manifold_edges, "non-manifold edge");
    add("teal dots:     ", findings.flaws.degenerate, "degenerate face");
    if (findings.open_edges != 0) text += "  blue faces:    the inside, seen through an opening\n";
    return text.empty() ? "  no flaws to show\n" : text;
}

Status write_file(const std::string& path, const Array<char>& content) {
    ReplacementFile file;
    if (Status status = file.open(path); !status.ok()) return status;
    if (Status status = file.write(content); !status.ok()) return status;
    return file.commit();
}

struct Picture {
    Array<char> png;
    std::string legend;
};

Picture draw(LoadedModel& loaded, const Arguments& arguments, Progress progress) {
    Picture picture;
    povmesh::Model model;
    model.mesh = &loaded.mesh;
    if (arguments.has("--flaws")) {
        FlawFaces faces;
        const Findings findings = examine(loaded.mesh, progress, &faces);
        model.overlay = flaw_overlay(loaded.mesh, faces);
        picture.legend = legend(findings, faces);
    }
    const PixelSize size = parse_pixel_size(arguments.text("--size"));
    RenderOptions options;
    options.width = static_cast<std::uint32_t>(size.width);
    options.height = static_cast<std::uint32_t>(size.height);
    options.view = view_named(arguments.text("--view"));
    picture.png = encode_png(render({model}, options));
    return picture;
}

}  // namespace

int run_render(const Arguments& arguments, Console& console) {
    const std::string& source = arguments.text("FILE");
    const std::string& target = arguments.text("--output");
    if (!has_extension(target, ".png")) {
        console.error(target + ": only PNG can be drawn; give a name that ends in .png");
        return Usage;
    }
    ProgressLine line(console, source);
    LoadedModel model;
    Picture picture;
    std::string failure = load_model(source, line.progress(), model);
    if (failure.empty()) {
        try {
            picture = draw(model, arguments, line.progress());
        } catch (...) {
            failure = failure_text(source);
        }
    }
    line.stop();
    if (!failure.empty()) {
        console.error(failure);
        return CannotRead;
    }
    warn_of(model, console);
    if (const Status status = write_file(target, picture.png); !status.ok()) {
        console.error(status.text());
        return CannotWrite;
    }
    if (!console.is_quiet()) {
        console.print(on_one_line(target) + ": " + arguments.text("--size") + " pixels, " +
                      arguments.text("--view") + " view\n");
    }
    console.print(picture.legend);
    return Clean;
}

}  // namespace povmesh::cli
