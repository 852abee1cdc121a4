// povmesh convert: a model in, binary STL out.
#include <string>

#include "cli/commands.h"
#include "cli/model.h"
#include "cli/numbers.h"
#include "io/stl.h"

namespace povmesh::cli {
namespace {

// The line for the user when the target cannot be written; empty on success.
std::string write_model(const LoadedModel& model, const std::string& path) {
    try {
        return write_stl(model.mesh, path).text();
    } catch (...) {
        return failure_text(path);
    }
}

}  // namespace

int run_convert(const Arguments& arguments, Console& console) {
    const std::string& source = arguments.text("IN");
    const std::string& target = arguments.text("OUT");
    if (!has_extension(target, ".stl")) {
        console.error(target + ": only STL can be written; give a name that ends in .stl");
        return Usage;
    }
    ProgressLine line(console, source);
    LoadedModel model;
    const std::string read_failure = load_model(source, line.progress(), model);
    if (!read_failure.empty()) {
        line.stop();
        console.error(read_failure);
        return CannotRead;
    }
    const std::string write_failure = write_model(model, target);
    line.stop();
    warn_of(model, console);
    if (!write_failure.empty()) {
        console.error(write_failure);
        return CannotWrite;
    }
    if (!console.is_quiet()) {
        console.print(on_one_line(target) + ": " + counted(model.mesh.faces.size(), "triangle") +
                      " written\n");
    }
    return Clean;
}

}  // namespace povmesh::cli
