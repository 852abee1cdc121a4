// The distance of two triangles that do not meet is that of a corner from the other triangle or of
// two edges. A triangle whose middle is farther from the model than the limit and its own radius is
// done with; for another one the tree of the model's faces is searched, of which a node is left out
// when its box lies beyond the limit from the triangle's plane.
//
// Source of the distance of segments: C. Ericson, Real-Time Collision Detection, 2005, 5.1.9.
#include "design/wall_gauge.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "base/convert.h"
#include "base/parallel.h"
#include "base/poll.h"
#include "spatial/triangle_intersection.h"

namespace povmesh {
namespace {

using Triangle3 = std::array<Vec3d, 3>;

constexpr double kFar = std::numeric_limits<double>::infinity();

double squared_between_segments(Vec3d p, Vec3d p_end, Vec3d q, Vec3d q_end) {
    const Vec3d u = p_end - p;
    const Vec3d v = q_end - q;
    const Vec3d r = p - q;
    const double a = dot(u, u);
    const double e = dot(v, v);
    const double f = dot(v, r);
    const auto within = [](double share) { return std::clamp(share, 0.0, 1.0); };
    double s = 0;
    double t = 0;
    if (a > 0 && e > 0) {
        const double b = dot(u, v);
        const double c = dot(u, r);
        const double determinant = a * e - b * b;
        s = determinant > 0 ? within((b * f - c * e) / determinant) : 0;
        t = (b * s + f) / e;
        if (t < 0 || t > 1) {
            t = within(t);
            s = within((b * t - c) / a);
        }
    } else if (e > 0) {
        t = within(f / e);
    } else if (a > 0) {
        s = within(-dot(u, r) / a);
    }
    const Vec3d apart = r + u * s - v * t;
    return dot(apart, apart);
}

double squared_between(const Triangle3& a, const Triangle3& b) {
    if (triangles_intersect(a, b)) return 0;
    double least = kFar;
    for (std::size_t i = 0; i < 3; ++i) {
        least = std::min({least, nearest_on_triangle(a[i], b).squared_distance,
                          nearest_on_triangle(b[i], a).squared_distance});
        for (std::size_t j = 0; j < 3; ++j) {
            least = std::min(
                least, squared_between_segments(a[i], a[next_corner(i)], b[j], b[next_corner(j)]));
        }
    }
    return least;
}

// A triangle's plane, and how far points and boxes lie from it at least.
class Plane {
public:
    explicit Plane(const Triangle3& t) : normal_(cross(t[1] - t[0], t[2] - t[0])) {
        const double size = length(normal_);
        normal_ = size > 0 ? normal_ / size : Vec3d{};
        height_ = dot(normal_, t[0]);
    }

    double distance_of(const Triangle3& t) const {
        const double a = dot(normal_, t[0]) - height_;
        const double b = dot(normal_, t[1]) - height_;
        const double c = dot(normal_, t[2]) - height_;
        return std::max({std::min({a, b, c}), -std::max({a, b, c}), 0.0});
    }
    double distance_of(const Box3f& box) const {
        const Vec3d low = to_double(box.low);
        const Vec3d high = to_double(box.high);
        const Vec3d half = (high - low) * 0.5;
        const double reach = std::abs(normal_.x) * half.x + std::abs(normal_.y) * half.y +
                             std::abs(normal_.z) * half.z;
        return std::abs(dot(normal_, (low + high) * 0.5) - height_) - reach;
    }

private:
    Vec3d normal_;
    double height_ = 0;
};

Box3f widened(const Triangle3& t, double by) {
    Box3d box;
    for (const Vec3d& corner : t) box.widen(corner);
    const auto down = [&](double c) {
        return std::nextafter(narrow_to_float(c - by), -std::numeric_limits<float>::infinity());
    };
    const auto up = [&](double c) {
        return std::nextafter(narrow_to_float(c + by), std::numeric_limits<float>::infinity());
    };
    return {{down(box.low.x), down(box.low.y), down(box.low.z)},
            {up(box.high.x), up(box.high.y), up(box.high.z)}};
}

}  // namespace

WallGauge::WallGauge(const TriMesh& model) : nearest_(model) {
    triangles_.reserve(model.faces.size());
    Poller poller;
    for (const Face& face : model.faces) {
        poller();
        triangles_.push_back({model.corner_position(face, 0), model.corner_position(face, 1),
                              model.corner_position(face, 2)});
    }
}

WallGauge::Triangle WallGauge::triangle_of(std::uint32_t face) const {
    const std::array<Vec3f, 3>& t = triangles_[face];
    return {to_double(t[0]), to_double(t[1]), to_double(t[2])};
}

double WallGauge::distance_of(const Triangle& triangle, double limit) const {
    const Vec3d middle = (triangle[0] + triangle[1] + triangle[2]) / 3.0;
    double radius = 0;
    for (const Vec3d& corner : triangle) radius = std::max(radius, length(corner - middle));
    const double reach = limit + radius;
    if (!is_finite(middle) || !nearest_.find(middle, reach * reach).is_found()) return limit;
    const Plane plane(triangle);
    double least = limit;
    const FaceTree& tree = nearest_.tree();
    tree.visit_overlapping(
        widened(triangle, limit),
        [&](std::uint32_t face) {
            const Triangle other = triangle_of(face);
            if (plane.distance_of(other) >= least) return false;
            if (Plane(other).distance_of(triangle) >= least) return false;
            least = std::min(least, std::sqrt(squared_between(triangle, other)));
            return least == 0;
        },
        [&](std::uint32_t node) { return plane.distance_of(tree.nodes()[node].box) >= least; });
    return least;
}

double WallGauge::least_distance(const TriMesh& surface, double limit) const {
    if (nearest_.is_empty()) return limit;
    Array<double> distances;
    // From the corners first: with the nearest of these known, few faces are left to look at.
    distances.assign(surface.vertices.size(), limit);
    Array<std::uint8_t> is_used(surface.vertices.size(), 0);
    Poller poller;
    for (const Face& face : surface.faces) {
        poller();
        for (const std::int32_t v : face.vertex) is_used[static_cast<std::size_t>(v)] = 1;
    }
    parallel_for(distances.size(), [&](std::size_t v) {
        if (is_used[v] == 0) return;
        const NearestPoint found =
            nearest_.find(to_double(surface.vertices[v].position()), limit * limit);
        if (found.is_found()) distances[v] = std::sqrt(found.squared_distance);
    });
    for (const double distance : distances) limit = std::min(limit, distance);
    if (limit == 0 || !std::isfinite(limit)) return limit;
    distances.assign(surface.faces.size(), limit);
    parallel_for(distances.size(), [&](std::size_t f) {
        distances[f] = distance_of(povmesh::triangle_of(surface, surface.faces[f]), limit);
    });
    for (const double distance : distances) limit = std::min(limit, distance);
    return limit;
}

Array<std::uint8_t> WallGauge::faces_nearer_than(const TriMesh& surface, double limit) const {
    Array<std::uint8_t> is_near(surface.faces.size(), 0);
    if (nearest_.is_empty()) return is_near;
    parallel_for(is_near.size(), [&](std::size_t f) {
        const Triangle triangle = povmesh::triangle_of(surface, surface.faces[f]);
        is_near[f] = distance_of(triangle, limit) < limit ? 1 : 0;
    });
    return is_near;
}

}  // namespace povmesh
