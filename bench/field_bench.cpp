// Wraps and offsets, beside a wrapper that rolls a ball over the model. openvdb_bench has the level
// set round trip of the same models at the same cells.
//
// Floor: a wrap of a clean model crosses the grid (1.5 crossings of 12 bytes a cell of the surface,
// each decided by five exact predicates), floods 12 bytes a block and makes a vertex, a quad and
// two triangles a cell: about 400 bytes and 2,000 operations, so 0.4 seconds a million cells.
// Offsets search the nearest face about ten times a cell at half a microsecond: 5 seconds a million
// cells.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "field/offset.h"
#include "field/wrap.h"
#include "inputs.h"

#ifdef POVMESH_BENCH_PEERS
#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#include <CGAL/Surface_mesh.h>
#include <CGAL/alpha_wrap_3.h>
#endif

namespace povmesh::bench {
namespace {

struct Case {
    const char* input;
    double cell;
};

constexpr Case kWraps[] = {
    {"cat", 0.25},       {"scorpion", 0.4},          {"benchy", 0.25},
    {"gearwheel", 0.25}, {"motorbike_groups", 0.01}, {"nonmanifold_crash", 0.1}};

std::string name_of(const std::string& operation, const Case& c) {
    return operation + "/" + c.input + "_" + std::to_string(c.cell).substr(0, 4);
}

void wrap_model(benchmark::State& state, const Case& c, bool all_triangles) {
    const TriMesh& from = mesh(c.input);
    RunLog log;
    RunContext run{{}, log};
    measure(
        state, [&] { return from; },
        [&](TriMesh& model) {
            WrapReport report;
            const Status status =
                wrap(model, {.cell = c.cell, .all_triangles = all_triangles}, run, report);
            state.counters["triangles"] = static_cast<double>(model.faces.size());
            return status.ok();
        });
}

void offset_model(benchmark::State& state, const Case& c, double distance) {
    const TriMesh& from = mesh(c.input);
    RunLog log;
    RunContext run{{}, log};
    measure(
        state, [&] { return from; },
        [&](TriMesh& model) {
            OffsetReport report;
            const Status status = offset(model, distance, {.cell = c.cell}, run, report);
            state.counters["triangles"] = static_cast<double>(model.faces.size());
            return status.ok();
        });
}

// A cube of 450 cells a side: 9e7 nodes.
void wrap_cube(benchmark::State& state) {
    const TriMesh cube = shapes::mesh_of(shapes::box({0, 0, 0}, {45, 45, 45}));
    RunLog log;
    RunContext run{{}, log};
    measure(
        state, [&] { return TriMesh(cube); },
        [&](TriMesh& model) {
            WrapReport report;
            return wrap(model, {.cell = 0.1}, run, report).ok();
        });
}

#ifdef POVMESH_BENCH_PEERS
using Kernel = CGAL::Exact_predicates_inexact_constructions_kernel;
using SurfaceMesh = CGAL::Surface_mesh<Kernel::Point_3>;

// A ball of four cells, at a distance of one.
void wrap_cgal(benchmark::State& state, const Case& c) {
    const TriMesh& from = mesh(c.input);
    std::vector<Kernel::Point_3> points;
    std::vector<std::vector<std::size_t>> faces;
    for (const Vertex& v : from.vertices) points.emplace_back(v.x, v.y, v.z);
    for (const Face& f : from.faces) {
        faces.push_back({static_cast<std::size_t>(f.vertex[0]),
                         static_cast<std::size_t>(f.vertex[1]),
                         static_cast<std::size_t>(f.vertex[2])});
    }
    measure(state, [&] {
        SurfaceMesh result;
        CGAL::alpha_wrap_3(points, faces, 4 * c.cell, c.cell, result);
        state.counters["triangles"] = static_cast<double>(result.number_of_faces());
        return result.number_of_faces();
    });
}
#endif

template <typename Run>
void add(const std::string& operation, const Case& c, Run run) {
    if (model_file(c.input).empty()) return;
    benchmark::RegisterBenchmark(name_of(operation, c).c_str(),
                                 [c, run](benchmark::State& state) { run(state, c); })
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
}

}  // namespace
}  // namespace povmesh::bench

int main(int argc, char** argv) {
    using namespace povmesh::bench;  // NOLINT(google-build-using-namespace)
    for (const Case& c : kWraps) {
        add("wrap", c, [](benchmark::State& s, const Case& m) { wrap_model(s, m, false); });
        add("wrap_all_triangles", c,
            [](benchmark::State& s, const Case& m) { wrap_model(s, m, true); });
    }
    add("offset_grow", {"benchy", 0.3},
        [](benchmark::State& s, const Case& m) { offset_model(s, m, 1.5); });
    add("offset_shrink", {"cat", 0.25},
        [](benchmark::State& s, const Case& m) { offset_model(s, m, -1.5); });
    benchmark::RegisterBenchmark("wrap_9e7_nodes", wrap_cube)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
#ifdef POVMESH_BENCH_PEERS
    for (const Case& c : {kWraps[0], kWraps[1]}) add("wrap_cgal", c, wrap_cgal);
#endif
    return run(argc, argv);
}
