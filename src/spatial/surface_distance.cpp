// The surface is divided into strips of equal area in face order with one point each, whose place
// in its triangle comes from the sequence of M. Roberts (The unreasonable effectiveness of
// quasirandom sequences, 2018): more even than random points, and the same in every run.
#include "spatial/surface_distance.h"

#include <array>
#include <cstdint>
#include <limits>
#include <utility>

#include "base/parallel.h"
#include "base/poll.h"
#include "spatial/nearest_face.h"

namespace povmesh {
namespace {

constexpr std::size_t kLeastSamples = 100'000;

// Powers of the inverse of 1.3247..., the root of x^3 = x + 1.
constexpr double kStepU = 0.75487766624669276;
constexpr double kStepV = 0.56984029099805327;

double fraction(double x) {
    return x - std::floor(x);
}

Triangle3d corners(const TriMesh& mesh, const Face& face) {
    return {to_double(mesh.corner_position(face, 0)), to_double(mesh.corner_position(face, 1)),
            to_double(mesh.corner_position(face, 2))};
}

double area(const TriMesh& mesh, const Face& face) {
    if (face.deleted != 0 || face_box(mesh, face).is_empty()) return 0;
    const Triangle3d t = corners(mesh, face);
    return length(cross(t[1] - t[0], t[2] - t[0])) / 2;
}

Array<Vec3d> spread_points(const TriMesh& mesh, std::size_t count) {
    Array<double> areas(mesh.faces.size());
    parallel_for(areas.size(), [&](std::size_t f) { areas[f] = area(mesh, mesh.faces[f]); });
    double total = 0;
    for (const double a : areas) total += a;
    Array<Vec3d> points;
    if (!(total > 0)) return points;
    points.reserve(count);
    double end = 0;  // of the areas up to here
    for (std::size_t f = 0; f < areas.size(); ++f) {
        poll_at(f);
        if (!(areas[f] > 0)) continue;
        end += areas[f];
        const Triangle3d t = corners(mesh, mesh.faces[f]);
        while (points.size() < count &&
               (static_cast<double>(points.size()) + 0.5) / static_cast<double>(count) * total <
                   end) {
            poll_at(points.size());
            const auto k = static_cast<double>(points.size());
            double u = fraction(k * kStepU);
            double v = fraction(k * kStepV);
            if (u + v > 1) {  // the other half of the parallelogram, mirrored
                u = 1 - u;
                v = 1 - v;
            }
            points.push_back(t[0] + (t[1] - t[0]) * u + (t[2] - t[0]) * v);
        }
    }
    return points;
}

// The vertices of faces that have points, each once.
Array<Vec3d> used_vertices(const TriMesh& mesh) {
    Array<std::uint8_t> is_used(mesh.vertices.size(), 0);
    Poller poller;
    for (const Face& face : mesh.faces) {
        poller();
        if (face.deleted != 0 || face_box(mesh, face).is_empty()) continue;
        for (const std::int32_t v : face.vertex) is_used[static_cast<std::size_t>(v)] = 1;
    }
    Array<Vec3d> points;
    for (std::size_t v = 0; v < is_used.size(); ++v) {
        if (is_used[v] != 0) points.push_back(to_double(mesh.vertices[v].position()));
    }
    return points;
}

Array<double> squared_distances(const Array<Vec3d>& points, const NearestFace& surface) {
    Array<double> squares(points.size());
    parallel_for(points.size(),
                 [&](std::size_t i) { squares[i] = surface.find(points[i]).squared_distance; });
    return squares;
}

double greatest(const Array<double>& squares) {
    return squares.empty() ? 0 : *std::max_element(squares.begin(), squares.end());
}

OneWayDistance one_way(const TriMesh& from, const TriMesh& to, const DistanceOptions& options) {
    const NearestFace surface(to);
    const std::size_t count = options.sample_count != 0
                                  ? options.sample_count
                                  : std::max(live_face_count(from), kLeastSamples);
    const Array<double> at_points = squared_distances(spread_points(from, count), surface);
    if (at_points.empty() || surface.is_empty()) {
        constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();
        return {kUnknown, kUnknown};
    }
    const Array<double> at_vertices = squared_distances(used_vertices(from), surface);
    const double sum = blocked_sum(at_points.size(), [&](std::size_t i) { return at_points[i]; });
    return {std::sqrt(sum / static_cast<double>(at_points.size())),
            std::sqrt(std::max(greatest(at_points), greatest(at_vertices)))};
}

}  // namespace

SurfaceDistance surface_distance(const TriMesh& a, const TriMesh& b,
                                 const DistanceOptions& options) {
    return {one_way(a, b, options), one_way(b, a, options)};
}

}  // namespace povmesh
