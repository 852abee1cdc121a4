// Reading and writing OBJ files, in the form that hosts get (five decimals, a colour behind each
// vertex) and in the exact one of the tool. One thread (scripts/bench sets OMP_NUM_THREADS=1);
// files as in stl_bench.cpp.
//
// Floors per triangle of a closed mesh, which has half a vertex for each:
//   read   about 22 bytes of face and 24 (exact: 17) of vertex, at 0.86 GB/s, and the compaction of
//          mesh_bench.cpp: 0.12 us
//   write  the same bytes in digits, six numbers, at 0.4 GB/s or so: 0.1 us
#include <filesystem>
#include <stdexcept>

#include "inputs.h"
#include "io/obj.h"
#include "io/stl.h"

#ifdef POVMESH_BENCH_PEERS
#include <CGAL/IO/OBJ.h>
#include <CGAL/Simple_cartesian.h>
#include <assimp/scene.h>

#include <assimp/Importer.hpp>
#include <fstream>
#include <memory>

#include "admesh_file.h"
#endif

namespace povmesh::bench {
namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what);
}

enum class Form { ForHosts, Exact };

// A model as it is, a generated input as we write it.
std::string obj_file(const std::string& input, Form form) {
    std::string model = model_file(input);
    if (model.ends_with(".obj")) return model;
    const bool exact = form == Form::Exact;
    std::string path = scratch_file(input + (exact ? "_exact.obj" : ".obj"));
    if (!std::filesystem::exists(path)) {
        TriMesh source = mesh(input);
        const Status status = povmesh::write_obj(source, path, {.exact = exact}, false);
        if (!status.ok()) fail(status.text());
    }
    return path;
}

void set_bytes(benchmark::State& state, const std::string& path) {
    state.counters["bytes"] = static_cast<double>(std::filesystem::file_size(path));
}

// The exact form is read as the tool reads: negative numbers are resolved.
template <Form form>
void read_obj(benchmark::State& state, const std::string& input) {
    const std::string path = obj_file(input, form);
    measure(state, [&] {
        TriMesh mesh;
        ObjInfo info;
        const ObjReadOptions options{.strict = form == Form::Exact};
        const Status status = povmesh::read_obj(path, options, mesh, info);
        if (!status.ok()) fail(status.text());
        return mesh;
    });
    set_bytes(state, path);
}

// The yardstick for the rate: text into a mesh here too.
void read_ascii_mesh(benchmark::State& state, const std::string& input) {
    const std::string path = ascii_stl(input);
    measure(state, [&] {
        RunLog log;
        RunContext run{{}, log};
        TriMesh mesh;
        const Status status = read_stl(path, run, mesh);
        if (!status.ok()) fail(status.text());
        return mesh;
    });
    set_bytes(state, path);
}

// From faces and vertices alone: the uses, by which vertices are split, are made on the way.
template <Form form>
void write_obj(benchmark::State& state, const std::string& input) {
    const std::string path = scratch_file("written.obj");
    measure(
        state, [&] { return mesh(input); },
        [&](TriMesh& written) {
            const Status status =
                povmesh::write_obj(written, path, {.exact = form == Form::Exact}, false);
            if (!status.ok()) fail(status.text());
            return status.ok();
        });
    set_bytes(state, path);
}

#ifdef POVMESH_BENCH_PEERS
// No post-processing: three vertices of its own for each face; colours are read.
template <Form form>
void read_obj_assimp(benchmark::State& state, const std::string& input) {
    const std::string path = obj_file(input, form);
    measure(
        state, [] { return std::make_unique<Assimp::Importer>(); },
        [&](std::unique_ptr<Assimp::Importer>& importer) {
            const aiScene* scene = importer->ReadFile(path, 0);
            if (scene == nullptr || scene->mNumMeshes == 0) fail("assimp: " + path);
            return scene;
        });
}

// Points and faces with indices; colours and texture coordinates are skipped.
template <Form form>
void read_obj_cgal(benchmark::State& state, const std::string& input) {
    struct Indexed {
        std::vector<CGAL::Simple_cartesian<float>::Point_3> points;
        std::vector<std::vector<std::size_t>> polygons;
    };
    const std::string path = obj_file(input, form);
    measure(state, [&] {
        Indexed indexed;
        std::ifstream file(path);
        if (!CGAL::IO::read_OBJ(file, indexed.points, indexed.polygons)) fail("CGAL: " + path);
        return indexed;
    });
}

// Six decimals, no colours. Its shared vertices are at hand.
void write_obj_admesh(benchmark::State& state, const std::string& input) {
    AdmeshFile model(binary_stl(input));
    stl_check_facets_exact(&model.get());
    stl_generate_shared_vertices(&model.get());
    std::string path = scratch_file("written_admesh.obj");
    measure(state, [&] {
        stl_write_obj(&model.get(), path.data());
        return stl_get_error(&model.get());
    });
    set_bytes(state, path);
}
#endif

}  // namespace
}  // namespace povmesh::bench

int main(int argc, char** argv) {
    using namespace povmesh::bench;  // NOLINT(google-build-using-namespace)
    const std::vector<std::string> rocks = {"rock_328k", "rock_1311k"};
    std::vector<std::string> read = rocks;
    for (const std::string& model :
         existing_models({"boat_uv", "lionstatue_holes", "motorbike_groups"})) {
        read.push_back(model);
    }
    add("read_obj", read, read_obj<Form::ForHosts>);
    add("read_exact_obj", read, read_obj<Form::Exact>);
    add("read_ascii_mesh", rocks, read_ascii_mesh);
    add("write_obj", rocks, write_obj<Form::ForHosts>);
    add("write_exact_obj", rocks, write_obj<Form::Exact>);
#ifdef POVMESH_BENCH_PEERS
    add("read_obj_assimp", read, read_obj_assimp<Form::ForHosts>);
    add("read_exact_obj_assimp", read, read_obj_assimp<Form::Exact>);
    add("read_obj_cgal", read, read_obj_cgal<Form::ForHosts>);
    add("read_exact_obj_cgal", read, read_obj_cgal<Form::Exact>);
    add("write_obj_admesh", rocks, write_obj_admesh);
#endif
    return run(argc, argv);
}
