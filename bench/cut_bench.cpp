// Cutting a model with a plane, both halves capped, and filling the cap alone. One thread
// (scripts/bench sets OMP_NUM_THREADS=1).
//
// Floor of a cut, per triangle, far beyond the caches: the model's shells are labelled and so are
// those of the halves, 226 bytes each (see detect_bench.cpp); 8 read for the signs, 24 for the
// sides, 36 read and 36 written, and 8 for the vertices, to gather the halves: 564 bytes, 141 ns at
// 4 GB/s.
#include <array>
#include <cmath>
#include <numbers>
#include <utility>

#include "cgal_surface.h"
#include "cut/cap.h"
#include "cut/cut.h"
#include "inputs.h"

#ifdef POVMESH_BENCH_PEERS
#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#include <CGAL/Polygon_mesh_processing/clip.h>
#include <CGAL/Surface_mesh.h>
#endif

namespace povmesh::bench {
namespace {

CutOptions options_at(Vec3d point, Vec3d normal) {
    CutOptions options;
    options.operation = CutOperation::CutAndCap;
    options.plane = {normal, {1, 0, 0}, point, 0};
    return options;
}

Vec3d centre_of(const TriMesh& mesh) {
    Box3d box;
    for (const Vertex& v : mesh.vertices) box.widen(to_double(v.position()));
    return (box.low + box.high) / 2.0;
}

std::vector<TriMesh> cut(TriMesh& mesh, const CutOptions& options) {
    RunLog log;
    RunContext run{{}, log};
    cut_models(mesh, options, run);
    return std::move(mesh.parts);
}

// Off the vertices that generated models have at their middle.
constexpr double kOff = 0.001;
constexpr Vec3d kOblique{0.1, 0.2, 1};

void cut_in_two(benchmark::State& state, const std::string& name) {
    const CutOptions options = options_at(centre_of(mesh(name)) + Vec3d{0, 0, kOff}, kOblique);
    measure(
        state, [&] { return mesh(name); },
        [&](TriMesh& model) {
            std::vector<TriMesh> parts = cut(model, options);
            state.counters["pieces"] = static_cast<double>(parts.size());
            return parts;
        });
    const auto triangles = static_cast<std::int64_t>(mesh(name).faces.size());
    set_floor(state, 564.0 * static_cast<double>(triangles));
    state.SetItemsProcessed(state.iterations() * triangles);
}

// Slab after slab off one side: the model shrinks on the way.
void cut_in_slabs(benchmark::State& state, const std::string& name) {
    constexpr int kPlanes = 100;
    Box3d box;
    for (const Vertex& v : mesh(name).vertices) box.widen(to_double(v.position()));
    measure(
        state, [&] { return mesh(name); },
        [&](TriMesh& model) {
            std::vector<TriMesh> slabs;
            for (int i = 1; i <= kPlanes; ++i) {
                const double z = box.low.z + (box.high.z - box.low.z) * i / (kPlanes + 1.0);
                std::vector<TriMesh> parts = cut(model, options_at({0, 0, z}, {0, 0, 1}));
                for (TriMesh& part : parts) {
                    const bool is_rest = &part == &parts.back();
                    (is_rest ? model : slabs.emplace_back()) = std::move(part);
                }
            }
            state.counters["slabs"] = static_cast<double>(slabs.size() + 1);
            return slabs;
        });
    state.SetItemsProcessed(state.iterations() * kPlanes);
}

// A wavy disc with holes in rows: half of the points on the outline, half on the rims of holes with
// ten each.
void fill(benchmark::State& state) {
    const auto count = static_cast<int>(state.range(0));
    const TriMesh no_model;
    const auto frame = PlaneFrame::make({{0, 0, -1}, {1, 0, 0}, {0, 0, 0}, 0});
    CutPoints outline(no_model);
    Array<RimEdge> rim;
    const auto add_loop = [&](int points, auto at) {
        const auto first = static_cast<std::int32_t>(outline.size());
        for (int i = 0; i < points; ++i) {
            outline.add(at(2 * std::numbers::pi * i / points));
            rim.push_back({first + i, first + (i + 1) % points, 0, {}});
        }
    };
    add_loop(count / 2, [](double angle) {
        const double r = 100 + 2 * std::sin(90 * angle);
        return Vec3d{r * std::cos(angle), r * std::sin(angle), 0};
    });
    const int holes = count / 20;
    const double step = 120 / std::ceil(std::sqrt(holes));
    for (int i = 0; i < holes; ++i) {
        const int side = static_cast<int>(std::ceil(std::sqrt(holes)));
        const double x = -60 + step * (i % side + 0.5);
        const double y = -60 + step * (i / side + 0.5);  // NOLINT(bugprone-integer-division)
        add_loop(10, [&](double angle) {                 // clockwise
            return Vec3d{x + 0.3 * step * std::cos(angle), y - 0.3 * step * std::sin(angle), 0};
        });
    }
    measure(
        state, [&] { return outline; },
        [&](CutPoints& points) {
            RimFilling filling = fill_rim(points, *frame, rim);
            state.counters["triangles"] = static_cast<double>(filling.triangles.size());
            return filling;
        });
    state.counters["holes"] = holes;
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

#ifdef POVMESH_BENCH_PEERS
namespace peer = CGAL::Polygon_mesh_processing;
using Kernel = CGAL::Exact_predicates_inexact_constructions_kernel;
using SurfaceMesh = CGAL::Surface_mesh<Kernel::Point_3>;

// The side of a plane as a closed box that is larger than the model. (The form of `clip` that takes
// a plane crashes when it is compiled without its assertions.)
SurfaceMesh half_space(Vec3d point, Vec3d normal, double size) {
    const Vec3d up = normal / length(normal);
    Vec3d across = cross(up, {0, 1, 0});
    across = across / length(across);
    const Vec3d along = cross(up, across);
    SurfaceMesh box;
    std::array<SurfaceMesh::Vertex_index, 8> corner;
    for (std::size_t i = 0; i < 8; ++i) {
        const Vec3d p = point + across * ((i & 1U) != 0 ? size : -size) +
                        along * ((i & 2U) != 0 ? size : -size) - up * ((i & 4U) != 0 ? 0 : size);
        corner[i] = box.add_vertex({p.x, p.y, p.z});
    }
    const std::array<std::array<std::size_t, 4>, 6> quads = {
        {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}}};
    for (const auto& [i, j, k, l] : quads) {
        box.add_face(corner[i], corner[j], corner[k]);
        box.add_face(corner[i], corner[k], corner[l]);
    }
    return box;
}

// One half: the other is thrown away.
void clip_cgal(benchmark::State& state, const std::string& name) {
    const TriMesh& from = mesh(name);
    const auto surface = cgal_surface<SurfaceMesh>(from);
    const SurfaceMesh half = half_space(centre_of(from) + Vec3d{0, 0, kOff}, kOblique, 1000);
    measure(
        state, [&] { return surface; },
        [&](SurfaceMesh& model) {
            SurfaceMesh clipper = half;
            peer::clip(model, clipper, CGAL::parameters::clip_volume(true));
            return model.number_of_faces();
        });
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(from.faces.size()));
}
#endif

}  // namespace
}  // namespace povmesh::bench

int main(int argc, char** argv) {
    using namespace povmesh::bench;  // NOLINT(google-build-using-namespace)
    std::vector<std::string> names = {"rock_328k", "rock_1311k"};
    for (const std::string& name : models()) names.push_back(name);
    add("cut", names, cut_in_two);
    add("slabs", {"rock_1311k"}, cut_in_slabs);
    benchmark::RegisterBenchmark("fill_rim", fill)
        ->Arg(1000)
        ->Arg(10000)
        ->Arg(100000)
        ->Arg(1000000)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
#ifdef POVMESH_BENCH_PEERS
    add("clip_cgal", {"rock_328k", "rock_1311k"}, clip_cgal);
#endif
    return run(argc, argv);
}
