#include "spatial/convex_hull.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numeric>
#include <optional>
#include <utility>
#include <vector>

#include "base/poll.h"

// Quickhull. The hull grows from a tetrahedron. Every point that is still outside hangs on one
// facet that it is strictly above. The farthest one of a facet is the next vertex: the facets that
// it is strictly above are a disc, which gives way to a fan of facets from the vertex to the rim of
// the disc, and the points that hung on the disc move to the fan or are inside.
//
// "Strictly above" is decided exactly, so the disc is a disc and no triangle of the fan
// degenerates: on the line of a rim edge the vertex would lie in the planes of the facets at both
// its sides, and see neither.

namespace povmesh {
namespace {

constexpr std::uint32_t kNone = 0xFFFFFFFF;

// So many are kept exactly whatever the tolerance.
constexpr std::size_t kExactFacets = 20000;

// Rounding errors of a facet's plane at a point, relative to the magnitudes of its products: four
// differences, two products, a difference of these, a product and two sums on each way, with room.
constexpr double kPlaneError = 16 * 0x1p-53;

struct Facet {
    std::array<std::uint32_t, 3> vertex;
    std::array<std::uint32_t, 3> neighbour;  // across the edge from each vertex to the next
    Vec3d normal;                            // not of unit length
    double error;                            // of the height of any point, in the normal's lengths
    double greatest = 0;                     // height of the farthest point that hangs here
    std::uint32_t farthest = kNone;
    std::uint32_t first = kNone;  // of the points that hang here, linked by `next_`
    std::uint32_t mark = 0;       // of the last search that came by
    bool is_gone = false;
};

bool is_lexicographically_less(Vec3f a, Vec3f b) {
    if (a.x != b.x) return a.x < b.x;
    if (a.y != b.y) return a.y < b.y;
    return a.z < b.z;
}

// The axes that are left when the points are seen along one axis, so that the turns stay.
Point2d along_axis(Vec3d p, int axis) {
    if (axis == 0) return {p.y, p.z};
    if (axis == 1) return {p.z, p.x};
    return {p.x, p.y};
}

class Quickhull {
public:
    Quickhull(std::span<const Vec3f> points, double tolerance)
        : points_(points), tolerance_(tolerance) {}

    ConvexHull run() {
        find_box();
        if (low_ == kNone) return {};
        if (points_[low_] == points_[high_]) return flat(0, {low_});
        const std::optional<std::uint32_t> third = off_line();
        if (!third) return flat(1, {low_, high_});
        const std::optional<std::uint32_t> fourth = off_plane(*third);
        if (!fourth) return outline(*third);
        start(*third, *fourth);
        Poller poller;
        while (!waiting_.empty()) {
            poller();
            const std::uint32_t facet = waiting_.back();
            waiting_.pop_back();
            if (facets_[facet].is_gone || facets_[facet].first == kNone) continue;
            const std::uint32_t apex = next_vertex(facet);
            if (apex != kNone) grow(facet, apex);
        }
        return result();
    }

private:
    Vec3d at(std::uint32_t point) const { return to_double(points_[point]); }

    // The box, and its lowest and highest points by x, then y, then z: they differ unless all are
    // in one place, and on a line they are its ends.
    void find_box() {
        Box3f box;
        for (std::uint32_t i = 0; i < points_.size(); ++i) {
            poll_at(i);
            if (!is_finite(points_[i])) continue;
            box.widen(points_[i]);
            if (low_ == kNone || is_lexicographically_less(points_[i], points_[low_])) low_ = i;
            if (high_ == kNone || is_lexicographically_less(points_[high_], points_[i])) high_ = i;
        }
        extent_ = to_double(box.high) - to_double(box.low);
    }

    static ConvexHull flat(int dimension, std::initializer_list<std::uint32_t> vertices) {
        ConvexHull hull;
        hull.dimension = dimension;
        hull.vertices.assign(vertices.begin(), vertices.end());
        return hull;
    }

    bool is_on_line(std::uint32_t point) const { return !projection(low_, high_, point); }

    // The axis along which three points are seen as a triangle; none when they are on one line.
    std::optional<int> projection(std::uint32_t a, std::uint32_t b, std::uint32_t c) const {
        for (int axis = 2; axis >= 0; --axis) {
            if (orient2d(along_axis(at(a), axis), along_axis(at(b), axis),
                         along_axis(at(c), axis)) != 0) {
                return axis;
            }
        }
        return {};
    }

    // The finite point with the greatest size(point) of those that are(point); when rounding lets
    // the greatest be none of them, the first one that is.
    template <typename Size, typename Is>
    std::optional<std::uint32_t> greatest(Size&& size, Is&& is) const {
        double most = -1;
        std::uint32_t best = kNone;
        for (std::uint32_t i = 0; i < points_.size(); ++i) {
            poll_at(i);
            if (!is_finite(points_[i])) continue;
            const double here = size(at(i));
            if (here > most) {
                most = here;
                best = i;
            }
        }
        if (is(best)) return best;
        for (std::uint32_t i = 0; i < points_.size(); ++i) {
            if (is_finite(points_[i]) && is(i)) return i;
        }
        return {};
    }

    std::optional<std::uint32_t> off_line() const {
        const Vec3d a = at(low_);
        const Vec3d along = at(high_) - a;
        return greatest([&](Vec3d p) { return length(cross(along, p - a)); },
                        [&](std::uint32_t i) { return !is_on_line(i); });
    }

    std::optional<std::uint32_t> off_plane(std::uint32_t third) const {
        const Vec3d a = at(low_);
        const Vec3d normal = cross(at(high_) - a, at(third) - a);
        return greatest(
            [&](Vec3d p) { return std::abs(dot(normal, p - a)); },
            [&](std::uint32_t i) { return orient3d(a, at(high_), at(third), at(i)) != 0; });
    }

    // The polygon around points of one plane, seen along an axis that keeps them apart.
    ConvexHull outline(std::uint32_t third) const {
        const int axis = *projection(low_, high_, third);
        Array<std::uint32_t> finite;
        Array<Point2d> places;
        for (std::uint32_t i = 0; i < points_.size(); ++i) {
            poll_at(i);
            if (!is_finite(points_[i])) continue;
            finite.push_back(i);
            places.push_back(along_axis(at(i), axis));
        }
        ConvexHull hull;
        hull.dimension = 2;
        hull.vertices = convex_outline(places);
        for (std::uint32_t& v : hull.vertices) v = finite[v];
        return hull;
    }

    void start(std::uint32_t third, std::uint32_t fourth) {
        std::array<std::uint32_t, 4> v = {low_, high_, third, fourth};
        if (orient3d(at(v[0]), at(v[1]), at(v[2]), at(v[3])) > 0) std::swap(v[0], v[1]);
        // The fourth vertex is below the first three now.
        add_facet({v[0], v[1], v[2]}, {1, 2, 3});
        add_facet({v[1], v[0], v[3]}, {0, 3, 2});
        add_facet({v[2], v[1], v[3]}, {0, 1, 3});
        add_facet({v[0], v[2], v[3]}, {0, 2, 1});
        next_.resize(points_.size());
        fan_ = {0, 1, 2, 3};
        for (std::uint32_t i = 0; i < points_.size(); ++i) {
            poll_at(i);
            if (is_finite(points_[i])) hang(i);
        }
        for (const std::uint32_t facet : fan_) waiting_.push_back(facet);
    }

    std::uint32_t add_facet(std::array<std::uint32_t, 3> vertex,
                            std::array<std::uint32_t, 3> neighbour) {
        const Vec3d a = at(vertex[0]);
        const Vec3d u = at(vertex[1]) - a;
        const Vec3d v = at(vertex[2]) - a;
        const auto size = [](double p, double q, double r, double s) {
            return std::abs(p * q) + std::abs(r * s);
        };
        const Vec3d sizes = {size(u.y, v.z, u.z, v.y), size(u.z, v.x, u.x, v.z),
                             size(u.x, v.y, u.y, v.x)};
        const double error = kPlaneError * dot(sizes, extent_);
        const Facet facet = {vertex, neighbour, cross(u, v), error};
        if (free_.empty()) {
            facets_.push_back(facet);
            return static_cast<std::uint32_t>(facets_.size() - 1);
        }
        const std::uint32_t place = free_.back();
        free_.pop_back();
        facets_[place] = facet;
        return place;
    }

    double height(const Facet& facet, Vec3d p) const {
        return dot(facet.normal, p - at(facet.vertex[0]));
    }

    bool is_above(const Facet& facet, std::uint32_t point, double height) const {
        if (height > facet.error) return true;
        if (height < -facet.error) return false;
        return orient3d(at(facet.vertex[0]), at(facet.vertex[1]), at(facet.vertex[2]), at(point)) >
               0;
    }

    // Hangs a point on the first facet of the fan that it is above.
    void hang(std::uint32_t point) {
        const Vec3d p = at(point);
        for (const std::uint32_t number : fan_) {
            Facet& facet = facets_[number];
            const double here = height(facet, p);
            if (!is_above(facet, point, here)) continue;
            next_[point] = facet.first;
            facet.first = point;
            // Heights of one facet are compared with one another only: no need for unit lengths.
            if (facet.farthest == kNone || here > facet.greatest) {
                facet.greatest = here;
                facet.farthest = point;
            }
            return;
        }
    }

    // The farthest point of a facet. In a large hull one that is beyond the tolerance, if there is
    // one; else the points of the facet are dropped. How far a point is outside is told by the
    // farthest plane that it is above: it may be just above this facet, and far beside it.
    std::uint32_t next_vertex(std::uint32_t from) {
        Facet& facet = facets_[from];
        if (tolerance_ == 0 || facets_.size() - free_.size() < kExactFacets ||
            facet.greatest > tolerance_ * length(facet.normal)) {
            return facet.farthest;
        }
        Poller poller;
        for (std::uint32_t i = facet.first; i != kNone; i = next_[i]) {
            poller();
            if (is_beyond_tolerance(from, i)) return i;
        }
        facet.first = kNone;
        facet.farthest = kNone;
        return kNone;
    }

    bool is_beyond_tolerance(std::uint32_t from, std::uint32_t point) {
        const Vec3d p = at(point);
        seen_.assign(1, from);
        facets_[from].mark = ++mark_;
        for (std::size_t i = 0; i < seen_.size(); ++i) {
            const Facet& facet = facets_[seen_[i]];
            if (height(facet, p) > tolerance_ * length(facet.normal)) return true;
            for (const std::uint32_t other : facet.neighbour) {
                Facet& beyond = facets_[other];
                if (beyond.mark == mark_ || !is_above(beyond, point, height(beyond, p))) continue;
                beyond.mark = mark_;
                seen_.push_back(other);
            }
        }
        return false;
    }

    // Makes a point that hangs on a facet a vertex.
    void grow(std::uint32_t from, std::uint32_t apex) {
        find_disc(from, apex);
        make_fan(apex);
        Poller poller;
        for (const std::uint32_t gone : disc_) {
            for (std::uint32_t i = facets_[gone].first; i != kNone;) {
                poller();
                const std::uint32_t following = next_[i];
                if (i != apex) hang(i);
                i = following;
            }
        }
        free_.insert(free_.end(), disc_.begin(), disc_.end());
        for (const std::uint32_t facet : fan_) {
            if (facets_[facet].first != kNone) waiting_.push_back(facet);
        }
    }

    struct RimEdge {
        std::uint32_t facet;  // beyond the rim
        std::uint32_t side;   // its edge there
    };

    // The facets that the apex is above, found over common edges, and the edges around them.
    void find_disc(std::uint32_t from, std::uint32_t apex) {
        disc_.assign(1, from);
        rim_.clear();
        facets_[from].is_gone = true;
        const Vec3d p = at(apex);
        for (std::size_t i = 0; i < disc_.size(); ++i) {
            for (std::uint32_t side = 0; side < 3; ++side) {
                const std::uint32_t other = facets_[disc_[i]].neighbour[side];
                Facet& facet = facets_[other];
                if (facet.is_gone) continue;
                if (is_above(facet, apex, height(facet, p))) {
                    facet.is_gone = true;
                    disc_.push_back(other);
                } else {
                    const auto& back = facet.neighbour;
                    const auto at_edge = static_cast<std::uint32_t>(
                        std::find(back.begin(), back.end(), disc_[i]) - back.begin());
                    rim_.push_back({other, at_edge});
                }
            }
        }
    }

    // A facet from every edge of the rim to the apex. Each knows its place by the vertex where its
    // edge begins.
    void make_fan(std::uint32_t apex) {
        fan_.clear();
        if (fan_at_.empty()) fan_at_.assign(points_.size(), kNone);
        for (const RimEdge& edge : rim_) {
            const auto& v = facets_[edge.facet].vertex;
            const std::uint32_t to = v[edge.side];  // the facet beyond runs against us
            const std::uint32_t begin = v[edge.side == 2 ? 0 : edge.side + 1];
            const std::uint32_t made = add_facet({begin, to, apex}, {edge.facet, kNone, kNone});
            facets_[edge.facet].neighbour[edge.side] = made;
            fan_at_[begin] = made;
            fan_.push_back(made);
        }
        for (const std::uint32_t made : fan_) {
            const std::uint32_t following = fan_at_[facets_[made].vertex[1]];
            facets_[made].neighbour[1] = following;
            facets_[following].neighbour[2] = made;
        }
    }

    ConvexHull result() const {
        ConvexHull hull;
        hull.dimension = 3;
        for (const Facet& facet : facets_) {
            if (facet.is_gone) continue;
            hull.triangles.push_back(facet.vertex);
            hull.vertices.insert(hull.vertices.end(), facet.vertex.begin(), facet.vertex.end());
        }
        std::sort(hull.vertices.begin(), hull.vertices.end());
        hull.vertices.erase(std::unique(hull.vertices.begin(), hull.vertices.end()),
                            hull.vertices.end());
        return hull;
    }

    std::span<const Vec3f> points_;
    double tolerance_;
    std::uint32_t low_ = kNone;
    std::uint32_t high_ = kNone;
    Vec3d extent_;
    Array<Facet> facets_;
    Array<std::uint32_t> free_;     // facets that are gone, to be used again
    Array<std::uint32_t> waiting_;  // facets that may have points, some twice
    Array<std::uint32_t> next_;     // the point that hangs behind each
    Array<std::uint32_t> disc_, fan_, seen_;
    std::uint32_t mark_ = 0;
    Array<RimEdge> rim_;
    Array<std::uint32_t> fan_at_;  // the facet of the last fan whose edge began at a vertex
};

}  // namespace

// The lower and the upper chain of the points in order.
Array<std::uint32_t> convex_outline(std::span<const Point2d> points) {
    Array<std::uint32_t> order(points.size());
    std::iota(order.begin(), order.end(), 0U);
    polled_sort(order.begin(), order.end(), [&](std::uint32_t i, std::uint32_t j) {
        const Point2d a = points[i];
        const Point2d b = points[j];
        if (a.x != b.x) return a.x < b.x;
        if (a.y != b.y) return a.y < b.y;
        return i < j;
    });
    Array<std::uint32_t> chain;
    const auto add = [&](std::uint32_t i, std::size_t begin) {
        while (chain.size() >= begin + 2 &&
               orient2d(points[chain[chain.size() - 2]], points[chain.back()], points[i]) <= 0) {
            chain.pop_back();
        }
        chain.push_back(i);
    };
    for (const std::uint32_t i : order) add(i, 0);
    if (chain.size() < 2) return chain;
    const std::size_t begin = chain.size() - 1;
    for (auto i = order.rbegin() + 1; i != order.rend(); ++i) add(*i, begin);
    chain.pop_back();
    return chain;
}

ConvexHull convex_hull(std::span<const Vec3f> points, double tolerance) {
    return Quickhull(points, tolerance).run();
}

}  // namespace povmesh
