// Reduction of the number of faces, by the queue and in parallel, with and without colours. One
// thread (scripts/bench sets OMP_NUM_THREADS=1), but for the operations whose name tells two.
//
// Floor, per triangle that goes: two faces of the mesh read and written, about 24 neighbours'
// corners looked at and six costs renewed of 92-byte quadrics: about 1.5 kB at random places.
//
// The peers' half-edge meshes and ours are made beforehand, which is not counted; the use table is
// not built. Beside the time stand the faces that are left and "rms", the root mean square of the
// distance between result and source, both ways, in millionths of the diagonal of the model.
#include <omp.h>

#include <cmath>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "inputs.h"
#include "mesh/compact.h"
#include "remesh/parallel_reduce.h"
#include "remesh/reduce.h"
#include "spatial/surface_distance.h"

#ifdef POVMESH_BENCH_PEERS
#include <CGAL/Polygon_mesh_processing/orient_polygon_soup.h>
#include <CGAL/Polygon_mesh_processing/polygon_soup_to_polygon_mesh.h>
#include <CGAL/Simple_cartesian.h>
#include <CGAL/Surface_mesh.h>
#include <CGAL/Surface_mesh_simplification/Policies/Edge_collapse/Bounded_normal_change_placement.h>
#include <CGAL/Surface_mesh_simplification/Policies/Edge_collapse/Count_ratio_stop_predicate.h>
#include <CGAL/Surface_mesh_simplification/Policies/Edge_collapse/GarlandHeckbert_plane_policies.h>
#include <CGAL/Surface_mesh_simplification/edge_collapse.h>
#include <meshoptimizer.h>

#include <OpenMesh/Core/IO/MeshIO.hh>
#include <OpenMesh/Core/Mesh/TriMesh_ArrayKernelT.hh>
#include <OpenMesh/Tools/Decimater/DecimaterT.hh>
#include <OpenMesh/Tools/Decimater/ModQuadricT.hh>
#endif

namespace povmesh::bench {
namespace {

constexpr double kHalf = 0.5;
constexpr double kTenth = 0.1;
constexpr double kFloorBytes = 1500;

// The quality of a result, measured once: a benchmark is run several times.
void report_quality(benchmark::State& state, const std::string& operation, const std::string& input,
                    const TriMesh& source, TriMesh result) {
    static std::map<std::string, std::pair<double, double>> known;
    const std::string name = operation + "/" + input;
    auto found = known.find(name);
    if (found == known.end()) {
        compact(result);
        const double rms = surface_distance(source, result).rms() / diagonal(source) * 1e6;
        found = known.insert({name, {rms, static_cast<double>(result.faces.size())}}).first;
    }
    state.counters["rms"] = found->second.first;
    state.counters["faces"] = found->second.second;
}

template <typename Reduce>
void measure_reduction(benchmark::State& state, const std::string& operation,
                       const std::string& input, const TriMesh& source, Reduce&& reduce_mesh) {
    TriMesh result = source;
    reduce_mesh(result);
    report_quality(state, operation, input, source, std::move(result));
    measure(
        state, [&] { return source; },
        [&](TriMesh& mesh) {
            reduce_mesh(mesh);
            return mesh.faces.size();
        });
    const double gone = static_cast<double>(source.faces.size()) - state.counters["faces"];
    set_floor(state, kFloorBytes * gone);
}

void reduce_half(benchmark::State& state, const std::string& input) {
    measure_reduction(state, "reduce_half", input, mesh(input),
                      [](TriMesh& mesh) { reduce(mesh, {.keep = kHalf}); });
}

// As hosts get it that preprocess a model.
void reduce_auto(benchmark::State& state, const std::string& input) {
    measure_reduction(state, "reduce_auto", input, mesh(input),
                      [](TriMesh& mesh) { reduce(mesh, kReduceScans); });
}

void parallel(TriMesh& mesh, double target) {
    RunLog log;
    RunContext run{{}, log};
    reduce_parallel(mesh, {.keep = target}, run);
}

void parallel_half(benchmark::State& state, const std::string& input) {
    measure_reduction(state, "parallel_half", input, mesh(input),
                      [](TriMesh& mesh) { parallel(mesh, kHalf); });
}

void parallel_tenth(benchmark::State& state, const std::string& input) {
    measure_reduction(state, "parallel_tenth", input, mesh(input),
                      [](TriMesh& mesh) { parallel(mesh, kTenth); });
}

// What counts is the elapsed time; it has no meaning on a machine that is busy.
void parallel_half_2_threads(benchmark::State& state, const std::string& input) {
    const int before = omp_get_max_threads();
    omp_set_num_threads(2);
    measure_reduction(state, "parallel_half_2_threads", input, mesh(input),
                      [](TriMesh& mesh) { parallel(mesh, kHalf); });
    omp_set_num_threads(before);
    state.counters["is_elapsed"] = 1;
}

// Each corner has the colour of its place, three waves a side of the model.
TriMesh coloured(TriMesh mesh) {
    const double size = diagonal(mesh);
    for (Face& face : mesh.faces) {
        for (std::size_t c = 0; c < 3; ++c) {
            const Vec3f p = mesh.corner_position(face, c);
            std::size_t channel = 3 * c;
            for (const float x : {p.x, p.y, p.z}) {
                const double wave = std::sin(static_cast<double>(x) / size * 30);
                face.colour[channel++] = static_cast<std::uint8_t>(127.5 + 127 * wave);
            }
        }
    }
    return mesh;
}

void parallel_half_colour(benchmark::State& state, const std::string& input) {
    measure_reduction(state, "parallel_half_colour", input, coloured(mesh(input)),
                      [](TriMesh& mesh) { parallel(mesh, kHalf); });
}

#ifdef POVMESH_BENCH_PEERS
using Point = CGAL::Simple_cartesian<double>::Point_3;
using Surface = CGAL::Surface_mesh<Point>;

// As a manifold: where faces do not fit together they are parted.
Surface cgal_mesh(const TriMesh& from) {
    std::vector<Point> points;
    std::vector<std::array<std::size_t, 3>> polygons;
    for (const Vertex& v : from.vertices) points.emplace_back(v.x, v.y, v.z);
    for (const Face& face : from.faces) {
        polygons.push_back({static_cast<std::size_t>(face.vertex[0]),
                            static_cast<std::size_t>(face.vertex[1]),
                            static_cast<std::size_t>(face.vertex[2])});
    }
    Surface surface;
    namespace peer = CGAL::Polygon_mesh_processing;
    peer::orient_polygon_soup(points, polygons);
    peer::polygon_soup_to_polygon_mesh(points, polygons, surface);
    return surface;
}

void collapse(Surface& surface, double share) {
    namespace simplification = CGAL::Surface_mesh_simplification;
    using Policies =
        simplification::GarlandHeckbert_plane_policies<Surface, CGAL::Simple_cartesian<double>>;
    const simplification::Count_ratio_stop_predicate<Surface> stop(share);
    const Policies policies(surface);
    const auto& cost = policies.get_cost();
    const simplification::Bounded_normal_change_placement<Policies::Get_placement> placement(
        policies.get_placement());
    simplification::edge_collapse(surface, stop,
                                  CGAL::parameters::get_cost(cost).get_placement(placement));
}

TriMesh mesh_of(Surface& surface) {
    surface.collect_garbage();
    TriMesh mesh;
    for (const auto v : surface.vertices()) {
        const Point& p = surface.point(v);
        mesh.vertices.push_back({static_cast<float>(p.x()), static_cast<float>(p.y()),
                                 static_cast<float>(p.z()), static_cast<std::int32_t>(v.idx())});
    }
    for (const auto f : surface.faces()) {
        Face face{{}, 0, -1, {}, {-1, -1, -1}};
        std::size_t c = 0;
        for (const auto v : surface.vertices_around_face(surface.halfedge(f))) {
            face.vertex[c++] = static_cast<std::int32_t>(v.idx());
        }
        mesh.faces.push_back(face);
    }
    return mesh;
}

void reduce_cgal(benchmark::State& state, const std::string& operation, const std::string& input,
                 double share) {
    const Surface source = cgal_mesh(mesh(input));
    Surface result = source;
    collapse(result, share);
    report_quality(state, operation, input, mesh(input), mesh_of(result));
    measure(
        state, [&] { return Surface(source); },
        [&](Surface& surface) {
            collapse(surface, share);
            return surface.number_of_faces();
        });
}

void reduce_half_cgal(benchmark::State& state, const std::string& input) {
    reduce_cgal(state, "reduce_half_cgal", input, kHalf);
}

void reduce_tenth_cgal(benchmark::State& state, const std::string& input) {
    reduce_cgal(state, "reduce_tenth_cgal", input, kTenth);
}

void reduce_meshoptimizer(benchmark::State& state, const std::string& operation,
                          const std::string& input, double share) {
    const TriMesh& source = mesh(input);
    std::vector<unsigned> indices;
    for (const Face& face : source.faces) {
        for (const std::int32_t v : face.vertex) indices.push_back(static_cast<unsigned>(v));
    }
    const std::size_t target =
        3 * static_cast<std::size_t>(share * static_cast<double>(source.faces.size()));
    const auto run = [&](std::vector<unsigned>& result) {
        result.resize(meshopt_simplify(result.data(), indices.data(), indices.size(),
                                       &source.vertices.front().x, source.vertices.size(),
                                       sizeof(Vertex), target, 1.0F, 0, nullptr));
        return result.size();
    };
    std::vector<unsigned> left(indices.size());
    run(left);
    TriMesh result;
    result.vertices = source.vertices;
    for (std::size_t i = 0; i < left.size(); i += 3) {
        result.faces.push_back(
            {{},
             0,
             -1,
             {static_cast<std::int32_t>(left[i]), static_cast<std::int32_t>(left[i + 1]),
              static_cast<std::int32_t>(left[i + 2])},
             {-1, -1, -1}});
    }
    report_quality(state, operation, input, source, std::move(result));
    measure(
        state, [&] { return std::vector<unsigned>(indices.size()); }, run);
}

void reduce_half_meshoptimizer(benchmark::State& state, const std::string& input) {
    reduce_meshoptimizer(state, "reduce_half_meshoptimizer", input, kHalf);
}

void reduce_tenth_meshoptimizer(benchmark::State& state, const std::string& input) {
    reduce_meshoptimizer(state, "reduce_tenth_meshoptimizer", input, kTenth);
}

using OpenMeshSurface = OpenMesh::TriMesh_ArrayKernelT<>;

void decimate(OpenMeshSurface& surface, double share) {
    OpenMesh::Decimater::DecimaterT<OpenMeshSurface> decimater(surface);
    OpenMesh::Decimater::ModQuadricT<OpenMeshSurface>::Handle quadric;
    decimater.add(quadric);
    decimater.module(quadric).unset_max_err();
    decimater.initialize();
    const double faces = share * static_cast<double>(surface.n_faces());
    decimater.decimate_to_faces(0, static_cast<std::size_t>(faces));
}

void reduce_openmesh(benchmark::State& state, const std::string& operation,
                     const std::string& input, double share) {
    const TriMesh& from = mesh(input);
    OpenMeshSurface source;
    source.request_vertex_status();
    source.request_edge_status();
    source.request_halfedge_status();
    source.request_face_status();
    source.request_face_normals();
    for (const Vertex& v : from.vertices) source.add_vertex({v.x, v.y, v.z});
    const auto vertex = [](std::int32_t v) { return OpenMeshSurface::VertexHandle(v); };
    for (const Face& face : from.faces) {
        source.add_face(vertex(face.vertex[0]), vertex(face.vertex[1]), vertex(face.vertex[2]));
    }
    source.update_normals();
    OpenMeshSurface left = source;
    decimate(left, share);
    left.garbage_collection();
    TriMesh result;
    for (const auto v : left.vertices()) {
        const auto& p = left.point(v);
        result.vertices.push_back({p[0], p[1], p[2], v.idx()});
    }
    for (const auto f : left.faces()) {
        Face face{{}, 0, -1, {}, {-1, -1, -1}};
        std::size_t c = 0;
        for (const auto v : left.fv_range(f)) face.vertex[c++] = v.idx();
        result.faces.push_back(face);
    }
    report_quality(state, operation, input, from, std::move(result));
    measure(
        state, [&] { return source; },
        [&](OpenMeshSurface& surface) {
            decimate(surface, share);
            return surface.n_faces();
        });
}

void reduce_half_openmesh(benchmark::State& state, const std::string& input) {
    reduce_openmesh(state, "reduce_half_openmesh", input, kHalf);
}

void reduce_tenth_openmesh(benchmark::State& state, const std::string& input) {
    reduce_openmesh(state, "reduce_tenth_openmesh", input, kTenth);
}
#endif

}  // namespace
}  // namespace povmesh::bench

int main(int argc, char** argv) {
    using namespace povmesh::bench;  // NOLINT(google-build-using-namespace)
    std::vector<std::string> inputs = {"rock_328k", "rock_1311k"};
    for (const std::string& model : existing_models({"scorpion", "hammer"})) {
        inputs.push_back(model);
    }
    add("reduce_half", inputs, reduce_half);
    add("reduce_auto", {"rock_1311k"}, reduce_auto);
    add("parallel_half", inputs, parallel_half);
    add("parallel_half_2_threads", inputs, parallel_half_2_threads);
    add("parallel_half_colour", {"rock_328k", "rock_1311k"}, parallel_half_colour);
    add("parallel_tenth", inputs, parallel_tenth);
#ifdef POVMESH_BENCH_PEERS
    add("reduce_half_cgal", inputs, reduce_half_cgal);
    add("reduce_tenth_cgal", inputs, reduce_tenth_cgal);
    add("reduce_half_meshoptimizer", inputs, reduce_half_meshoptimizer);
    add("reduce_tenth_meshoptimizer", inputs, reduce_tenth_meshoptimizer);
    add("reduce_half_openmesh", inputs, reduce_half_openmesh);
    add("reduce_tenth_openmesh", inputs, reduce_tenth_openmesh);
#endif
    return run(argc, argv);
}
