// Exported functions that divide a model: plane cut and decomposition.
#include <algorithm>
#include <array>
#include <string>
#include <utility>

#include "api/host_numbers.h"
#include "api/steps.h"
#include "base/convert.h"
#include "cut/cut.h"
#include "decompose/decompose.h"
#include "mesh/bounds.h"
#include "mesh/export_data.h"
#include "mesh/volume.h"
#include "povmesh/povmesh.h"

using namespace povmesh;
using namespace povmesh::api;

namespace {

DecomposeOptions division(float size_x, float size_y, float size_z, DivisionMethod method) {
    return {to_double(Vec3f{size_x, size_y, size_z}), method};
}

// The parts that a host gets.
DecomposeReport divide_for_host(TriMesh& mesh, const DecomposeOptions& options, Job& job) {
    DecomposeReport report = decompose(mesh, options, job.run());
    const std::size_t count = mesh.parts.size();
    drop_small_parts(mesh);
    if (const std::size_t dropped = count - mesh.parts.size(); dropped != 0) {
        job.run().log.caution(std::to_string(dropped) + " pieces below 1.0 are left out\n");
    }
    return report;
}

void divide(const Soup& soup, const DecomposeOptions& options, const MultiOut& out,
            std::uint32_t* progress) {
    Job job(progress);
    TriMesh mesh = build(soup);
    job.progress(10);
    divide_for_host(mesh, options, job);
    job.progress(90);
    export_parts(mesh, out);
    job.progress(100);
}

struct PreviewOut {
    float** planes;
    std::uint32_t* plane_count;
    float** boxes;
    float** volumes;
    std::uint32_t* part_count;
};

void preview_division(const Soup& soup, const DecomposeOptions& options, const PreviewOut& out,
                      std::uint32_t* progress) {
    Job job(progress);
    TriMesh mesh = build(soup);
    const DecomposeReport report = divide_for_host(mesh, options, job);
    auto planes = allocate_result<float>(4 * report.planes.size());
    for (std::size_t i = 0; i < report.planes.size(); ++i) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            planes[4 * i + axis] = report.planes[i].axis == axis ? 1.0F : 0.0F;
        }
        planes[4 * i + 3] = report.planes[i].offset;
    }
    auto boxes = allocate_result<float>(6 * mesh.parts.size());
    auto volumes = allocate_result<float>(mesh.parts.size());
    for (std::size_t i = 0; i < mesh.parts.size(); ++i) {
        const Box3f box = finite_bounds(mesh.parts[i]);
        const std::array<float, 6> numbers = {box.low.x,  box.low.y,  box.low.z,
                                              box.high.x, box.high.y, box.high.z};
        std::copy(numbers.begin(), numbers.end(), boxes.get() + 6 * i);
        volumes[i] = narrow_to_float(volume(mesh.parts[i]));
    }
    hand_over(Slot::DecompositionPlanes, std::move(planes), out.planes);
    hand_over(Slot::DecompositionBoxes, std::move(boxes), out.boxes);
    hand_over(Slot::DecompositionVolumes, std::move(volumes), out.volumes);
    store(out.plane_count, static_cast<std::uint32_t>(report.planes.size()));
    store(out.part_count, static_cast<std::uint32_t>(mesh.parts.size()));
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

void decompositionUniformPreview(float size_x, float size_y, float size_z,
                                 const float* coordinates_in, uint32_t count_in, float** planes,
                                 uint32_t* plane_count, float** boxes, float** volumes,
                                 uint32_t* part_count, uint32_t* progress) {
    preview_division(soup_of(coordinates_in, count_in),
                     division(size_x, size_y, size_z, DivisionMethod::Uniform),
                     {planes, plane_count, boxes, volumes, part_count}, progress);
}

void decompositionAutoPreview(float size_x, float size_y, float size_z, const float* coordinates_in,
                              uint32_t count_in, float** planes, uint32_t* plane_count,
                              float** boxes, float** volumes, uint32_t* part_count,
                              uint32_t* progress) {
    preview_division(soup_of(coordinates_in, count_in),
                     division(size_x, size_y, size_z, DivisionMethod::Automatic),
                     {planes, plane_count, boxes, volumes, part_count}, progress);
}

void decompositionUniformFromData(float size_x, float size_y, float size_z,
                                  const float* coordinates_in, const float* colours_in,
                                  const float* texture_coordinates_in, const int32_t* labels_in,
                                  uint32_t count_in, float** coordinates, float** colours,
                                  float** texture_coordinates, int32_t** labels,
                                  uint32_t** part_triangles, uint32_t* part_count,
                                  uint32_t* progress) {
    divide(soup_of(coordinates_in, count_in, colours_in, texture_coordinates_in, labels_in),
           division(size_x, size_y, size_z, DivisionMethod::Uniform),
           {coordinates, colours, texture_coordinates, labels, part_triangles, part_count},
           progress);
}

void decompositionAutoFromData(float size_x, float size_y, float size_z,
                               const float* coordinates_in, const float* colours_in,
                               const float* texture_coordinates_in, const int32_t* labels_in,
                               uint32_t count_in, float** coordinates, float** colours,
                               float** texture_coordinates, int32_t** labels,
                               uint32_t** part_triangles, uint32_t* part_count,
                               uint32_t* progress) {
    divide(soup_of(coordinates_in, count_in, colours_in, texture_coordinates_in, labels_in),
           division(size_x, size_y, size_z, DivisionMethod::Automatic),
           {coordinates, colours, texture_coordinates, labels, part_triangles, part_count},
           progress);
}
