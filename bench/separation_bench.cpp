// Separating a mesh into models, grouping its shells, telling which are nested, and finding where a
// surface crosses itself. One thread (scripts/bench sets OMP_NUM_THREADS=1).
//
// Floor of separating, per triangle, far beyond the caches: 226 bytes for uses, edges and shells
// (see detect_bench.cpp), 48 read and 49 written to gather the soup, 49 read and 44 written to
// build the parts: 416 bytes, 104 ns at 4 GB/s. Grouping shells that are apart reads 48 bytes a
// triangle for the boxes.
#include <algorithm>
#include <cmath>
#include <map>

#include "cgal_surface.h"
#include "inputs.h"
#include "mesh/shells.h"
#include "spatial/self_intersection.h"
#include "spatial/separation.h"
#include "spatial/shell_nesting.h"

#ifdef POVMESH_BENCH_PEERS
#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#include <CGAL/Polygon_mesh_processing/connected_components.h>
#include <CGAL/Polygon_mesh_processing/intersection.h>
#include <CGAL/Polygon_mesh_processing/self_intersections.h>
#include <CGAL/Surface_mesh.h>
#endif

namespace povmesh::bench {
namespace {

using shapes::SoupVector;

SoupVector rocks(std::size_t count, int levels, float distance, float jitter) {
    const SoupVector rock = shapes::rock(10, levels);
    shapes::Random random(1);
    const auto side = static_cast<std::size_t>(std::ceil(std::cbrt(static_cast<double>(count))));
    SoupVector soup;
    soup.reserve(count * rock.size());
    for (std::size_t i = 0; i < count; ++i) {
        const auto at = [&](std::size_t step) {
            return distance * static_cast<float>(step) +
                   jitter * (static_cast<float>(random.unit()) - 0.5F);
        };
        SoupVector next = rock;
        const float x = at(i % side);
        const float y = at(i / side % side);
        shapes::move(next, {x, y, at(i / side / side)});
        shapes::append(soup, next);
    }
    return soup;
}

// Triangles of about `size` in a unit cube.
SoupVector heap(std::size_t count, double size) {
    shapes::Random random(2);
    SoupVector soup;
    for (std::size_t i = 0; i < count; ++i) {
        const double x = random.unit();
        const double y = random.unit();
        const double z = random.unit();
        for (int corner = 0; corner < 3; ++corner) {
            for (const double base : {x, y, z}) {
                soup.push_back(static_cast<float>(base + size * (random.unit() - 0.5)));
            }
        }
    }
    return soup;
}

SoupVector make(const std::string& name) {
    if (name == "apart_1000_large") return rocks(1000, 3, 40, 0);
    if (name == "meeting_1000_large") return rocks(1000, 3, 24.1F, 12);
    if (name == "heap_100k_small") return heap(100000, 0.001);
    if (name == "heap_100k_large") return heap(100000, 1);
    if (name == "chain_200") {
        SoupVector soup;
        const SoupVector rock = shapes::rock(10, 3);
        for (int i = 0; i < 200; ++i) {
            SoupVector next = rock;
            shapes::move(next, {15 * static_cast<float>(i), 0, 0});
            shapes::append(soup, next);
        }
        return soup;
    }
    if (name == "bubbles_10k") {  // a large rock around small ones
        SoupVector soup = shapes::rock(700, 8);
        shapes::append(soup, rocks(10000, 0, 30, 0));
        for (std::size_t i = std::size_t{20} * 65536 * 9; i < soup.size(); ++i) soup[i] -= 315;
        return soup;
    }
    return soup(name);
}

// With its shells labelled and its uses made.
const TriMesh& input_mesh(const std::string& name) {
    static std::map<std::string, TriMesh> made;
    const auto place = made.find(name);
    if (place != made.end()) return place->second;
    TriMesh& mesh = made[name];
    mesh = shapes::mesh_of(make(name));
    label_shells(mesh);
    return mesh;
}

TriMesh fresh_mesh(const std::string& name) {
    TriMesh mesh = input_mesh(name);
    mesh.shells.clear();
    mesh.use_table.clear();
    return mesh;
}

void set_items(benchmark::State& state, const std::string& name) {
    state.SetItemsProcessed(state.iterations() *
                            static_cast<std::int64_t>(input_mesh(name).faces.size()));
}

void separate(benchmark::State& state, const std::string& name) {
    measure(
        state, [&] { return fresh_mesh(name); },
        [&](TriMesh& mesh) {
            separate_bodies(mesh);
            state.counters["models"] = static_cast<double>(mesh.parts.size());
            return mesh.parts.size();
        });
    set_floor(state, 416.0 * static_cast<double>(input_mesh(name).faces.size()));
    set_items(state, name);
}

void group(benchmark::State& state, const std::string& name) {
    const TriMesh& mesh = input_mesh(name);
    measure(state, [&] {
        const ShellGroups groups = group_intersecting_shells(mesh);
        state.counters["groups"] = static_cast<double>(groups.size());
        return groups.size();
    });
    set_items(state, name);
}

void classify(benchmark::State& state, const std::string& name) {
    TriMesh mesh = input_mesh(name);
    const EdgeMates mates(mesh);
    measure(state, [&] {
        const std::vector<ShellNesting> nesting = classify_shells(mesh, mates);
        state.counters["cavities"] = static_cast<double>(
            std::count_if(nesting.begin(), nesting.end(),
                          [](const ShellNesting& shell) { return shell.is_cavity(); }));
        return nesting.size();
    });
    set_items(state, name);
}

void self_intersections(benchmark::State& state, const std::string& name) {
    const TriMesh& mesh = input_mesh(name);
    measure(state, [&] {
        const SelfIntersections found = find_self_intersections(mesh, 100);
        state.counters["pairs"] = static_cast<double>(found.count);
        return found.count;
    });
    set_items(state, name);
}

#ifdef POVMESH_BENCH_PEERS
namespace peer = CGAL::Polygon_mesh_processing;
using Kernel = CGAL::Exact_predicates_inexact_constructions_kernel;
using SurfaceMesh = CGAL::Surface_mesh<Kernel::Point_3>;

const SurfaceMesh& surface_mesh(const std::string& name) {
    static std::map<std::string, SurfaceMesh> made;
    const auto place = made.find(name);
    if (place != made.end()) return place->second;
    return made[name] = cgal_surface<SurfaceMesh>(input_mesh(name));
}

void separate_cgal(benchmark::State& state, const std::string& name) {
    const SurfaceMesh& surface = surface_mesh(name);
    measure(state, [&] {
        std::vector<SurfaceMesh> parts;
        peer::split_connected_components(surface, parts);
        state.counters["models"] = static_cast<double>(parts.size());
        return parts.size();
    });
    set_items(state, name);
}

// Reports every meeting pair, so it cannot leave out pairs that are known to be together.
void group_cgal(benchmark::State& state, const std::string& name) {
    std::vector<SurfaceMesh> parts;
    peer::split_connected_components(surface_mesh(name), parts);
    measure(state, [&] {
        std::vector<std::pair<std::size_t, std::size_t>> pairs;
        peer::intersecting_meshes(parts, std::back_inserter(pairs));
        state.counters["pairs"] = static_cast<double>(pairs.size());
        return pairs.size();
    });
    set_items(state, name);
}

void self_intersections_cgal(benchmark::State& state, const std::string& name) {
    const SurfaceMesh& surface = surface_mesh(name);
    measure(state, [&] {
        std::vector<std::pair<SurfaceMesh::Face_index, SurfaceMesh::Face_index>> pairs;
        peer::self_intersections<CGAL::Sequential_tag>(surface, std::back_inserter(pairs));
        state.counters["pairs"] = static_cast<double>(pairs.size());
        return pairs.size();
    });
    set_items(state, name);
}
#endif

}  // namespace
}  // namespace povmesh::bench

int main(int argc, char** argv) {
    using namespace povmesh::bench;  // NOLINT(google-build-using-namespace)
    const std::vector<std::string> many = {"apart_1000_large", "meeting_1000_large"};
    add_named("separate",
              {"apart_1000_large", "meeting_1000_large", "heap_100k_small", "rock_1311k"},
              separate);
    add_named("group",
              {"apart_1000_large", "meeting_1000_large", "chain_200", "bubbles_10k",
               "heap_100k_small", "heap_100k_large", "star_100k"},
              group);
    add_named("classify", {"bubbles_10k", "meeting_1000_large"}, classify);
    add_named("self_intersections",
              {"rock_328k", "rock_1311k", "rock_1311k_random", "meeting_1000_large", "fan_100k",
               "book_100k", "star_100k"},
              self_intersections);
#ifdef POVMESH_BENCH_PEERS
    add_named("separate_cgal", {"apart_1000_large"}, separate_cgal);
    add_named("group_cgal", many, group_cgal);
    add_named("self_intersections_cgal", {"rock_328k", "rock_1311k"}, self_intersections_cgal);
#endif
    return run(argc, argv);
}
