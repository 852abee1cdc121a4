// Exported functions that read or write model files.
#include <string>
#include <string_view>

#include "api/host_numbers.h"
#include "api/steps.h"
#include "io/obj.h"
#include "povmesh/povmesh.h"
#include "remesh/parallel_reduce.h"
#include "remesh/reduce.h"
#include "repair/repair.h"

using namespace povmesh;
using namespace povmesh::api;

namespace {

/// What follows the last "."; empty when there is none.
std::string_view extension_of(std::string_view path) {
    const std::size_t dot = path.rfind('.');
    return dot == std::string_view::npos ? std::string_view() : path.substr(dot + 1);
}

/// Preprocessing of a file; `save_back` writes the result over the file.
std::uint64_t preprocess_file(const char* path, const SoupOut& out, std::uint32_t* progress,
                              bool save_back) {
    Job job(progress);
    TriMesh mesh;
    const bool was_read = load_stl(job, mesh, path);
    job.progress(57);
    traced("tri.reduce", [&] {
        reduce(mesh, kReduceScans);
        job.progress(75);
    });
    job.progress(80);
    export_coordinates(mesh, out);
    job.progress(85);
    const std::uint64_t flawed = test_for_flaws(mesh);
    if (save_back && was_read) save_stl(mesh, path);
    job.progress(100);
    return flawed;
}

}  // namespace

void modelRepair64(const char* path) {
    Job job;
    TriMesh mesh;
    const bool was_read = load_stl(job, mesh, path);
    repair(mesh);
    if (was_read) save_stl(mesh, path);
}

void modelRepair(const char* path) {
    modelRepair64(path);
}

uint64_t flawsDetect64(const char* path) {
    Job job;
    TriMesh mesh;
    if (extension_of(path_of(path)) == "obj") {
        load_obj(mesh, path);
    } else {
        load_stl(job, mesh, path);
    }
    return test_for_flaws(mesh);
}

uint64_t flawsDetect(const char* path) {
    return flawsDetect64(path);
}

void meshReduceFromFile64(const char* path, float** coordinates, uint32_t* count,
                          uint32_t* progress) {
    Job job(progress);
    TriMesh mesh;
    load_stl(job, mesh, path);
    job.progress(57);
    traced("tri.reduce", [&] {
        reduce(mesh, kReduceScans);
        job.progress(75);
    });
    job.progress(80);
    export_coordinates(mesh, {coordinates, count});
    job.progress(100);
}

void meshReduceFromFile(const char* path, float** coordinates, uint32_t* count,
                        uint32_t* progress) {
    meshReduceFromFile64(path, coordinates, count, progress);
}

uint64_t meshPreprocessorFromFile64(const char* path, float** coordinates, uint32_t* count,
                                    uint32_t* progress) {
    return preprocess_file(path, {coordinates, count}, progress, false);
}

uint64_t meshPreprocessorFromFile(const char* path, float** coordinates, uint32_t* count,
                                  uint32_t* progress) {
    return meshPreprocessorFromFile64(path, coordinates, count, progress);
}

uint64_t meshPreprocessorFromFileSaveAs64(const char* path, float** coordinates, uint32_t* count,
                                          uint32_t* progress, uint32_t save) {
    return preprocess_file(path, {coordinates, count}, progress, is_set(save));
}

uint64_t meshPreprocessorCtrlFromFile(const char* path, uint64_t /*unused*/, float target,
                                      float** coordinates, uint32_t* count, uint32_t* progress) {
    Job job(progress);
    TriMesh mesh;
    load_stl(job, mesh, path);
    job.progress(50);
    if (target >= 0) reduce_parallel(mesh, reduction_to(target), job.run());
    job.progress(80);
    export_coordinates(mesh, {coordinates, count});
    job.progress(85);
    const uint64_t flawed = test_for_flaws(mesh);
    job.progress(100);
    return flawed;
}

void importFile(const char* path, float** coordinates, float** colours, float** texture_coordinates,
                int32_t** labels, uint32_t* count) {
    Job job;
    TriMesh mesh;
    const std::string name = path_of(path);
    if (extension_of(name) == "stl") load_stl(job, mesh, path);
    if (extension_of(name) == "obj") load_obj(mesh, path);
    export_soup(mesh, {coordinates, colours, texture_coordinates, labels, count});
}

void saveasObjFromDataDoublePrecision(const char* path, const double* coordinates_in,
                                      const float* colours_in, const double* texture_coordinates_in,
                                      const int32_t* labels_in, int32_t count_in) {
    const bool has_triangles = coordinates_in != nullptr && count_in > 0;
    TriMesh mesh;
    build_from_doubles(mesh, {has_triangles ? static_cast<std::size_t>(count_in) : 0,
                              coordinates_in, colours_in, texture_coordinates_in, labels_in});
    save_obj(mesh, path);
}
