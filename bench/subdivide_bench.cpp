// A level of Loop subdivision: adaptive and uniform ones, and five levels of a small mesh with
// compacting. One thread (scripts/bench sets OMP_NUM_THREADS=1).
//
// Floor of a uniform level, per triangle, far beyond the caches: faces read (36) and copied into
// the larger array (72), four faces written (144), vertices read and written (40): 292 bytes;
// compacting is in the time as well.
#include "cgal_surface.h"
#include "inputs.h"
#include "remesh/subdivide.h"

#ifdef POVMESH_BENCH_PEERS
#include <CGAL/Simple_cartesian.h>
#include <CGAL/Surface_mesh.h>
#include <CGAL/subdivision_method_3.h>

#include <OpenMesh/Core/IO/MeshIO.hh>
#include <OpenMesh/Core/Mesh/TriMesh_ArrayKernelT.hh>
#include <OpenMesh/Tools/Subdivider/Uniform/LoopT.hh>
#endif

namespace povmesh::bench {
namespace {

constexpr double kLevelBytes = 292;

void subdivide_in(SubdivideMode mode, benchmark::State& state, const std::string& input) {
    const TriMesh& source = mesh(input);
    measure(
        state, [&] { return source; },
        [&](TriMesh& mesh) {
            subdivide(mesh, mode);
            return mesh.faces.size();
        });
    set_floor(state, kLevelBytes * static_cast<double>(triangle_count(input)));
}

void subdivide_uniform(benchmark::State& state, const std::string& input) {
    subdivide_in(SubdivideMode::Uniform, state, input);
}

void subdivide_adaptive(benchmark::State& state, const std::string& input) {
    subdivide_in(SubdivideMode::Adaptive, state, input);
}

void subdivide_five_levels(benchmark::State& state, const std::string& input) {
    const TriMesh& source = mesh(input);
    measure(
        state, [&] { return source; },
        [&](TriMesh& mesh) {
            for (int level = 0; level < 5; ++level) subdivide(mesh, SubdivideMode::Uniform);
            return mesh.faces.size();
        });
}

#ifdef POVMESH_BENCH_PEERS
void subdivide_uniform_cgal(benchmark::State& state, const std::string& input) {
    using Point = CGAL::Simple_cartesian<double>::Point_3;
    using Surface = CGAL::Surface_mesh<Point>;
    const auto source = cgal_surface<Surface>(mesh(input));
    measure(
        state, [&] { return source; },
        [](Surface& surface) {
            CGAL::Subdivision_method_3::Loop_subdivision(surface,
                                                         CGAL::parameters::number_of_iterations(1));
            return surface.number_of_faces();
        });
}

void subdivide_uniform_openmesh(benchmark::State& state, const std::string& input) {
    using Surface = OpenMesh::TriMesh_ArrayKernelT<>;
    const TriMesh& from = mesh(input);
    Surface source;
    std::vector<Surface::VertexHandle> vertices;
    for (const Vertex& v : from.vertices) vertices.push_back(source.add_vertex({v.x, v.y, v.z}));
    const auto vertex = [&](std::int32_t v) { return vertices[static_cast<std::size_t>(v)]; };
    for (const Face& face : from.faces) {
        source.add_face(vertex(face.vertex[0]), vertex(face.vertex[1]), vertex(face.vertex[2]));
    }
    measure(
        state, [&] { return source; },
        [](Surface& surface) {
            OpenMesh::Subdivider::Uniform::LoopT<Surface, float> loop;
            loop.attach(surface);
            loop(1);
            loop.detach();
            return surface.n_faces();
        });
}
#endif

}  // namespace
}  // namespace povmesh::bench

int main(int argc, char** argv) {
    using namespace povmesh::bench;  // NOLINT(google-build-using-namespace)
    const std::vector<std::string> rocks = {"rock_328k", "rock_1311k"};
    add("subdivide_uniform", growing_inputs(), subdivide_uniform);
    add("subdivide_uniform", {"rock_328k_random", "fan_100k", "fan_200k"}, subdivide_uniform);
    add("subdivide_adaptive", rocks, subdivide_adaptive);
    add("subdivide_five_levels", {"rock_5k"}, subdivide_five_levels);
#ifdef POVMESH_BENCH_PEERS
    add("subdivide_uniform_cgal", rocks, subdivide_uniform_cgal);
    add("subdivide_uniform_openmesh", rocks, subdivide_uniform_openmesh);
#endif
    return run(argc, argv);
}
