// Exported functions that divide a model: plane cut and decomposition.
#include "api/host_numbers.h"
#include "api/steps.h"
#include "cut/cut.h"
#include "mesh/export_data.h"
#include "povmesh/povmesh.h"

using namespace povmesh;
using namespace povmesh::api;

namespace {

/// The decompositions are not built yet, and their frames are the same.
void divide(const Soup& soup, const MultiOut& out, std::uint32_t* progress) {
    Job job(progress);
    TriMesh mesh = build(soup);
    job.progress(10);
    keep_as_one_part(mesh);
    job.progress(90);
    drop_small_parts(mesh);
    export_parts(mesh, out);
    job.progress(100);
}

void preview_decomposition(const Soup& soup, float** planes, std::uint32_t* plane_count,
                           float** boxes, float** volumes, std::uint32_t* part_count,
                           std::uint32_t* progress) {
    Job job(progress);
    const TriMesh mesh = build(soup);
    // Neither preview is built yet: no plane, no part.
    auto no_planes = allocate_result<float>(0);
    auto no_boxes = allocate_result<float>(0);
    auto no_volumes = allocate_result<float>(0);
    hand_over(Slot::DecompositionPlanes, std::move(no_planes), planes);
    hand_over(Slot::DecompositionBoxes, std::move(no_boxes), boxes);
    hand_over(Slot::DecompositionVolumes, std::move(no_volumes), volumes);
    store(plane_count, std::uint32_t{0});
    store(part_count, std::uint32_t{0});
}

}  // namespace

void cutFromData(const float* normal, const float* direction, const float* point,
                 float connector_radius, uint32_t connector_segments, uint32_t connector_count,
                 uint64_t reserved, uint32_t operation, uint32_t parameter,
                 const float* coordinates_in, const float* colours_in,
                 const float* texture_coordinates_in, const int32_t* labels_in, uint32_t count_in,
                 float** coordinates, float** colours, float** texture_coordinates,
                 int32_t** labels, uint32_t** part_triangles, uint32_t* part_count) {
    planeCutFromData(normal, direction, point, connector_radius, connector_segments,
                     connector_count, reserved, operation, parameter, coordinates_in, colours_in,
                     texture_coordinates_in, labels_in, count_in, coordinates, colours,
                     texture_coordinates, labels, part_triangles, part_count, progress_cell());
}

void planeCutFromData(const float* normal, const float* direction, const float* point,
                      float connector_radius, uint32_t connector_segments, uint32_t connector_count,
                      uint64_t /*reserved*/, uint32_t operation, uint32_t /*parameter*/,
                      const float* coordinates_in, const float* colours_in,
                      const float* texture_coordinates_in, const int32_t* labels_in,
                      uint32_t count_in, float** coordinates, float** colours,
                      float** texture_coordinates, int32_t** labels, uint32_t** part_triangles,
                      uint32_t* part_count, uint32_t* progress) {
    CutOptions options;
    options.operation = cut_operation(operation);
    options.plane = cut_plane(normal, direction, point);
    options.connectors = {connector_radius, connector_count, connector_segments};
    Job job(progress);
    TriMesh mesh =
        build(soup_of(coordinates_in, count_in, colours_in, texture_coordinates_in, labels_in));
    job.progress(10);
    cut_models(mesh, options, job.run());
    job.progress(90);
    drop_small_parts(mesh);
    export_parts(mesh,
                 {coordinates, colours, texture_coordinates, labels, part_triangles, part_count});
    job.progress(100);
}

void decompositionUniformPreview(float /*size_x*/, float /*size_y*/, float /*size_z*/,
                                 const float* coordinates_in, uint32_t count_in, float** planes,
                                 uint32_t* plane_count, float** boxes, float** volumes,
                                 uint32_t* part_count, uint32_t* progress) {
    preview_decomposition(soup_of(coordinates_in, count_in), planes, plane_count, boxes, volumes,
                          part_count, progress);
}

void decompositionAutoPreview(float /*size_x*/, float /*size_y*/, float /*size_z*/,
                              const float* coordinates_in, uint32_t count_in, float** planes,
                              uint32_t* plane_count, float** boxes, float** volumes,
                              uint32_t* part_count, uint32_t* progress) {
    preview_decomposition(soup_of(coordinates_in, count_in), planes, plane_count, boxes, volumes,
                          part_count, progress);
}

void decompositionUniformFromData(float /*size_x*/, float /*size_y*/, float /*size_z*/,
                                  const float* coordinates_in, const float* colours_in,
                                  const float* texture_coordinates_in, const int32_t* labels_in,
                                  uint32_t count_in, float** coordinates, float** colours,
                                  float** texture_coordinates, int32_t** labels,
                                  uint32_t** part_triangles, uint32_t* part_count,
                                  uint32_t* progress) {
    divide(soup_of(coordinates_in, count_in, colours_in, texture_coordinates_in, labels_in),
           {coordinates, colours, texture_coordinates, labels, part_triangles, part_count},
           progress);
}

void decompositionAutoFromData(float /*size_x*/, float /*size_y*/, float /*size_z*/,
                               const float* coordinates_in, const float* colours_in,
                               const float* texture_coordinates_in, const int32_t* labels_in,
                               uint32_t count_in, float** coordinates, float** colours,
                               float** texture_coordinates, int32_t** labels,
                               uint32_t** part_triangles, uint32_t* part_count,
                               uint32_t* progress) {
    divide(soup_of(coordinates_in, count_in, colours_in, texture_coordinates_in, labels_in),
           {coordinates, colours, texture_coordinates, labels, part_triangles, part_count},
           progress);
}
