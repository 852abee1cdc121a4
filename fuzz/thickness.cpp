// Thickness of soups of 1 to 200 triangles on a lattice, and of what wraps make of them; walls
// inside of the latter. Painting changes no area, and every wall is as thick as promised.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "design/wall_gauge.h"
#include "field/inner_wall.h"
#include "field/thickness.h"
#include "field/thickness_map.h"
#include "field/wrap.h"
#include "helpers/reference.h"
#include "mesh/build_f.h"
#include "mesh/volume.h"
#include "require.h"
#include "spatial/self_intersection.h"

namespace {

using namespace povmesh;

void require_sane(const ThinPlaces& found, double limit) {
    double least = INFINITY;
    for (const float value : found.values) {
        require(value >= 0 && (std::isinf(value) || value <= limit * (1 + 1e-6)),
                "a thickness is out of range");
        least = std::min(least, static_cast<double>(value));
    }
    require(found.smallest == least, "the smallest thickness is another one");
    require((found.count == 0) == found.places.empty(), "places are not told");
    require(found.share >= 0 && found.share <= 1 + 1e-9, "a share is beyond all");
    for (const ThinPlace& place : found.places) {
        require(place.smallest < found.asked && place.area <= found.area * (1 + 1e-9) &&
                    is_finite(place.point),
                "a place is not thin");
    }
}

double area_of(const TriMesh& mesh) {
    double area = 0;
    for (const Face& face : mesh.faces) {
        const Triangle t = triangle_of(mesh, face);
        area += length(cross(t[1] - t[0], t[2] - t[0])) / 2;
    }
    return area;
}

void measure(const TriMesh& mesh, const ThicknessOptions& options) {
    const ThicknessReport report = measure_thickness(mesh, options);
    require(report.status.ok(), "thickness is not measured");
    require_sane(report.walls, 2 * options.wall);
    if (options.gap > 0) require_sane(report.gaps, 2 * options.gap);
    const TriMesh map = thickness_map(mesh, report.walls, wall_colour);
    const double area = area_of(mesh);
    require(std::abs(area_of(map) - area) <= 1e-4 * (1 + area), "painting moved a face");
}

void require_wall(const TriMesh& mesh, double thickness) {
    TriMesh cavity;
    const WallReport report = inner_wall(mesh, thickness, {}, cavity);
    if (!report.status.ok() || cavity.faces.empty()) return;
    require(reference::is_closed_manifold(cavity), "a cavity is not a closed manifold");
    require(signed_volume(cavity) > 0, "a cavity is not outward");
    require(find_self_intersections(cavity, 0).count == 0, "a cavity crosses itself");
    const double least = WallGauge(mesh).least_distance(cavity);
    require(!report.is_kept || least >= kLeastWallShare * thickness * (1 - 1e-6),
            "a wall is thinner than it is said to be");
    require(report.is_kept, "a wall is thinner than promised");
}

}  // namespace

// The name is libFuzzer's.
// NOLINTNEXTLINE(readability-identifier-naming)
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2 + 9) return 0;
    const std::uint8_t mode = data[0];
    std::vector<float> soup;
    for (std::size_t i = 2; i < size && soup.size() < std::size_t{9} * 200; ++i) {
        soup.push_back(static_cast<float>(data[i] % 16) * 0.625F);
    }
    TriMesh mesh;
    Soup triangles;
    triangles.triangle_count = soup.size() / 9;
    triangles.coordinates = soup.data();
    build_f(mesh, triangles);
    ThicknessOptions options;
    options.wall = 0.2 + data[1] / 64.0;
    if ((mode & 1) != 0) options.gap = (1 + (mode >> 4)) / 4.0;
    if ((mode & 2) != 0) options.grain = 0.1;
    options.most_samples = 20000;
    measure(mesh, options);

    RunLog log;
    RunContext run{{}, log};
    WrapReport report;
    if (!wrap(mesh, {.gap = (mode >> 5) / 2.0, .cell = 0.5}, run, report).ok()) return 0;
    measure(mesh, options);
    if ((mode & 4) != 0) require_wall(mesh, 1 + (mode >> 5) / 4.0);
    return 0;
}
