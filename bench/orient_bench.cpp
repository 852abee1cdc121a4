// The orientation search, and how near to the best of 5,000 directions it comes.
//
// Floor: a direction on all triangles of a stone of 1.3 million turns 655 thousand points (16 MB
// read, 16 MB written) and reads three of them for each triangle: about 12 ms. 16 of these, and 250
// on the 50 thousand triangles of a first look, make half a second.
#include <cmath>
#include <vector>

#include "inputs.h"
#include "orient/direction_cost.h"
#include "orient/orientation.h"

namespace povmesh::bench {
namespace {

// Even directions on a spiral (R. Swinbank, R. J. Purser, Fibonacci grids, 2006).
std::vector<Vec3d> spiral(std::size_t count) {
    std::vector<Vec3d> directions;
    for (std::size_t i = 0; i < count; ++i) {
        const double z = 1 - (2 * static_cast<double>(i) + 1) / static_cast<double>(count);
        const double angle = static_cast<double>(i) * 2.399963229728653;
        const double radius = std::sqrt(1 - z * z);
        directions.push_back({radius * std::cos(angle), radius * std::sin(angle), z});
    }
    return directions;
}

void orient(benchmark::State& state, const std::string& name) {
    const TriMesh& from = mesh(name);
    RunLog log;
    RunContext run{{}, log};
    measure(state, [&] {
        const OrientationReport report = find_orientations(from, run);
        state.counters["cost"] = report.best.empty() ? 0 : report.best.front().cost;
        state.counters["directions"] = static_cast<double>(report.directions_measured);
        return report.best.size();
    });
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(from.faces.size()));
}

// Every direction of the spiral measured on all triangles.
void by_force(benchmark::State& state, const std::string& name) {
    const OrientModel model = make_orient_model(mesh(name));
    const std::vector<Vec3d> directions = spiral(5000);
    double least = std::numeric_limits<double>::infinity();
    for ([[maybe_unused]] auto turn : state) {
        OverhangMeter meter;
        for (const Vec3d up : directions) {
            least = std::min(least, povmesh::measure(model, model.all(), up, meter).cost);
        }
    }
    state.counters["cost"] = least;
}

}  // namespace
}  // namespace povmesh::bench

int main(int argc, char** argv) {
    using namespace povmesh::bench;  // NOLINT(google-build-using-namespace)
    std::vector<std::string> names = {"rock_82k", "rock_328k", "rock_1311k"};
    const std::vector<std::string> real =
        existing_models({"adis16480_metres_ascii", "cat", "goathead", "extruder_idler", "gearwheel",
                         "platonic_shelf", "chair_uv_groups", "spider_uv_groups", "ipadstand",
                         "tray_bottom_ascii", "frog_legs", "hammer", "benchy"});
    add("orient", names, orient);
    add("orient", real, orient);
    add("by_force", real, by_force);
    add("by_force", {"rock_5k"}, by_force);
    add("orient", {"rock_5k"}, orient);
    return run(argc, argv);
}
