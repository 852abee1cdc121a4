// Lampshades and their preview. One thread (scripts/bench sets OMP_NUM_THREADS=1).
//
// Floor: rock_328k with walls of four cells of a hundredth of its extent has 41 thousand cells of
// the inner wall. Three searches a cell tell its nodes, its vertex and the rough ones of its
// points, 124 thousand of 2.5 us that deep inside, where 50 triangles are no farther by their
// boxes and ten by their discs; tree, crossings and labels of the model take 0.15 s, and outside
// and inner wall are gone over a few times, 0.15 s: 0.6 s.
#include <algorithm>
#include <string>

#include "design/lampshade.h"
#include "inputs.h"
#include "mesh/bounds.h"

namespace povmesh::bench {
namespace {

// Of the extent.
constexpr double kCell = 0.01;
constexpr double kWall = 0.04;

struct Sizes {
    float thickness;
    LampshadeOptions options;
};

Sizes sizes_of(const TriMesh& mesh) {
    const Vec3d extent = to_double(finite_bounds(mesh).extent());
    const double longest = std::max({extent.x, extent.y, extent.z});
    return {static_cast<float>(kWall * longest), {.cell = kCell * longest}};
}

RunContext quiet() {
    static RunLog log;
    return {{}, log};
}

void shade(benchmark::State& state, const std::string& name) {
    const TriMesh& from = mesh(name);
    const Sizes sizes = sizes_of(from);
    // The walls are measured apart: hosts do not ask for that.
    LampshadeOptions measured = sizes.options;
    measured.measures = true;
    TriMesh copy = from;
    RunContext run = quiet();
    const LampshadeReport report = lampshade(copy, sizes.thickness, run, measured);
    measure(
        state, [&] { return from; },
        [&](TriMesh& mesh) {
            (void)lampshade(mesh, sizes.thickness, run, sizes.options);
            return mesh.faces.size();
        });
    const auto wanted = static_cast<double>(sizes.thickness);
    state.counters["smallest"] = report.smallest_wall / wanted;
    state.counters["mean"] = report.mean_wall / wanted;
    state.counters["uneven"] = report.uneven_share;
    state.counters["triangles"] = static_cast<double>(copy.faces.size());
}

void preview(benchmark::State& state, const std::string& name) {
    const TriMesh& from = mesh(name);
    const Sizes sizes = sizes_of(from);
    RunContext run = quiet();
    measure(state, [&] {
        LampshadeContours contours;
        (void)preview_lampshade(from, sizes.thickness, run, contours, sizes.options);
        return contours;
    });
}

}  // namespace
}  // namespace povmesh::bench

int main(int argc, char** argv) {
    using namespace povmesh::bench;  // NOLINT(google-build-using-namespace)
    std::vector<std::string> names = existing_models({"cat", "goathead"});
    names.insert(names.begin(), "rock_328k");
    add("lampshade", names, shade);
    add("lampshade_preview", names, preview);
    return run(argc, argv);
}
