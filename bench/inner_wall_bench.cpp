// Cavities with exact walls; beside them wall_openvdb in openvdb_bench, in cells of the same size.
//
// Floor: benchy at 1.5 and cells of 0.3 has 49 thousand cells of the surface. About four searches a
// cell tell its nodes, three its points, one its vertex: 400 thousand, of 2 us that far inside; and
// the crossings, a tree and the table of the grid 0.3 s: 1.1 s.
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
