// Exported functions that analyse a model, preview a feature or find supports.
#include <cstring>
#include <utility>

#include "analysis/strength.h"
#include "api/host_numbers.h"
#include "api/steps.h"
#include "base/convert.h"
#include "design/balance.h"
#include "design/lampshade.h"
#include "povmesh/povmesh.h"
#include "support/column_supports.h"
#include "support/slice_polygons.h"

using namespace povmesh;
using namespace povmesh::api;

namespace {

constexpr std::uint64_t kNothingMade = 1;

// Height of the build plate in a host's coordinates.
constexpr double kPlate = 0;

// The same bytes as numbers of a host.
template <typename T, typename Item>
ResultArray<T> result_of(const Array<Item>& items) {
    static_assert(sizeof(Item) % sizeof(T) == 0);
    auto result = allocate_result<T>(items.size() * sizeof(Item) / sizeof(T));
    if (!items.empty()) std::memcpy(result.get(), items.data(), items.size() * sizeof(Item));
    return result;
}

Array<Column> columns_of(const float* columns, std::int32_t count) {
    Array<Column> result;
    if (columns == nullptr || count <= 0) return result;
    for (std::int32_t i = 0; i < count; ++i, columns += 6) {
        result.push_back(
            {{columns[0], columns[1], columns[2]}, {columns[3], columns[4], columns[5]}});
    }
    return result;
}

}  // namespace

uint64_t lampshadePreview(float thickness, const float* coordinates_in, uint32_t count_in,
                          float** points, uint32_t** contour_sizes, float** levels,
                          uint32_t* contour_count) {
    Job job;
    const TriMesh mesh = build(soup_of(coordinates_in, count_in));
    LampshadeContours contours;
    RunContext run{{}, job.run().log};
    const LampshadeReport report = preview_lampshade(mesh, thickness, run, contours);
    auto all_points = result_of<float>(contours.points);
    auto sizes = result_of<uint32_t>(contours.sizes);
    auto heights = result_of<float>(contours.levels);
    hand_over(Slot::LampshadePoints, std::move(all_points), points);
    hand_over(Slot::LampshadeContourSizes, std::move(sizes), contour_sizes);
    hand_over(Slot::LampshadeLevels, std::move(heights), levels);
    store(contour_count, fits<uint32_t>(contours.sizes.size()));
    return report.status == LampshadeStatus::Made ? 0 : kNothingMade;
}

uint64_t balancingPreviewFromData(float thickness, const float* coordinates_in, uint32_t count_in,
                                  float** preview, uint32_t* point_count) {
    Job job;
    const TriMesh mesh = build(soup_of(coordinates_in, count_in));
    const BalanceReport report = preview_balance(mesh, thickness, job.run());
    const Array<Vec3f> points = points_of(report);
    hand_over(Slot::BalancingPreview, result_of<float>(points), preview);
    store(point_count, fits<uint32_t>(points.size()));
    return static_cast<uint64_t>(report.status);
}

void strengthColoringFromData(uint32_t method, uint32_t load, const float* coordinates_in,
                              const float* colours_in, const float* texture_coordinates_in,
                              const int32_t* labels_in, uint32_t count_in, float** coordinates,
                              float** colours, float** texture_coordinates, int32_t** labels,
                              uint32_t* count, uint32_t* progress) {
    Job job(progress);
    TriMesh mesh =
        build(soup_of(coordinates_in, count_in, colours_in, texture_coordinates_in, labels_in));
    job.progress(30);
    colour_strength(mesh, {.method = strength_method(method), .load = load_case(load)}, job.run());
    job.progress(70);
    export_soup(mesh, {coordinates, colours, texture_coordinates, labels, count});
    job.progress(100);
}

void columnSupportAutoGenerate(const float* coordinates_in, uint32_t count_in, float spacing,
                               float angle, float** columns, int32_t* column_count) {
    Job job;
    const TriMesh mesh = build(soup_of(coordinates_in, count_in));
    Array<Column> found;
    (void)find_columns(mesh, {double{spacing}, double{angle}, kPlate, false, false}, job.run(),
                       found);
    if (found.empty()) return;  // hosts find their outputs as they were
    hand_over(Slot::SupportColumns, result_of<float>(found), columns);
    store(column_count, fits<int32_t>(found.size()));
}

void columnSupportToSlicerExPolygons(const float* coordinates_in, uint32_t count_in,
                                     const float* columns, int32_t column_count, float spacing,
                                     float layer_height, float** points, uint32_t* point_count,
                                     uint32_t** polygon_sizes, uint32_t* polygon_count) {
    Job job;
    const TriMesh mesh = build(soup_of(coordinates_in, count_in));
    SlicePolygons polygons;
    (void)slice_columns(mesh, columns_of(columns, column_count),
                        {double{spacing}, double{layer_height}, kPlate}, job.run(), polygons);
    auto all_points = result_of<float>(polygons.points);
    auto sizes = result_of<uint32_t>(polygons.sizes);
    hand_over(Slot::SlicerPoints, std::move(all_points), points);
    hand_over(Slot::SlicerPolygonSizes, std::move(sizes), polygon_sizes);
    store(point_count, fits<uint32_t>(polygons.points.size()));
    store(polygon_count, fits<uint32_t>(polygons.sizes.size()));
}
