// povmesh subdivide: smooths a model and gives it more triangles.
#include "job/subdivide.h"
#include "cli/commands.h"
#include "cli/shared_options.h"

#include <cstdint>
#include <string>

#include "cli/change.h"

namespace povmesh::cli {
namespace {

SubdivideMode mode_of(const std::string& name) {
    if (name == "adaptive") return SubdivideMode::Adaptive;
    return name == "smooth" ? SubdivideMode::Smooth : SubdivideMode::Uniform;
}

int run_subdivide(const Arguments& arguments, Console& console) {
    const auto levels = static_cast<std::uint32_t>(arguments.number("--levels"));
    const SubdivideMode mode = mode_of(arguments.text("--mode"));
    return run_change(arguments, console, [&](TriMesh& mesh, Progress progress) {
        job::SubdivideDone done;
        ChangeReport report;
        report.failure = job::subdivide(mesh, {levels, mode}, progress, done).text();
        static_cast<Remarks&>(report) = done;
        report.seconds = done.seconds;
        return report;
    });
}

}  // namespace

OperationSpec subdivide_operation() {
    return {
        .name = "subdivide",
        .summary = "Smooth a model and give it more triangles",
        .description =
            "Loop subdivision. A level makes four triangles of one where it splits all edges; open "
            "borders keep their places. Reads the result back.",
        .positionals = {kModelFile},
        .options = {model_output(),
                    {.name = "--levels",
                     .type = ValueType::Choice,
                     .placeholder = "LEVELS",
                     .default_value = "1",
                     .choices = {"1", "2", "3", "4", "5"},
                     .help = "How many times"},
                    {.name = "--mode",
                     .type = ValueType::Choice,
                     .placeholder = "MODE",
                     .default_value = "uniform",
                     .choices = {"uniform", "adaptive", "smooth"},
                     .help = "Split all edges, only those longer than average, or none"},
                    json_object()},
        .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
        .run = run_subdivide,
    };
}

}  // namespace povmesh::cli
