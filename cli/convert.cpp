// povmesh convert: a model in, the same model in another format out.
#include <string>

#include "cli/commands.h"
#include "cli/model.h"
#include "cli/shared_options.h"
#include "job/numbers.h"

namespace povmesh::cli {
namespace {

int run_convert(const Arguments& arguments, Console& console) {
    const std::string& source = arguments.text("IN");
    const std::string& target = arguments.text("OUT");
    if (!is_model_name(target, console)) return Usage;
    ProgressLine line(console, source);
    LoadedModel model;
    const std::string read_failure = load_model(source, line.progress(), model);
    if (!read_failure.empty()) {
        line.stop();
        console.error(read_failure);
        return CannotRead;
    }
    OutputFile file(target);
    std::string write_failure = save_model(model, file.path());
    if (write_failure.empty()) write_failure = file.deliver();
    line.stop();
    warn_of(model, console);
    if (!write_failure.empty()) {
        console.error(write_failure);
        return CannotWrite;
    }
    warn_of(target, loss_warnings(model, kind_of(target)), console);
    if (!console.is_quiet()) {
        console.print(on_one_line(target) + ": " + counted(model.mesh.faces.size(), "triangle") +
                      " written\n");
    }
    return Clean;
}

}  // namespace

OperationSpec convert_operation() {
    return {
        .name = "convert",
        .summary = "Write a model in another format",
        .description =
            "Reads STL, OBJ or PLY, binary or ASCII, or 3MF and writes binary STL, OBJ, binary PLY "
            "or 3MF. IN and OUT may be the same file; OUT is replaced only when the new content is "
            "complete. "
            "Names that end in .gz are those of compressed files; - is standard input or output.",
        .positionals = {kModelFile, {"OUT", false, model_output().help}},
        .statuses = {Clean, Usage, CannotRead, CannotWrite},
        .run = run_convert,
    };
}

}  // namespace povmesh::cli
