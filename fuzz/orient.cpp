// The convex hull and the orientation search on a few triangles, on a tiny grid or of any numbers:
// what a hull and a row of the search must be, whatever the input.
#include "orient/orientation.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <utility>
#include <vector>

#include "base/predicates.h"
#include "mesh/build_f.h"
#include "require.h"
#include "spatial/convex_hull.h"

namespace povmesh {
namespace {

struct Input {
    std::vector<float> coordinates;
    bool searches = false;  // one of eight: it takes far longer than the hull
    double tolerance = 0;

    Input(const std::uint8_t* data, std::size_t size) {
        if (size == 0) return;
        constexpr std::size_t kMostTriangles = 40;
        const bool is_raw = (data[0] & 1U) != 0;
        searches = data[0] % 16 < 2;
        tolerance = (data[0] & 64U) != 0 ? 0.5 : 0;
        const unsigned side = 2 + data[0] / 16 % 4;
        const std::size_t step = is_raw ? sizeof(float) : 1;
        for (std::size_t i = 1; i + step <= size && coordinates.size() < kMostTriangles * 9;
             i += step) {
            float number = static_cast<float>(data[i] % side);
            if (is_raw) std::memcpy(&number, data + i, sizeof(float));
            coordinates.push_back(number);
        }
        coordinates.resize(coordinates.size() / 9 * 9);
    }
};

void check_hull(const std::vector<Vec3f>& points, double tolerance) {
    const ConvexHull hull = convex_hull(points, tolerance);
    std::size_t finite = 0;
    for (const Vec3f p : points) finite += is_finite(p) ? 1 : 0;
    require((hull.dimension < 0) == (finite == 0), "dimension of nothing");
    require(hull.triangles.empty() == (hull.dimension != 3), "triangles without a solid");
    std::map<std::pair<std::uint32_t, std::uint32_t>, int> edges;
    for (const auto& t : hull.triangles) {
        for (std::size_t i = 0; i < 3; ++i) ++edges[{t[i], t[i == 2 ? 0 : i + 1]}];
        const auto side = [&](Vec3f p) {
            return orient3d(to_double(points[t[0]]), to_double(points[t[1]]),
                            to_double(points[t[2]]), to_double(p));
        };
        bool has_depth = false;
        for (const Vec3f p : points) {
            if (!is_finite(p)) continue;
            require(side(p) <= 0, "a point outside");  // so few are kept whatever the tolerance
            has_depth |= side(p) < 0;
        }
        require(has_depth, "a triangle without area");
    }
    for (const auto& [edge, count] : edges) {
        require(count == 1 && edges.count({edge.second, edge.first}) == 1, "an open edge");
    }
}

void check_rows(const OrientationReport& report) {
    const std::vector<Orientation>& rows = report.best;
    require(rows.size() <= 64, "too many rows");
    for (std::size_t i = 0; i < rows.size(); ++i) {
        require(std::abs(length(rows[i].up) - 1) < 1e-9, "length of a direction");
        require(rows[i].score() > 0 && rows[i].score() <= 1, "score");
        require(rows[i].support_volume >= 0 && rows[i].height >= 0, "a measure below 0");
        require(std::isfinite(rows[i].tilt), "tilt");
        for (std::size_t k = 0; k < i; ++k) {
            require(rows[k].cost <= rows[i].cost, "order of rows");
            require(dot(rows[k].up, rows[i].up) < 0.9962, "rows too near");
        }
    }
    if (rows.empty()) return;
    require(rows.front().cost <= report.as_is.cost + 0.01, "worse than the pose as it is");
}

}  // namespace
}  // namespace povmesh

// NOLINTNEXTLINE(readability-identifier-naming)
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace povmesh;
    const Input input(data, size);
    std::vector<Vec3f> points;
    for (std::size_t i = 0; i < input.coordinates.size(); i += 3) {
        const float* p = &input.coordinates[i];
        points.push_back({p[0], p[1], p[2]});
    }
    check_hull(points, input.tolerance);
    if (!input.searches) return 0;
    TriMesh mesh;
    build_f(mesh, Soup{input.coordinates.size() / 9, input.coordinates.data()});
    RunLog log;
    RunContext run{{}, log};
    check_rows(find_orientations(mesh, run));
    return 0;
}
