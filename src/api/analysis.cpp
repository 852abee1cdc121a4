// Exported functions that analyse a model, preview a feature or find supports.
#include "api/steps.h"
#include "povmesh/povmesh.h"

using namespace povmesh;
using namespace povmesh::api;

namespace {

constexpr std::uint64_t kNothingMade = 1;

}  // namespace

uint64_t lampshadePreview(float /*thickness*/, const float* coordinates_in, uint32_t count_in,
                          float** points, uint32_t** contour_sizes, float** levels,
                          uint32_t* contour_count) {
    Job job;
    const TriMesh mesh = build(job, soup_of(coordinates_in, count_in));
    // The preview is not built yet: no contour.
    auto no_points = allocate_result<float>(0);
    auto no_sizes = allocate_result<uint32_t>(0);
    auto no_levels = allocate_result<float>(0);
    hand_over(Slot::LampshadePoints, std::move(no_points), points);
    hand_over(Slot::LampshadeContourSizes, std::move(no_sizes), contour_sizes);
    hand_over(Slot::LampshadeLevels, std::move(no_levels), levels);
    store(contour_count, uint32_t{0});
    return kNothingMade;
}

uint64_t balancingPreviewFromData(float /*thickness*/, const float* coordinates_in,
                                  uint32_t count_in, float** preview, uint32_t* point_count) {
    Job job;
    const TriMesh mesh = build(job, soup_of(coordinates_in, count_in));
    // The preview is not built yet: no point.
    hand_over(Slot::BalancingPreview, allocate_result<float>(0), preview);
    store(point_count, uint32_t{0});
    return kNothingMade;
}

void strengthColoringFromData(uint32_t /*method*/, uint32_t /*load*/, const float* coordinates_in,
                              const float* colours_in, const float* texture_coordinates_in,
                              const int32_t* labels_in, uint32_t count_in, float** coordinates,
                              float** colours, float** texture_coordinates, int32_t** labels,
                              uint32_t* count, uint32_t* progress) {
    Job job(progress);
    const TriMesh mesh = build(
        job, soup_of(coordinates_in, count_in, colours_in, texture_coordinates_in, labels_in));
    job.progress(30);
    // Strength colouring is not built yet.
    job.progress(70);
    export_soup(job, mesh, {coordinates, colours, texture_coordinates, labels, count});
    job.progress(100);
}

void columnSupportAutoGenerate(const float* coordinates_in, uint32_t count_in, float /*spacing*/,
                               float /*angle*/, float** /*columns*/, int32_t* /*column_count*/) {
    Job job;
    const TriMesh mesh = build(job, soup_of(coordinates_in, count_in));
    // The search is not built yet: no column, and without one the outputs are not touched.
}

void columnSupportToSlicerExPolygons(const float* coordinates_in, uint32_t count_in,
                                     const float* /*columns*/, int32_t /*column_count*/,
                                     float /*spacing*/, float /*layer_height*/, float** points,
                                     uint32_t* point_count, uint32_t** polygon_sizes,
                                     uint32_t* polygon_count) {
    Job job;
    const TriMesh mesh = build(job, soup_of(coordinates_in, count_in));
    // The conversion is not built yet: no polygon.
    auto no_points = allocate_result<float>(0);
    auto no_sizes = allocate_result<uint32_t>(0);
    hand_over(Slot::SlicerPoints, std::move(no_points), points);
    hand_over(Slot::SlicerPolygonSizes, std::move(no_sizes), polygon_sizes);
    store(point_count, uint32_t{0});
    store(polygon_count, uint32_t{0});
}
