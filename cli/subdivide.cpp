// povmesh subdivide: smooths a model and gives it more triangles.
#include "remesh/subdivide.h"

#include <cstdint>
#include <string>

#include "base/timer.h"
#include "cli/change.h"

namespace povmesh::cli {
namespace {

SubdivideMode mode_of(const std::string& name) {
    if (name == "adaptive") return SubdivideMode::Adaptive;
    return name == "smooth" ? SubdivideMode::Smooth : SubdivideMode::Uniform;
}

}  // namespace

int run_subdivide(const Arguments& arguments, Console& console) {
    const auto levels = static_cast<std::uint32_t>(arguments.number("--levels"));
    const SubdivideMode mode = mode_of(arguments.text("--mode"));
    return run_change(arguments, console, [&](TriMesh& mesh, Progress progress) {
        const Timer timer;
        for (std::uint32_t level = 0; level < levels; ++level) {
            subdivide(mesh, mode);
            progress.set(50 + 30 * (level + 1) / levels);
        }
        ChangeReport report;
        report.seconds = timer.seconds();
        return report;
    });
}

}  // namespace povmesh::cli
