// Reading and writing PLY and 3MF files. One thread (scripts/bench sets OMP_NUM_THREADS=1); files
// as in stl_bench.cpp.
//
// Floors per triangle of a closed mesh, which has half a vertex for each:
//   PLY    19 bytes of file, moved twice, and the compaction of mesh_bench.cpp: 0.1 us
//   3MF    about 66 bytes of text, which zlib unpacks at 0.35 GB/s: 0.19 us; in writing it packs
//          them at 0.1 GB/s: 0.6 us
#include <filesystem>
#include <stdexcept>

#include <omp.h>

#include "inputs.h"
#include "io/file.h"
#include "io/ply.h"
#include "io/stl.h"
#include "io/stream.h"
#include "io/three_mf.h"

#ifdef POVMESH_BENCH_PEERS
#include <Model/COM/NMR_DLLInterfaces.h>
#include <assimp/scene.h>

#include <assimp/Importer.hpp>
#include <memory>
#endif

namespace povmesh::bench {
namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what);
}

void require_ok(const Status& status) {
    if (!status.ok()) fail(status.text());
}

void write_package(const TriMesh& mesh, const std::string& path) {
    ReplacementFile file;
    require_ok(file.open(path, false));
    require_ok(write_three_mf(mesh, {}, {}, path, file));
}

// The input as we write it, made when first asked for.
std::string ply_file(const std::string& input) {
    std::string path = scratch_file(input + ".ply");
    if (!std::filesystem::exists(path)) require_ok(povmesh::write_ply(mesh(input), path, false));
    return path;
}

std::string three_mf_file(const std::string& input) {
    std::string path = scratch_file(input + ".3mf");
    if (!std::filesystem::exists(path)) write_package(mesh(input), path);
    return path;
}

void set_bytes(benchmark::State& state, const std::string& path) {
    state.counters["bytes"] = static_cast<double>(std::filesystem::file_size(path));
}

void read_ply(benchmark::State& state, const std::string& input) {
    const std::string path = ply_file(input);
    measure(state, [&] {
        TriMesh mesh;
        PlyInfo info;
        require_ok(povmesh::read_ply(path, mesh, info));
        return mesh;
    });
    set_bytes(state, path);
}

void write_ply(benchmark::State& state, const std::string& input) {
    const std::string path = scratch_file("written.ply");
    measure(state, [&] {
        require_ok(povmesh::write_ply(mesh(input), path, false));
        return 0;
    });
    set_bytes(state, path);
}

void read_three_mf(benchmark::State& state, const std::string& input) {
    const std::string path = three_mf_file(input);
    measure(state, [&] {
        InputFile file;
        require_ok(file.open(path));
        TriMesh mesh;
        ThreeMfContent content;
        ThreeMfInfo info;
        require_ok(povmesh::read_three_mf(bytes_of(file), path, mesh, content, info));
        return mesh;
    });
    set_bytes(state, path);
}

void write_three_mf(benchmark::State& state, const std::string& input) {
    const std::string path = scratch_file("written.3mf");
    measure(state, [&] {
        write_package(mesh(input), path);
        return 0;
    });
    set_bytes(state, path);
}

// The time that passes; parts of the text are packed at once.
void write_three_mf_2_threads(benchmark::State& state, const std::string& input) {
    const int before = omp_get_max_threads();
    omp_set_num_threads(2);
    write_three_mf(state, input);
    omp_set_num_threads(before);
}

// As the tool does: unpacked into a file without a name, then read.
void read_packed_stl(benchmark::State& state, const std::string& input) {
    const std::string path = scratch_file(input + ".stl.gz");
    if (!std::filesystem::exists(path)) {
        ReplacementFile file;
        require_ok(file.open(path, false));
        GzipSink packed(file);
        require_ok(write_stl(mesh(input), packed));
    }
    measure(state, [&] {
        InputFile file;
        require_ok(unpack_gzip(path, file));
        RunLog log;
        RunContext run{{}, log};
        TriMesh mesh;
        StlInfo info;
        require_ok(read_stl(bytes_of(file), path, {.strict = true}, run, mesh, info));
        return mesh;
    });
    set_bytes(state, path);
}

#ifdef POVMESH_BENCH_PEERS
// No post-processing: three vertices of its own for each face of a PLY file, shared ones of 3MF.
template <std::string (*file)(const std::string&)>
void read_assimp(benchmark::State& state, const std::string& input) {
    const std::string path = file(input);
    measure(
        state, [] { return std::make_unique<Assimp::Importer>(); },
        [&](std::unique_ptr<Assimp::Importer>& importer) {
            const aiScene* scene = importer->ReadFile(path, 0);
            if (scene == nullptr || scene->mNumMeshes == 0) fail("assimp: " + path);
            return scene;
        });
}

void require_peer(int result) {
    if (result != 0) fail("lib3mf: " + std::to_string(result));
}

void read_three_mf_lib3mf(benchmark::State& state, const std::string& input) {
    const std::string path = three_mf_file(input);
    NMR::PLib3MFModel* model = nullptr;
    measure(state, [&] {
        NMR::PLib3MFModelReader* reader = nullptr;
        if (model != nullptr) NMR::lib3mf_release(model);
        require_peer(NMR::lib3mf_createmodel(&model));
        require_peer(NMR::lib3mf_model_queryreader(model, "3mf", &reader));
        require_peer(NMR::lib3mf_reader_readfromfileutf8(reader, path.c_str()));
        NMR::lib3mf_release(reader);
        return 0;
    });
    NMR::lib3mf_release(model);
}

// The mesh is given to it beforehand.
void write_three_mf_lib3mf(benchmark::State& state, const std::string& input) {
    const TriMesh& source = mesh(input);
    const std::string path = scratch_file("written_lib3mf.3mf");
    NMR::PLib3MFModel* model = nullptr;
    NMR::PLib3MFModelMeshObject* object = nullptr;
    NMR::PLib3MFModelBuildItem* item = nullptr;
    require_peer(NMR::lib3mf_createmodel(&model));
    require_peer(NMR::lib3mf_model_addmeshobject(model, &object));
    std::vector<NMR::MODELMESHVERTEX> vertices;
    for (const Vertex& v : source.vertices) vertices.push_back({{v.x, v.y, v.z}});
    std::vector<NMR::MODELMESHTRIANGLE> triangles;
    for (const Face& face : source.faces) {
        NMR::MODELMESHTRIANGLE triangle{};
        for (std::size_t c = 0; c < 3; ++c) {
            triangle.m_nIndices[c] = static_cast<DWORD>(face.vertex[c]);
        }
        triangles.push_back(triangle);
    }
    require_peer(NMR::lib3mf_meshobject_setgeometry(
        object, vertices.data(), static_cast<DWORD>(vertices.size()), triangles.data(),
        static_cast<DWORD>(triangles.size())));
    require_peer(NMR::lib3mf_model_addbuilditem(model, object, nullptr, &item));
    measure(state, [&] {
        NMR::PLib3MFModelWriter* writer = nullptr;
        require_peer(NMR::lib3mf_model_querywriter(model, "3mf", &writer));
        require_peer(NMR::lib3mf_writer_writetofileutf8(writer, path.c_str()));
        NMR::lib3mf_release(writer);
        return 0;
    });
    set_bytes(state, path);
    NMR::lib3mf_release(item);
    NMR::lib3mf_release(object);
    NMR::lib3mf_release(model);
}
#endif

}  // namespace
}  // namespace povmesh::bench

int main(int argc, char** argv) {
    using namespace povmesh::bench;  // NOLINT(google-build-using-namespace)
    std::vector<std::string> inputs = {"rock_328k", "rock_1311k"};
    for (const std::string& model : existing_models({"benchy", "ct_skull"})) {
        inputs.push_back(model);
    }
    add("read_ply", inputs, read_ply);
    add("write_ply", inputs, write_ply);
    add("read_3mf", inputs, read_three_mf);
    add("write_3mf", inputs, write_three_mf);
    add("write_3mf_2_threads", inputs, write_three_mf_2_threads);
    add("read_stl_gz", inputs, read_packed_stl);
#ifdef POVMESH_BENCH_PEERS
    add("read_ply_assimp", inputs, read_assimp<ply_file>);
    add("read_3mf_assimp", inputs, read_assimp<three_mf_file>);
    add("read_3mf_lib3mf", inputs, read_three_mf_lib3mf);
    add("write_3mf_lib3mf", inputs, write_three_mf_lib3mf);
#endif
    return run(argc, argv);
}
