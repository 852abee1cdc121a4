// Exported functions on soups with colours, texture coordinates and labels.
#include "api/host_numbers.h"
#include "api/steps.h"
#include "design/lampshade.h"
#include "mesh/export_data.h"
#include "povmesh/povmesh.h"
#include "remesh/parallel_reduce.h"
#include "remesh/reduce.h"
#include "remesh/remesh.h"
#include "repair/repair.h"
#include "spatial/separation.h"

using namespace povmesh;
using namespace povmesh::api;

void modelRepairFromColorData(const float* coordinates_in, const float* colours_in,
                              const float* texture_coordinates_in, const int32_t* labels_in,
                              uint32_t count_in, float** coordinates, float** colours,
                              float** texture_coordinates, int32_t** labels, uint32_t* count,
                              uint32_t* progress) {
    Job job(progress);
    TriMesh mesh =
        build(soup_of(coordinates_in, count_in, colours_in, texture_coordinates_in, labels_in));
    job.progress(30);
    repair(mesh);
    job.progress(70);
    export_soup(mesh, {coordinates, colours, texture_coordinates, labels, count});
    job.progress(100);
}

void modelRepairFromColorDataWithPostDetection(const float* coordinates_in, const float* colours_in,
                                               const float* texture_coordinates_in,
                                               const int32_t* labels_in, uint32_t count_in,
                                               float** coordinates, float** colours,
                                               float** texture_coordinates, int32_t** labels,
                                               uint32_t* count, uint8_t detect, uint32_t* inverted,
                                               uint32_t* open_edges, uint32_t* non_manifold,
                                               uint32_t* degenerate, uint32_t* progress) {
    const CountersOut counters{inverted, open_edges, non_manifold, degenerate};
    Job job(progress);
    TriMesh mesh =
        build(soup_of(coordinates_in, count_in, colours_in, texture_coordinates_in, labels_in));
    job.progress(30);
    repair(mesh);
    job.progress(70);
    export_soup(mesh, {coordinates, colours, texture_coordinates, labels, count});
    job.progress(80);
    if (detect != 0) {
        test_for_flaws(mesh, counters);
    } else {
        counters.store_all(kNotTested);
    }
    job.progress(100);
}

void meshReduceFromColorData(float target, const float* coordinates_in, const float* colours_in,
                             const float* texture_coordinates_in, const int32_t* labels_in,
                             uint32_t count_in, float** coordinates, float** colours,
                             float** texture_coordinates, int32_t** labels, uint32_t* count,
                             uint32_t* progress) {
    Job job(progress);
    TriMesh mesh =
        build(soup_of(coordinates_in, count_in, colours_in, texture_coordinates_in, labels_in));
    job.progress(50);
    reduce_parallel(mesh, reduction_to(target), job.run());
    job.progress(90);
    export_soup(mesh, {coordinates, colours, texture_coordinates, labels, count});
    job.progress(100);
}

void subdivisionFromColorData(uint32_t levels, const float* coordinates_in, const float* colours_in,
                              const float* texture_coordinates_in, const int32_t* labels_in,
                              uint32_t count_in, float** coordinates, float** colours,
                              float** texture_coordinates, int32_t** labels, uint32_t* count) {
    Job job;
    TriMesh mesh =
        build(soup_of(coordinates_in, count_in, colours_in, texture_coordinates_in, labels_in));
    subdivide_levels(mesh, level_count(levels),
                     subdivide_mode(colours_in, texture_coordinates_in, labels_in));
    export_soup(mesh, {coordinates, colours, texture_coordinates, labels, count});
}

void lampshadeFromData(float thickness, const float* coordinates_in, const float* colours_in,
                       const float* texture_coordinates_in, const int32_t* labels_in,
                       uint32_t count_in, float** coordinates, float** colours,
                       float** texture_coordinates, int32_t** labels, uint32_t* count,
                       uint32_t* progress) {
    Job job(progress);
    TriMesh mesh =
        build(soup_of(coordinates_in, count_in, colours_in, texture_coordinates_in, labels_in));
    job.progress(10);
    RunContext run{{}, job.run().log};  // hosts know these values of progress, and no more
    lampshade(mesh, thickness, run);
    job.progress(90);
    export_soup(mesh, {coordinates, colours, texture_coordinates, labels, count});
    job.progress(100);
}

uint64_t errorDetectAfterMeshReduceFromColorData(
    const float* coordinates_in, const float* colours_in, const float* texture_coordinates_in,
    const int32_t* labels_in, uint32_t count_in, float** coordinates, float** colours,
    float** texture_coordinates, int32_t** labels, uint32_t* count, uint32_t* inverted,
    uint32_t* open_edges, uint32_t* non_manifold, uint32_t* degenerate, uint32_t* progress) {
    Job job(progress);
    TriMesh mesh =
        build(soup_of(coordinates_in, count_in, colours_in, texture_coordinates_in, labels_in));
    job.progress(57);
    traced("tri.reduce", [&] {
        reduce(mesh, kReduceScans);
        job.progress(75);
    });
    job.progress(80);
    export_soup(mesh, {coordinates, colours, texture_coordinates, labels, count});
    const uint64_t flawed = test_for_flaws(mesh, {inverted, open_edges, non_manifold, degenerate});
    job.progress(100);
    return flawed;
}

uint64_t errorDetectFromData(const float* coordinates_in, const float* colours_in,
                             const float* texture_coordinates_in, const int32_t* labels_in,
                             uint32_t count_in, uint32_t* inverted, uint32_t* open_edges,
                             uint32_t* non_manifold, uint32_t* degenerate) {
    Job job;
    TriMesh mesh =
        build(soup_of(coordinates_in, count_in, colours_in, texture_coordinates_in, labels_in));
    return test_for_flaws(mesh, {inverted, open_edges, non_manifold, degenerate});
}

void uniformRemeshFromColorData(float edge_length, const float* coordinates_in,
                                const float* colours_in, const float* texture_coordinates_in,
                                const int32_t* labels_in, uint32_t count_in, float** coordinates,
                                float** colours, float** texture_coordinates, int32_t** labels,
                                uint32_t* count) {
    Job job;
    TriMesh mesh =
        build(soup_of(coordinates_in, count_in, colours_in, texture_coordinates_in, labels_in));
    remesh(mesh, {.edge_length = static_cast<double>(edge_length)}, job.run());
    export_soup(mesh, {coordinates, colours, texture_coordinates, labels, count});
}

void separateShellsFromData(const float* coordinates_in, const float* colours_in,
                            const float* texture_coordinates_in, const int32_t* labels_in,
                            uint32_t count_in, float** coordinates, float** colours,
                            float** texture_coordinates, int32_t** labels,
                            uint32_t** part_triangles, uint32_t* part_count, uint32_t* progress) {
    Job job(progress);
    TriMesh mesh =
        build(soup_of(coordinates_in, count_in, colours_in, texture_coordinates_in, labels_in));
    job.progress(10);
    separate_bodies(mesh);
    job.progress(80);
    drop_small_parts(mesh);
    export_parts(mesh,
                 {coordinates, colours, texture_coordinates, labels, part_triangles, part_count});
    job.progress(100);
}
