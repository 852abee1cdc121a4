// Cross-sections: slices into closed loops, and what hangs on them. One thread (scripts/bench sets
// OMP_NUM_THREADS=1).
//
// Floors, far beyond the caches. Slices: each face (36 bytes) and vertex (16 for half as many
// faces) is read to tell which planes cross it, 44 bytes a triangle; each point of a slice has its
// face read (36) with two vertices (32) and is written (16): 84 bytes. Sections read the faces once
// more for the pieces in between, and keep 36 bytes a vertex for those, read and written: 116 bytes
// a triangle more; each point has its face read a second time.
#include <array>
#include <vector>

#include "analysis/section_sweep.h"
#include "analysis/sections.h"
#include "cgal_surface.h"
#include "inputs.h"
#include "mesh/bounds.h"

#ifdef POVMESH_BENCH_PEERS
#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#include <CGAL/Polygon_mesh_slicer.h>
#include <CGAL/Surface_mesh.h>
#endif

namespace povmesh::bench {
namespace {

// A hundred to the mean extent of the model, as weakness detection has them.
double step_of(const TriMesh& mesh) {
    const Box3f box = finite_bounds(mesh);
    const Vec3d extent = to_double(box.high) - to_double(box.low);
    return (extent.x + extent.y + extent.z) / 300;
}

std::vector<double> heights_of(const TriMesh& mesh, std::size_t axis) {
    const Box3f box = finite_bounds(mesh);
    const double low = along_axis(to_double(box.low), axis);
    const double high = along_axis(to_double(box.high), axis);
    std::vector<double> heights;
    for (double i = 0.5; low + i * step_of(mesh) < high; ++i) {
        heights.push_back(low + i * step_of(mesh));
    }
    return heights;
}

std::size_t slice_all(const TriMesh& from, const std::vector<double>& heights) {
    const Slicer slicer(from, 2, heights);
    SliceLoops loops;
    std::size_t points = 0;
    for (std::size_t layer = 0; layer < heights.size(); ++layer) {
        slicer.slice(layer, loops);
        points += loops.points.size();
    }
    return points;
}

void slices(benchmark::State& state, const std::string& name) {
    const TriMesh& from = mesh(name);
    const std::vector<double> heights = heights_of(from, 2);
    const auto points = static_cast<double>(slice_all(from, heights));
    measure(state, [&] { return slice_all(from, heights); });
    state.counters["planes"] = static_cast<double>(heights.size());
    state.counters["points"] = points;
    set_floor(state, 44 * static_cast<double>(from.faces.size()) + 84 * points);
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(from.faces.size()));
}

template <std::size_t axis>
void sections_across(benchmark::State& state, const std::string& name) {
    const TriMesh& from = mesh(name);
    const std::vector<double> heights = heights_of(from, axis);
    measure(state, [&] {
        const SectionSweep sweep = sweep_sections(from, axis, Slicer(from, axis, heights));
        state.counters["sections"] = static_cast<double>(sweep.parts.size());
        return joint_loads(sweep.graph);
    });
    double points = 0;
    const Slicer slicer(from, axis, heights);
    for (std::size_t layer = 0; layer < heights.size(); ++layer) {
        SliceLoops loops;
        slicer.slice(layer, loops);
        points += static_cast<double>(loops.points.size());
    }
    state.counters["planes"] = static_cast<double>(heights.size());
    state.counters["points"] = points;
    set_floor(state, 160 * static_cast<double>(from.faces.size()) + 120 * points);
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(from.faces.size()));
}

void sections(benchmark::State& state, const std::string& name) {
    const TriMesh& from = mesh(name);
    RunLog log;
    RunContext run{{}, log};
    measure(state, [&] {
        const auto found = analyse_sections(from, step_of(from), SectionMode::LocalMinima, run);
        state.counters["weak"] = static_cast<double>(found.size());
        return found.size();
    });
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(from.faces.size()));
}

#ifdef POVMESH_BENCH_PEERS
using Kernel = CGAL::Exact_predicates_inexact_constructions_kernel;
using SurfaceMesh = CGAL::Surface_mesh<Kernel::Point_3>;

void slices_cgal(benchmark::State& state, const std::string& name) {
    const TriMesh& from = mesh(name);
    const auto surface = cgal_surface<SurfaceMesh>(from);
    const std::vector<double> heights = heights_of(from, 2);
    double points = 0;
    measure(state, [&] {
        CGAL::Polygon_mesh_slicer<SurfaceMesh, Kernel> slicer(surface);
        std::vector<std::vector<Kernel::Point_3>> polylines;
        points = 0;
        for (const double height : heights) {
            polylines.clear();
            slicer(Kernel::Plane_3(0, 0, 1, -height), std::back_inserter(polylines));
            for (const auto& line : polylines) points += static_cast<double>(line.size() - 1);
        }
        return points;
    });
    state.counters["points"] = points;
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(from.faces.size()));
}
#endif

}  // namespace
}  // namespace povmesh::bench

int main(int argc, char** argv) {
    using namespace povmesh::bench;  // NOLINT(google-build-using-namespace)
    std::vector<std::string> names = {"rock_82k", "rock_328k", "rock_1311k"};
    for (const std::string& name : models()) names.push_back(name);
    add("slices", names, slices);
    add("sections_x", names, sections_across<0>);
    add("sections_y", names, sections_across<1>);
    add("sections_z", names, sections_across<2>);
    add("sections", names, sections);
    add("sections", {"fan_100k", "fan_200k", "star_100k", "star_200k"}, sections);
#ifdef POVMESH_BENCH_PEERS
    add("slices_cgal", names, slices_cgal);
#endif
    return run(argc, argv);
}
