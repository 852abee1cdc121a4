// Dividing models into parts that fit, beside a single cut with caps, and what comes of it: parts,
// those of the even division, area of all cuts. One thread (scripts/bench sets OMP_NUM_THREADS=1).
//
// Floor: the even division into 2 x 2 x 2 touches each triangle in three cuts, 564 bytes each (see
// cut_bench.cpp). The search makes the even division, too, tries its own and repeats the better
// one; in between it reads a million cells once for each piece and axis.
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "cut/cut.h"
#include "decompose/decompose.h"
#include "inputs.h"
#include "mesh/bounds.h"

namespace povmesh::bench {
namespace {

double largest_extent(const TriMesh& model) {
    const Vec3d extent = to_double(finite_bounds(model).extent());
    return std::max({extent.x, extent.y, extent.z});
}

void divide(benchmark::State& state, const std::string& name, DivisionMethod method, double share) {
    const double size = share * largest_extent(mesh(name));
    measure(
        state, [&] { return mesh(name); },
        [&](TriMesh& model) {
            RunLog log;
            RunContext run{{}, log};
            const DecomposeReport report = decompose(model, {{size, size, size}, method}, run);
            state.counters["parts"] = static_cast<double>(model.parts.size());
            state.counters["even"] = static_cast<double>(report.uniform_parts);
            state.counters["area"] = report.cut_area;
            return std::move(model.parts);
        });
    state.SetItemsProcessed(state.iterations() *
                            static_cast<std::int64_t>(mesh(name).faces.size()));
}

void uniform_at_60(benchmark::State& state, const std::string& name) {
    divide(state, name, DivisionMethod::Uniform, 0.6);
}
void search_at_60(benchmark::State& state, const std::string& name) {
    divide(state, name, DivisionMethod::Automatic, 0.6);
}
void uniform_at_40(benchmark::State& state, const std::string& name) {
    divide(state, name, DivisionMethod::Uniform, 0.4);
}
void search_at_40(benchmark::State& state, const std::string& name) {
    divide(state, name, DivisionMethod::Automatic, 0.4);
}

void one_cut(benchmark::State& state, const std::string& name) {
    const Box3f box = finite_bounds(mesh(name));
    CutOptions options;
    options.operation = CutOperation::CutAndCap;
    options.plane.normal = {0, 0, 1};
    options.plane.direction = {1, 0, 0};
    options.plane.point = (to_double(box.low) + to_double(box.high)) * 0.5 + Vec3d{0, 0, 0.001};
    measure(
        state, [&] { return mesh(name); },
        [&](TriMesh& model) {
            RunLog log;
            RunContext run{{}, log};
            cut_models(model, options, run);
            return std::move(model.parts);
        });
}

}  // namespace
}  // namespace povmesh::bench

int main(int argc, char** argv) {
    using namespace povmesh::bench;  // NOLINT(google-build-using-namespace)
    std::vector<std::string> names = existing_models(
        {"cat", "gearwheel", "hammer", "goathead", "frog_legs", "scorpion", "benchy"});
    names.insert(names.begin(), {"rock_328k", "rock_1311k"});
    add("one_cut", {"rock_328k", "rock_1311k"}, one_cut);
    add("uniform_60", names, uniform_at_60);
    add("search_60", names, search_at_60);
    add("uniform_40", names, uniform_at_40);
    add("search_40", names, search_at_40);
    return run(argc, argv);
}
