// Remeshing to even triangles. One thread (scripts/bench sets OMP_NUM_THREADS=1).
//
// Floor, per triangle of the result and round: five passes over the connectivity and the positions,
// 5 x 60 bytes, and two searches of the nearest point of the original, about 2 x 0.5 us a vertex.
//
// Beside the time stand the number of faces, the smallest angle (degrees), the spread of the edge
// lengths (standard deviation over mean), and "rms", the root mean square of the distance between
// result and source, both ways, in millionths of the diagonal.
#include <algorithm>
#include <cmath>
#include <map>
#include <numbers>
#include <string>

#include "inputs.h"
#include "mesh/bounds.h"
#include "remesh/remesh.h"
#include "spatial/surface_distance.h"

#ifdef POVMESH_BENCH_PEERS
#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#include <CGAL/Polygon_mesh_processing/orient_polygon_soup.h>
#include <CGAL/Polygon_mesh_processing/polygon_soup_to_polygon_mesh.h>
#include <CGAL/Polygon_mesh_processing/remesh.h>
#include <CGAL/Surface_mesh.h>
#endif

namespace povmesh::bench {
namespace {

constexpr int kRounds = 3;  // of the peer

struct Shape {
    double mean_edge = 0;
    double spread = 0;
    double smallest_angle = 180;
};

// Every edge of a closed mesh counts twice, which changes nothing.
Shape shape_of(const TriMesh& mesh) {
    double sum = 0;
    double squares = 0;
    Shape shape;
    for (const Face& face : mesh.faces) {
        for (std::size_t c = 0; c < 3; ++c) {
            const Vec3d p = to_double(mesh.corner_position(face, c));
            const Vec3d a = to_double(mesh.corner_position(face, (c + 1) % 3)) - p;
            const Vec3d b = to_double(mesh.corner_position(face, (c + 2) % 3)) - p;
            const double cosine = dot(a, b) / (length(a) * length(b));
            shape.smallest_angle =
                std::min(shape.smallest_angle,
                         std::acos(std::clamp(cosine, -1.0, 1.0)) * 180 / std::numbers::pi);
            sum += length(a);
            squares += dot(a, a);
        }
    }
    const double count = 3.0 * static_cast<double>(mesh.faces.size());
    shape.mean_edge = sum / count;
    shape.spread = std::sqrt(squares / count - shape.mean_edge * shape.mean_edge) / shape.mean_edge;
    return shape;
}

void report_quality(benchmark::State& state, const std::string& name, const TriMesh& source,
                    const TriMesh& result) {
    static std::map<std::string, double> known;  // a benchmark is run several times
    auto found = known.find(name);
    if (found == known.end()) {
        const double rms = surface_distance(source, result).rms() / diagonal(source) * 1e6;
        found = known.insert({name, rms}).first;
    }
    const Shape shape = shape_of(result);
    state.counters["rms"] = found->second;
    state.counters["faces"] = static_cast<double>(result.faces.size());
    state.counters["angle"] = shape.smallest_angle;
    state.counters["spread"] = shape.spread;
}

void remesh_to(benchmark::State& state, const std::string& name, const TriMesh& source,
               double edge_length) {
    const auto run = [&](TriMesh& mesh) {
        RunLog log;
        RunContext context{{}, log};
        remesh(mesh, {.edge_length = edge_length}, context);
        return mesh.faces.size();
    };
    TriMesh result = source;
    run(result);
    report_quality(state, name, source, result);
    measure(
        state, [&] { return source; }, run);
}

void remesh_twice(benchmark::State& state, const std::string& input) {
    remesh_to(state, "remesh/" + input, mesh(input), 2 * shape_of(mesh(input)).mean_edge);
}

// What colouring a model by its strength asks for: a mean extent of 100, an edge of 1.
void remesh_normal(benchmark::State& state, const std::string& input) {
    TriMesh source = mesh(input);
    const Vec3f extent = finite_bounds(source).extent();
    const float scale = 300.0F / (extent.x + extent.y + extent.z);
    for (Vertex& v : source.vertices) {
        v.x *= scale;
        v.y *= scale;
        v.z *= scale;
    }
    remesh_to(state, "normal/" + input, source, 1.0);
}

// A vertex of very many faces at each end, or a sphere of the same radius and as many faces: what
// searches for the nearest point cost where needles meet.
TriMesh hubs_or_sphere(const std::string& input) {
    constexpr std::size_t kCount = 327'680;
    if (input == "sphere_328k") return shapes::mesh_of(shapes::sphere(1000, 7));
    shapes::SoupVector soup = shapes::fan(kCount / 2, 1000);
    shapes::SoupVector mirrored = shapes::turned(soup);
    for (std::size_t i = 2; i < mirrored.size(); i += 3) mirrored[i] = -mirrored[i];
    shapes::append(soup, mirrored);
    return shapes::mesh_of(soup);
}

void remesh_to_tenth(benchmark::State& state, const std::string& input) {
    remesh_to(state, "tenth/" + input, hubs_or_sphere(input), 100);
}

void remesh_to_twentieth(benchmark::State& state, const std::string& input) {
    remesh_to(state, "twentieth/" + input, hubs_or_sphere(input), 50);
}

#ifdef POVMESH_BENCH_PEERS
using Kernel = CGAL::Exact_predicates_inexact_constructions_kernel;
using Surface = CGAL::Surface_mesh<Kernel::Point_3>;
namespace PMP = CGAL::Polygon_mesh_processing;

Surface cgal_mesh(const TriMesh& mesh) {
    std::vector<Kernel::Point_3> points;
    std::vector<std::vector<std::size_t>> polygons;
    for (const Vertex& v : mesh.vertices) points.emplace_back(v.x, v.y, v.z);
    for (const Face& face : mesh.faces) {
        polygons.emplace_back(face.vertex.begin(), face.vertex.end());
    }
    PMP::orient_polygon_soup(points, polygons);
    Surface surface;
    PMP::polygon_soup_to_polygon_mesh(points, polygons, surface);
    return surface;
}

void remesh_twice_cgal(benchmark::State& state, const std::string& input) {
    const TriMesh& from = mesh(input);
    const double edge_length = 2 * shape_of(from).mean_edge;
    const Surface source = cgal_mesh(from);
    const auto run = [&](Surface& surface) {
        PMP::isotropic_remeshing(faces(surface), edge_length, surface,
                                 CGAL::parameters::number_of_iterations(kRounds));
        return surface.number_of_faces();
    };
    Surface left = source;
    run(left);
    left.collect_garbage();
    TriMesh result;
    for (const auto v : left.vertices()) {
        const auto& p = left.point(v);
        result.vertices.push_back({static_cast<float>(p.x()), static_cast<float>(p.y()),
                                   static_cast<float>(p.z()), static_cast<std::int32_t>(v)});
    }
    for (const auto f : left.faces()) {
        Face face{{}, 0, -1, {}, {-1, -1, -1}};
        std::size_t c = 0;
        for (const auto v : vertices_around_face(left.halfedge(f), left)) {
            face.vertex[c++] = static_cast<std::int32_t>(v);
        }
        result.faces.push_back(face);
    }
    report_quality(state, "cgal/" + input, from, result);
    measure(
        state, [&] { return source; }, run);
}
#endif

}  // namespace
}  // namespace povmesh::bench

int main(int argc, char** argv) {
    using namespace povmesh::bench;  // NOLINT(google-build-using-namespace)
    add("remesh", {"rock_328k"}, remesh_twice);
    std::vector<std::string> inputs = {"rock_82k"};
    for (const std::string& model :
         existing_models({"scorpion", "benchy", "hammer", "gearwheel"})) {
        inputs.push_back(model);
    }
    add("remesh_normal", inputs, remesh_normal);
    add_named("remesh_tenth_of_radius", {"hubs_328k", "sphere_328k"}, remesh_to_tenth);
    add_named("remesh_twentieth_of_radius", {"hubs_328k", "sphere_328k"}, remesh_to_twentieth);
#ifdef POVMESH_BENCH_PEERS
    add("remesh_cgal", {"rock_328k"}, remesh_twice_cgal);
#endif
    return run(argc, argv);
}
