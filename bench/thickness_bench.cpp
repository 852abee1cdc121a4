// Thickness of walls.
//
// Floor: benchy has 225,146 faces and gets 0.3 million samples at a wall of 1. A sample descends a
// tree of 18 levels once and looks at some 30 nodes and 10 faces, 2 kB out of the second cache:
// about a microsecond, 0.3 s in all. Building the tree takes 0.1 s.
#include <string>
#include <vector>

#include "field/thickness.h"
#include "inputs.h"

namespace povmesh::bench {
namespace {

void thickness(benchmark::State& state, const std::string& name, double wall) {
    const TriMesh& from = mesh(name);
    measure(state, [&] {
        ThicknessReport report = measure_thickness(from, {.wall = wall});
        state.counters["samples"] = static_cast<double>(report.walls.values.size());
        state.counters["places"] = static_cast<double>(report.walls.count);
        return report;
    });
}

// In the unit of the models, and in hundredths of the diagonal for rocks.
void wall_1(benchmark::State& state, const std::string& name) {
    thickness(state, name, 1);
}
void wall_2(benchmark::State& state, const std::string& name) {
    thickness(state, name, 2);
}
void wall_of_a_twentieth(benchmark::State& state, const std::string& name) {
    thickness(state, name, diagonal(mesh(name)) / 20);
}

}  // namespace
}  // namespace povmesh::bench

int main(int argc, char** argv) {
    using namespace povmesh::bench;  // NOLINT(google-build-using-namespace)
    const std::vector<std::string> real =
        existing_models({"cat", "benchy", "scorpion", "gearwheel", "hammer"});
    add("thickness_1", real, wall_1);
    add("thickness_2", real, wall_2);
    add("thickness_20th", {"rock_82k", "rock_328k", "rock_1311k"}, wall_of_a_twentieth);
    return run(argc, argv);
}
