// Exported functions on soups of coordinates alone.
#include <algorithm>

#include "analysis/weakness.h"
#include "api/host_numbers.h"
#include "api/steps.h"
#include "design/balance.h"
#include "design/hollow.h"
#include "design/infill.h"
#include "mesh/shells.h"
#include "orient/orientation.h"
#include "povmesh/povmesh.h"
#include "remesh/parallel_reduce.h"
#include "remesh/reduce.h"
#include "remesh/revise.h"
#include "repair/repair.h"
#include "voxel/surface.h"
#include "voxel/voxelise.h"

using namespace povmesh;
using namespace povmesh::api;

void modelRepairFromData64(float** coordinates_in, uint32_t* count_in, float** coordinates,
                           uint32_t* count, uint32_t* progress) {
    Job job(progress);
    TriMesh mesh = build(soup_of(coordinates_in, count_in));
    job.progress(30);
    repair(mesh);
    job.progress(70);
    export_coordinates(mesh, {coordinates, count});
    job.progress(100);
}

void modelRepairFromData(float** coordinates_in, uint32_t* count_in, float** coordinates,
                         uint32_t* count, uint32_t* progress) {
    modelRepairFromData64(coordinates_in, count_in, coordinates, count, progress);
}

uint64_t meshPreprocessorFromData(float** coordinates_in, uint32_t* count_in, float** coordinates,
                                  uint32_t* count, uint32_t* progress) {
    return traced("meshPreprocessorFromData", [&] {
        Job job(progress);
        TriMesh mesh = build(soup_of(coordinates_in, count_in));
        job.progress(50);
        job.progress(57);
        traced("tri.reduce", [&] {
            reduce(mesh, kReduceScans);
            job.progress(75);
        });
        job.progress(80);
        export_coordinates(mesh, {coordinates, count});
        job.progress(85);
        const uint64_t flawed = test_for_flaws(mesh);
        job.progress(100);
        return flawed;
    });
}

void meshReduceFromData(float target, float** coordinates_in, uint32_t* count_in,
                        float** coordinates, uint32_t* count) {
    Job job;
    TriMesh mesh = build(soup_of(coordinates_in, count_in));
    reduce_parallel(mesh, reduction_to(target), job.run());
    export_coordinates(mesh, {coordinates, count});
}

void subdivisionFromData(uint32_t levels, float** coordinates_in, uint32_t* count_in,
                         float** coordinates, uint32_t* count) {
    Job job;
    TriMesh mesh = build(soup_of(coordinates_in, count_in));
    subdivide_levels(mesh, level_count(levels), SubdivideMode::Adaptive);
    export_coordinates(mesh, {coordinates, count});
}

void reviseTriangleFromData(float** coordinates_in, uint32_t* count_in, float** coordinates,
                            uint32_t* count) {
    Job job;
    TriMesh mesh = build(soup_of(coordinates_in, count_in));
    revise_triangles(mesh);
    export_coordinates(mesh, {coordinates, count});
}

void remeshFromData64(float** coordinates_in, uint32_t* count_in, float** coordinates,
                      uint32_t* count, float** edge_lengths, uint32_t* edge_length_count) {
    Job job;
    const Soup soup = soup_of(coordinates_in, count_in);
    TriMesh mesh = build(soup);
    remesh_by_lengths(job, mesh, soup, lengths_of(edge_lengths, edge_length_count));
    export_coordinates(mesh, {coordinates, count});
}

void orientationOptimization(const float* coordinates_in, uint32_t count_in, float* orientations,
                             int32_t capacity) {
    Job job;
    const TriMesh mesh = build(soup_of(coordinates_in, count_in));
    if (orientations == nullptr || capacity <= 0) return;
    const OrientationReport report = find_orientations(mesh, job.run());
    const auto rows = static_cast<std::size_t>(capacity);
    for (std::size_t i = 0; i < std::min(rows, report.best.size()); ++i, orientations += 4) {
        const Orientation& row = report.best[i];
        orientations[0] = static_cast<float>(row.up.x);
        orientations[1] = static_cast<float>(row.up.y);
        orientations[2] = static_cast<float>(row.up.z);
        orientations[3] = static_cast<float>(row.score());
    }
    if (report.best.size() < rows) {
        std::fill_n(orientations, 4 * (rows - report.best.size()), 0.0F);
    }
}

void hollowFromData(float thickness, const float* coordinates_in, uint32_t count_in,
                    float** coordinates, uint32_t* count, uint32_t* progress) {
    Job job(progress);
    TriMesh mesh = build(soup_of(coordinates_in, count_in));
    job.progress(10);
    hollow(mesh, thickness, job.run());
    job.progress(90);
    export_coordinates(mesh, {coordinates, count});
    job.progress(100);
}

void cellularInfillFromData(float surface_thickness, float infill_density,
                            const float* coordinates_in, uint32_t count_in, float** coordinates,
                            uint32_t* count, uint32_t* progress) {
    Job job(progress);
    TriMesh mesh = build(soup_of(coordinates_in, count_in));
    job.progress(10);
    cellular_infill(mesh, surface_thickness, infill_density, job.run());
    job.progress(90);
    export_coordinates(mesh, {coordinates, count});
    job.progress(100);
}

void balancingFromData(float thickness, const float* coordinates_in, uint32_t count_in,
                       float** coordinates, uint32_t* count, uint32_t* progress) {
    Job job(progress);
    TriMesh mesh = build(soup_of(coordinates_in, count_in));
    job.progress(10);
    balance(mesh, thickness, job.run());
    job.progress(90);
    export_coordinates(mesh, {coordinates, count});
    job.progress(100);
}

void voxelize(float voxel_size, const float* coordinates_in, const float* colours_in,
              uint32_t count_in, float** coordinates, float** colours, uint32_t* count) {
    Job job;
    TriMesh mesh = build(soup_of(coordinates_in, count_in, colours_in));
    export_voxels(mesh, voxelise(mesh, {{voxel_size, voxel_size, voxel_size}}, job.run()),
                  job.run());
    export_coordinates_and_colours(mesh, coordinates, colours, count);
}

void weaknessDetect(const float* coordinates_in, uint32_t count_in, float** centres,
                    float** normals, float** scores, uint32_t* section_count, uint64_t option) {
    Job job;
    TriMesh mesh = build(soup_of(coordinates_in, count_in));
    traced("tri.reduce", [&] { reduce_for_analysis(job, mesh); });
    label_shells(mesh);
    export_sections(detect_weakness(mesh, section_mode(option), job.run()),
                    {centres, normals, scores, section_count});
}
