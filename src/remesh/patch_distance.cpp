// A fan of triangles as a height field over its mean plane: the difference of two such is greatest
// at a vertex or where two edges cross. Closest points of segments: C. Ericson, Real-time collision
// detection, 2005, section 5.1.9.
#include "remesh/patch_distance.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <optional>

namespace povmesh {
namespace {

// All spokes are compared with each other.
constexpr std::size_t kMostSpokes = 64;

// A point over the common plane, relative to the vertex that goes.
struct Raised {
    double x, y, height;
};

double cross(const Raised& a, const Raised& b) {
    return a.x * b.y - a.y * b.x;
}

Raised operator-(const Raised& a, const Raised& b) {
    return {a.x - b.x, a.y - b.y, a.height - b.height};
}

// The fan's ring over the plane of its mean normal.
class HeightField {
public:
    HeightField(Vec3d v, std::span<const Vec3d> ring, std::size_t kept)
        : count_(ring.size()), kept_(kept) {
        Vec3d normal;
        for (std::size_t i = 0; i < count_; ++i) {
            normal = normal + cross3(ring[i] - v, ring[next(i)] - v);
        }
        const double size = length(normal);
        if (!(size > 0) || !std::isfinite(size)) return;
        normal = normal / size;
        const Vec3d side = std::abs(normal.x) < 0.6 ? Vec3d{1, 0, 0} : Vec3d{0, 1, 0};
        Vec3d u = cross3(normal, side);
        u = u / length(u);
        const Vec3d w = cross3(normal, u);
        for (std::size_t i = 0; i < count_; ++i) {
            const Vec3d p = ring[i] - v;
            points_[i] = {dot(p, u), dot(p, w), dot(p, normal)};
        }
        is_valid_ = is_simple() && faces_up();
    }

    bool is_valid() const { return is_valid_; }

    // The greatest difference of the heights lies at the vertex or where an old spoke crosses a new
    // one.
    double difference() const {
        double greatest = at_vertex();
        const Raised& w = points_[kept_];
        for (std::size_t i = 0; i < count_; ++i) {
            if (i == kept_) continue;
            for (std::size_t j = 0; j < count_; ++j) {
                if (j == kept_ || j == next(kept_) || next(j) == kept_ || j == i) continue;
                const Raised along = points_[j] - w;
                const double determinant = cross(points_[i], along);
                if (determinant == 0) continue;
                const double s = cross(w, along) / determinant;
                const double t = cross(w, points_[i]) / determinant;
                if (!(s > 0 && s < 1 && t > 0 && t < 1)) continue;
                greatest = std::max(
                    greatest, std::abs(s * points_[i].height - (w.height + t * along.height)));
            }
        }
        return greatest;
    }

private:
    static Vec3d cross3(Vec3d a, Vec3d b) { return povmesh::cross(a, b); }
    std::size_t next(std::size_t i) const { return i + 1 == count_ ? 0 : i + 1; }

    // The ring goes round the vertex once.
    bool is_simple() const {
        std::size_t turns = 0;
        for (std::size_t i = 0; i < count_; ++i) {
            const Raised& a = points_[i];
            const Raised& b = points_[next(i)];
            if (!(cross(a, b) > 0)) return false;
            if (a.y < 0 && b.y >= 0) ++turns;
        }
        return turns == 1;
    }

    bool faces_up() const {
        const Raised& w = points_[kept_];
        for (std::size_t i = 0; i < count_; ++i) {
            if (i == kept_ || next(i) == kept_) continue;
            if (!(cross(points_[i] - w, points_[next(i)] - w) > 0)) return false;
        }
        return true;
    }

    // Of the vertex above or below the new triangle there.
    double at_vertex() const {
        const Raised& w = points_[kept_];
        for (std::size_t i = 0; i < count_; ++i) {
            if (i == kept_ || next(i) == kept_) continue;
            const Raised& p = points_[i];
            const Raised& q = points_[next(i)];
            const std::array<double, 3> weights = {cross(p, q), cross(q, w), cross(w, p)};
            if (weights[0] < 0 || weights[1] < 0 || weights[2] < 0) continue;
            return std::abs(weights[0] * w.height + weights[1] * p.height + weights[2] * q.height) /
                   (weights[0] + weights[1] + weights[2]);
        }
        return std::numeric_limits<double>::infinity();  // rounding has lost it
    }

    std::array<Raised, kMostSpokes> points_;
    std::size_t count_;
    std::size_t kept_;
    bool is_valid_ = false;
};

}  // namespace

double segment_distance(Vec3d a, Vec3d b, Vec3d c, Vec3d d) {
    const Vec3d first = b - a;
    const Vec3d second = d - c;
    const Vec3d between = a - c;
    const double square_1 = dot(first, first);
    const double square_2 = dot(second, second);
    const double f = dot(second, between);
    const double e = dot(first, between);
    const double mixed = dot(first, second);
    const double determinant = square_1 * square_2 - mixed * mixed;
    const auto share = [](double x, double of) {
        return of > 0 ? std::clamp(x / of, 0.0, 1.0) : 0.0;
    };
    double s = share(mixed * f - e * square_2, determinant);
    double t = share(mixed * s + f, square_2);
    s = share(mixed * t - e, square_1);
    t = share(mixed * s + f, square_2);
    return length(between + first * s - second * t);
}

double merge_distance(Vec3d v, std::span<const Vec3d> ring, std::size_t kept) {
    const double edge = length(ring[kept] - v);
    if (ring.size() > kMostSpokes) return edge;
    const HeightField field(v, ring, kept);
    return field.is_valid() ? std::min(edge, field.difference()) : edge;
}

}  // namespace povmesh
