// The convex hull of a model's vertices, beside CGAL's.
//
// Floor: every point is read and tested against one plane at least: 16 bytes and 6 operations, 2 ms
// for 655 thousand points. Each is tested again whenever the facet that it hangs on goes, about ten
// times for points of a rough surface.
#include <vector>

#include "inputs.h"
#include "spatial/convex_hull.h"

#ifdef POVMESH_BENCH_PEERS
#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#include <CGAL/Surface_mesh.h>
#include <CGAL/convex_hull_3.h>
#endif

namespace povmesh::bench {
namespace {

std::vector<Vec3f> points_of(const std::string& name) {
    std::vector<Vec3f> points;
    for (const Vertex& vertex : mesh(name).vertices) points.push_back(vertex.position());
    return points;
}

void hull(benchmark::State& state, const std::string& name) {
    const std::vector<Vec3f> points = points_of(name);
    measure(state, [&] {
        const ConvexHull made = convex_hull(points);
        state.counters["facets"] = static_cast<double>(made.triangles.size());
        return made.vertices.size();
    });
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(points.size()));
}

#ifdef POVMESH_BENCH_PEERS
using Kernel = CGAL::Exact_predicates_inexact_constructions_kernel;

void hull_cgal(benchmark::State& state, const std::string& name) {
    std::vector<Kernel::Point_3> points;
    for (const Vec3f p : points_of(name)) points.emplace_back(p.x, p.y, p.z);
    measure(state, [&] {
        CGAL::Surface_mesh<Kernel::Point_3> made;
        CGAL::convex_hull_3(points.begin(), points.end(), made);
        state.counters["facets"] = static_cast<double>(made.number_of_faces());
        return made.number_of_vertices();
    });
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(points.size()));
}
#endif

}  // namespace
}  // namespace povmesh::bench

int main(int argc, char** argv) {
    using namespace povmesh::bench;  // NOLINT(google-build-using-namespace)
    std::vector<std::string> names = {"rock_82k", "rock_328k", "rock_1311k"};
    for (const std::string& name : models()) names.push_back(name);
    add("hull", names, hull);
#ifdef POVMESH_BENCH_PEERS
    add("hull_cgal", names, hull_cgal);
#endif
    return run(argc, argv);
}
