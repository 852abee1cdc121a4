// Repairing a mesh from its soup, and closing holes alone. One thread (scripts/bench sets
// OMP_NUM_THREADS=1).
//
// Floor of a repair, per triangle, far beyond the caches: build_f with uses 139 bytes, three edge
// tables with two labellings of shells 2 x 226 (the second and third are made because duplicates
// went and faces came), tilted vertices 16, the walk 100, compacting 88: 795 bytes, 0.2 us at 4
// GB/s.
#include <algorithm>
#include <stdexcept>

#include "inputs.h"
#include "mesh/build_f.h"
#include "mesh/edge_mates.h"
#include "repair/boundary_loops.h"
#include "repair/detect.h"
#include "repair/hole_closing.h"
#include "repair/repair.h"

#ifdef POVMESH_BENCH_PEERS
#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#include <CGAL/Polygon_mesh_processing/border.h>
#include <CGAL/Polygon_mesh_processing/orient_polygon_soup.h>
#include <CGAL/Polygon_mesh_processing/polygon_soup_to_polygon_mesh.h>
#include <CGAL/Polygon_mesh_processing/repair_polygon_soup.h>
#include <CGAL/Polygon_mesh_processing/triangulate_hole.h>
#include <CGAL/Surface_mesh.h>

#include "admesh_file.h"
#endif

namespace povmesh::bench {
namespace {

// The limit for duplicates, which hosts rely on, would spare the larger inputs.
RepairOptions whole_repair() {
    RepairOptions options;
    options.duplicate_limit = SIZE_MAX;
    return options;
}

// What is left, beside the time: a quick repair that repairs nothing is none.
void report_flaws(benchmark::State& state, TriMesh& mesh) {
    const FlawCounts left = detect(mesh);
    state.counters["left_open"] = left.open_edges;
    state.counters["left_non_manifold"] = left.non_manifold;
    state.counters["left_inverted"] = left.inverted;
}

bool is_generated(const std::string& input) {
    return input.starts_with("broken_") || input.starts_with("holed_");
}

TriMesh build(const shapes::SoupVector& soup) {
    TriMesh mesh;
    build_f(mesh, Soup{.triangle_count = soup.size() / 9, .coordinates = soup.data()});
    return mesh;
}

void repair(benchmark::State& state, const std::string& input) {
    const shapes::SoupVector& soup = bench::soup(input);
    const auto run = [&] {
        TriMesh mesh = build(soup);
        povmesh::repair(mesh, whole_repair());
        return mesh;
    };
    TriMesh result = run();
    report_flaws(state, result);
    const FlawCounts left = detect(result);
    if (is_generated(input) && (left.open_edges | left.non_manifold | left.inverted) != 0) {
        throw std::runtime_error("repair left flaws in " + input);
    }
    measure(state, run);
    set_floor(state, 795.0 * static_cast<double>(triangle_count(input)));
}

// With the edge table at hand; tracing the rims is a part of it.
void close_holes(benchmark::State& state, const std::string& input) {
    TriMesh source = mesh(input);
    const EdgeMates mates(source);
    measure(
        state, [&] { return source; },
        [&](TriMesh& mesh) {
            const HoleReport report = povmesh::close_holes(mesh, mates);
            const auto closed =
                std::count_if(report.holes.begin(), report.holes.end(),
                              [](const Hole& hole) { return hole.fate == HoleFate::Closed; });
            state.counters["holes"] = static_cast<double>(report.holes.size());
            state.counters["closed"] = static_cast<double>(closed);
            return closed;
        });
}

void trace_rims(benchmark::State& state, const std::string& input) {
    TriMesh source = mesh(input);
    const EdgeMates mates(source);
    measure(state, [&] { return trace_boundary_loops(source, mates).size(); });
}

// The edge table too.
void close_holes_from_faces(benchmark::State& state, const std::string& input) {
    const TriMesh& source = mesh(input);
    measure(
        state, [&] { return source; },
        [&](TriMesh& mesh) {
            const EdgeMates mates(mesh);
            return povmesh::close_holes(mesh, mates).added_face_count;
        });
}

#ifdef POVMESH_BENCH_PEERS
namespace peer = CGAL::Polygon_mesh_processing;
using Point = CGAL::Exact_predicates_inexact_constructions_kernel::Point_3;
using SurfaceMesh = CGAL::Surface_mesh<Point>;

struct PolygonSoup {
    std::vector<Point> points;
    std::vector<std::array<std::size_t, 3>> polygons;
};

PolygonSoup polygon_soup(const std::string& input) {
    const shapes::SoupVector& soup = bench::soup(input);
    PolygonSoup result;
    for (std::size_t i = 0; i < soup.size(); i += 3) {
        result.points.emplace_back(soup[i], soup[i + 1], soup[i + 2]);
    }
    for (std::size_t i = 0; i < result.points.size(); i += 3) {
        result.polygons.push_back({i, i + 1, i + 2});
    }
    return result;
}

std::vector<SurfaceMesh::Halfedge_index> holes_of(SurfaceMesh& surface) {
    std::vector<SurfaceMesh::Halfedge_index> holes;
    peer::extract_boundary_cycles(surface, std::back_inserter(holes));
    return holes;
}

std::size_t fill(SurfaceMesh& surface, const std::vector<SurfaceMesh::Halfedge_index>& holes) {
    std::vector<SurfaceMesh::Face_index> patch;
    for (const auto hole : holes) peer::triangulate_hole(surface, hole, std::back_inserter(patch));
    return patch.size();
}

SurfaceMesh build(PolygonSoup& soup) {
    peer::repair_polygon_soup(soup.points, soup.polygons);
    peer::orient_polygon_soup(soup.points, soup.polygons);
    SurfaceMesh surface;
    peer::polygon_soup_to_polygon_mesh(soup.points, soup.polygons, surface);
    return surface;
}

TriMesh mesh_of(const SurfaceMesh& surface) {
    shapes::SoupVector soup;
    for (const auto face : surface.faces()) {
        for (const auto vertex : surface.vertices_around_face(surface.halfedge(face))) {
            const Point& p = surface.point(vertex);
            for (const double x : {p.x(), p.y(), p.z()}) soup.push_back(static_cast<float>(x));
        }
    }
    return shapes::mesh_of(soup);
}

void repair_cgal(benchmark::State& state, const std::string& input) {
    PolygonSoup source = polygon_soup(input);
    const auto run = [](PolygonSoup& soup) {
        SurfaceMesh surface = build(soup);
        fill(surface, holes_of(surface));
        return surface;
    };
    PolygonSoup soup = source;
    TriMesh result = mesh_of(run(soup));
    report_flaws(state, result);
    measure(
        state, [&] { return source; }, run);
}

// Its half-edge mesh knows the borders; extracting the holes is not counted.
void close_holes_cgal(benchmark::State& state, const std::string& input) {
    struct Item {
        SurfaceMesh surface;
        std::vector<SurfaceMesh::Halfedge_index> holes;
    };
    PolygonSoup soup = polygon_soup(input);
    Item source{build(soup), {}};
    source.holes = holes_of(source.surface);
    state.counters["holes"] = static_cast<double>(source.holes.size());
    measure(
        state, [&] { return source; }, [](Item& item) { return fill(item.surface, item.holes); });
}

// What "admesh" does without options, to a model freshly read, which is not counted.
void repair_admesh(benchmark::State& state, const std::string& input) {
    const std::string path = binary_stl(input);
    const auto run = [](std::unique_ptr<AdmeshFile>& model) {
        constexpr int kIterations = 2;
        stl_repair(&model->get(), 1, 0, 0, 0, 0, 0, 0, kIterations, 0, 0, 0, 0, 0, 0);
        return model->get().stats.number_of_facets;
    };
    auto model = std::make_unique<AdmeshFile>(path);
    run(model);
    shapes::SoupVector soup;
    for (int f = 0; f < model->get().stats.number_of_facets; ++f) {
        for (const stl_vertex& v : model->get().facet_start[f].vertex) {
            soup.insert(soup.end(), {v.x, v.y, v.z});
        }
    }
    TriMesh result = shapes::mesh_of(soup);
    report_flaws(state, result);
    measure(
        state, [&] { return std::make_unique<AdmeshFile>(path); }, run);
}
#endif

}  // namespace
}  // namespace povmesh::bench

int main(int argc, char** argv) {
    using namespace povmesh::bench;  // NOLINT(google-build-using-namespace)
    std::vector<std::string> broken = {"broken_82k", "broken_328k"};
    for (const std::string& model :
         existing_models({"ct_skull", "lionstatue_holes", "featuretype_open"})) {
        broken.push_back(model);
    }
    const std::vector<std::string> holed = {"holed_82k", "holed_328k"};
    add("repair", broken, repair);
    add("close_holes", holed, close_holes);
    add("trace_rims", holed, trace_rims);
    add("close_holes_from_faces", holed, close_holes_from_faces);
#ifdef POVMESH_BENCH_PEERS
    add("repair_cgal", broken, repair_cgal);
    add("repair_admesh", broken, repair_admesh);
    add("close_holes_cgal", holed, close_holes_cgal);
#endif
    return run(argc, argv);
}
