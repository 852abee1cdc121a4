// Cavities with exact walls.
#include <string>
#include <vector>

#include "field/inner_wall.h"
#include "inputs.h"

namespace povmesh::bench {
namespace {

void exact_wall(benchmark::State& state, const std::string& name, const InnerWallOptions& options) {
    const TriMesh& from = mesh(name);
    measure(state, [&] {
        TriMesh cavity;
        const WallReport report = inner_wall(from, 1.5, options, cavity);
        state.counters["triangles"] = static_cast<double>(cavity.faces.size());
        state.counters["smallest"] = report.smallest_wall;
        state.counters["mean"] = report.mean_wall;
        state.counters["mended"] = static_cast<double>(report.mended);
        state.counters["taken"] = static_cast<double>(report.taken);
        state.counters["passes"] = static_cast<double>(report.passes);
        return cavity;
    });
}
void wall(benchmark::State& state, const std::string& name) {
    exact_wall(state, name, {});
}

}  // namespace
}  // namespace povmesh::bench

int main(int argc, char** argv) {
    using namespace povmesh::bench;  // NOLINT(google-build-using-namespace)
    add("exact_wall", existing_models({"cat", "gearwheel", "benchy"}), wall);
    return run(argc, argv);
}
