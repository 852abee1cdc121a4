// Reading and writing STL files. One thread (scripts/bench sets OMP_NUM_THREADS=1). The files lie
// in the page cache or in memory (scripts/bench puts them into /dev/shm where there is room), so
// that no disk is measured; writing leaves out the flush to the disk, which admesh does not do
// either.
//
// Floors per triangle:
//   read_soup   50 bytes read from the system, 36 copied: 86 read and 86 written or so, 4.4 ms for
//               328 thousand triangles with the page faults of fresh memory
//   read_ascii  about 260 bytes of text at 0.86 GB/s, what std::from_chars alone takes: 0.3 us
//   write_stl   36 bytes of face and 8 of vertex read, 50 written and 50 copied by the system: 0.09
//   us
#include "inputs.h"
#include "io/stl.h"

#ifdef POVMESH_BENCH_PEERS
#include <CGAL/IO/STL.h>
#include <CGAL/Simple_cartesian.h>
#include <assimp/scene.h>

#include <assimp/Importer.hpp>
#include <fstream>

#include "admesh_file.h"
#endif

namespace povmesh::bench {
namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what);
}

Array<float> read_soup(const std::string& path) {
    RunLog log;
    RunContext run{{}, log};
    Array<float> coordinates;
    StlInfo info;
    const Status status = read_stl_soup(path, {}, run, coordinates, info);
    if (!status.ok()) fail(status.text());
    return coordinates;
}

TriMesh read_mesh(const std::string& path) {
    RunLog log;
    RunContext run{{}, log};
    TriMesh result;
    const Status status = read_stl(path, run, result);
    if (!status.ok()) fail(status.text());
    return result;
}

void read_soup(benchmark::State& state, const std::string& input) {
    const std::string path = binary_stl(input);
    measure(state, [&] { return read_soup(path); });
    set_floor(state, 86.0 * static_cast<double>(triangle_count(input)));
}

void read_mesh(benchmark::State& state, const std::string& input) {
    const std::string path = binary_stl(input);
    measure(state, [&] { return read_mesh(path); });
}

void read_ascii(benchmark::State& state, const std::string& input) {
    const std::string path = ascii_stl(input);
    measure(state, [&] { return read_soup(path); });
}

void write_stl(benchmark::State& state, const std::string& input) {
    const TriMesh& written = mesh(input);
    const std::string path = scratch_file("written.stl");
    measure(state, [&] {
        const Status status = povmesh::write_stl(written, path, false);
        if (!status.ok()) fail(status.text());
        return status.ok();
    });
}

#ifdef POVMESH_BENCH_PEERS
// What stl_open does stands in admesh_file.h.
void read_soup_admesh(benchmark::State& state, const std::string& input) {
    const std::string path = binary_stl(input);
    measure(state, [&] { return AdmeshFile(path); });
}

// Points and triangles with indices, welded by a map over the coordinates: what build_f makes,
// without the room for colours and labels. Plain float points are the fastest that the reader
// takes.
void read_mesh_cgal(benchmark::State& state, const std::string& input) {
    struct Indexed {
        std::vector<CGAL::Simple_cartesian<float>::Point_3> points;
        std::vector<std::array<int, 3>> triangles;
    };
    const std::string path = binary_stl(input);
    measure(state, [&] {
        Indexed indexed;
        std::ifstream file(path, std::ios::binary);
        if (!CGAL::IO::read_STL(file, indexed.points, indexed.triangles)) fail("CGAL: " + path);
        return indexed;
    });
}

// No post-processing: three vertices of its own for each facet, with a normal each, and faces with
// their indices; nothing is welded.
void read_ascii_assimp(benchmark::State& state, const std::string& input) {
    const std::string path = ascii_stl(input);
    measure(
        state, [] { return std::make_unique<Assimp::Importer>(); },
        [&](std::unique_ptr<Assimp::Importer>& importer) {
            const aiScene* scene = importer->ReadFile(path, 0);
            if (scene == nullptr || scene->mNumMeshes != 1 ||
                scene->mMeshes[0]->mNumFaces != triangle_count(input)) {
                fail("assimp: " + path);
            }
            return scene;
        });
}

// From its own records with normals at hand, value by value through stdio.
void write_stl_admesh(benchmark::State& state, const std::string& input) {
    AdmeshFile model(binary_stl(input));
    const std::string path = scratch_file("written_admesh.stl");
    measure(state, [&] {
        stl_write_binary(&model.get(), path.c_str(), "PovMesh");
        return stl_get_error(&model.get());
    });
}
#endif

}  // namespace
}  // namespace povmesh::bench

int main(int argc, char** argv) {
    using namespace povmesh::bench;  // NOLINT(google-build-using-namespace)
    add("read_soup", compared_inputs(), read_soup);
    add("read_mesh", compared_inputs(), read_mesh);
    add("read_ascii", compared_inputs(), read_ascii);
    add("write_stl", compared_inputs(), write_stl);
#ifdef POVMESH_BENCH_PEERS
    add("read_soup_admesh", shorter_inputs(), read_soup_admesh);
    add("read_mesh_cgal", shorter_inputs(), read_mesh_cgal);
    add("read_ascii_assimp", shorter_inputs(), read_ascii_assimp);
    add("write_stl_admesh", shorter_inputs(), write_stl_admesh);
#endif
    add("read_soup", growing_inputs(), read_soup);
    add("read_mesh", growing_inputs(), read_mesh);
    add("write_stl", growing_inputs(), write_stl);
    return run(argc, argv);
}
