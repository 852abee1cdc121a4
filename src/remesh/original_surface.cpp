// A triangle is laid over those of the other surface along its normal: where it covers one of them,
// it is no farther from that than the difference of the heights, which is greatest at a corner of
// what the two have in common. What is left, which is little where a surface has kept its shape, is
// looked at in pieces.
//
// The distance of a point from a triangle is a convex function of the point, so that over another
// triangle it is greatest at a corner. The least such number among the triangles of a surface
// bounds how far a triangle is from all of it; halving the triangle where that is too coarse brings
// it down (M. Guthe, P. Borodin and R. Klein, Fast and accurate Hausdorff distance calculation
// between meshes, WSCG 2005).
#include "remesh/original_surface.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "base/convert.h"

namespace povmesh {
namespace {

constexpr double kFar = std::numeric_limits<double>::infinity();

// Of one step, in distances: some 10 ms.
constexpr std::size_t kMostEffort = 200'000;

// What a search in the tree costs, in distances.
constexpr std::size_t kSearch = 16;

// How far the points of a triangle are from a surface.
struct Bounds {
    double low = 0;
    double high = kFar;
};

// Squared, from the box of a triangle: a fifth of the work, and enough for most.
double box_distance(Vec3d p, const Triangle3d& t) {
    const auto beyond = [](double x, double a, double b, double c) {
        const double away = std::max({std::min({a, b, c}) - x, x - std::max({a, b, c}), 0.0});
        return away * away;
    };
    return beyond(p.x, t[0].x, t[1].x, t[2].x) + beyond(p.y, t[0].y, t[1].y, t[2].y) +
           beyond(p.z, t[0].z, t[1].z, t[2].z);
}

bool is_near(Vec3d p, const Triangle3d& t, double distance) {
    const double square = distance * distance;
    return box_distance(p, t) <= square && nearest_on_triangle(p, t).squared_distance <= square;
}

bool is_within(Vec3d p, std::span<const Triangle3d> patch, double distance) {
    return std::any_of(patch.begin(), patch.end(),
                       [&](const Triangle3d& t) { return is_near(p, t, distance); });
}

// No point of a triangle is farther from the patches.
double upper_bound(const Triangle3d& triangle, const PatchChange& change) {
    double least = kFar;
    for (const std::span<const Triangle3d> patch : {change.after, change.around}) {
        for (const Triangle3d& other : patch) {
            double farthest = 0;
            for (const Vec3d& corner : triangle) {
                farthest = std::max(farthest, box_distance(corner, other));
                if (!(farthest < least)) break;
                farthest = std::max(farthest, nearest_on_triangle(corner, other).squared_distance);
                if (!(farthest < least)) break;
            }
            least = std::min(least, farthest);
        }
    }
    return std::sqrt(least);
}

// Of a piece of the original from the surface as it will be; the lower one is as good as told when
// it is beyond `most`, else 0. Only those corners that the former patch stands for tell how far it
// is at least.
Bounds distance_bounds(const Triangle3d& triangle, const PatchChange& change, double most) {
    const double high = upper_bound(triangle, change);
    if (high <= most) return {0, high};
    const bool is_far = std::any_of(triangle.begin(), triangle.end(), [&](const Vec3d& corner) {
        return is_within(corner, change.before, change.movement) &&
               !is_within(corner, change.after, most) && !is_within(corner, change.around, most);
    });
    return {is_far ? kFar : 0, high};
}

// Both sides of the middle of its longest edge.
std::array<Triangle3d, 2> halves(const Triangle3d& t) {
    std::size_t longest = 0;
    double greatest = -1;
    for (std::size_t i = 0; i < 3; ++i) {
        const Vec3d along = t[(i + 1) % 3] - t[i];
        if (dot(along, along) > greatest) {
            greatest = dot(along, along);
            longest = i;
        }
    }
    const Vec3d& a = t[longest];
    const Vec3d& b = t[(longest + 1) % 3];
    const Vec3d& c = t[(longest + 2) % 3];
    const Vec3d middle = (a + b) * 0.5;
    return {Triangle3d{a, middle, c}, Triangle3d{middle, b, c}};
}

// True when all of a triangle is farther than that from all of the others, in a rough view.
bool is_beyond(const Triangle3d& t, std::span<const Triangle3d> others, double distance) {
    const Vec3d centre = (t[0] + t[1] + t[2]) / 3;
    double radius = 0;
    for (const Vec3d& corner : t) radius = std::max(radius, length(corner - centre));
    const double reach = distance + radius;
    return !is_within(centre, others, reach);
}

Box3f box_around(std::span<const Triangle3d> patch, double margin) {
    Box3d box;
    for (const Triangle3d& t : patch) {
        for (const Vec3d& corner : t) box.widen(corner);
    }
    const Vec3d by{margin, margin, margin};
    Box3f rounded;
    for (const Vec3d& p : {box.low - by, box.high + by}) {
        rounded.widen({narrow_to_float(p.x), narrow_to_float(p.y), narrow_to_float(p.z)});
    }
    return rounded;
}

// A convex piece of a triangle.
using Polygon = std::vector<Vec3d>;

// Divides a polygon where a linear function, given at its corners, changes its sign.
void divide(const Polygon& polygon, const std::vector<double>& values, Polygon& above,
            Polygon& below) {
    above.clear();
    below.clear();
    for (std::size_t i = 0; i < polygon.size(); ++i) {
        const std::size_t j = i + 1 == polygon.size() ? 0 : i + 1;
        (values[i] >= 0 ? above : below).push_back(polygon[i]);
        if ((values[i] >= 0) == (values[j] >= 0)) continue;
        const double s = values[i] / (values[i] - values[j]);
        const Vec3d crossing = polygon[i] + (polygon[j] - polygon[i]) * s;
        above.push_back(crossing);
        below.push_back(crossing);
    }
    if (above.size() < 3) above.clear();
    if (below.size() < 3) below.clear();
}

// What is left of a triangle when others are laid under and over it.
class Overlay {
public:
    Overlay(const Triangle3d& t, double most) : most_(most), left_{Polygon(t.begin(), t.end())} {
        const Vec3d normal = cross(t[1] - t[0], t[2] - t[0]);
        const double size = length(normal);
        if (size > 0) up_ = normal / size;
    }

    void cover_with(const Triangle3d& t) {
        const Vec3d normal = cross(t[1] - t[0], t[2] - t[0]);
        const double slope = dot(normal, up_);
        if (!(std::abs(slope) > kLeastSlope * length(normal))) return;
        std::vector<Polygon> uncovered;
        for (Polygon& polygon : left_) cover(std::move(polygon), t, normal, slope, uncovered);
        left_.swap(uncovered);
    }

    std::size_t count() const { return left_.size(); }
    double greatest() const { return greatest_; }  // of what is covered

    std::vector<Triangle3d> left() const {
        std::vector<Triangle3d> triangles;
        for (const Polygon& polygon : left_) {
            for (std::size_t i = 2; i < polygon.size(); ++i) {
                triangles.push_back({polygon[0], polygon[i - 1], polygon[i]});
            }
        }
        return triangles;
    }

private:
    static constexpr double kLeastSlope = 0.1;  // steeper ones cover next to nothing

    // Takes the part over the triangle, and at most that far from it, away from the polygon.
    void cover(Polygon inside, const Triangle3d& t, Vec3d normal, double slope,
               std::vector<Polygon>& uncovered) {
        const auto height = [&](Vec3d x) { return dot(normal, t[0] - x) / slope; };
        std::vector<double> values;
        std::vector<Polygon> outside;
        const auto keep_where = [&](auto&& function) {
            values.clear();
            for (const Vec3d& x : inside) values.push_back(function(x));
            Polygon above;
            Polygon below;
            divide(inside, values, above, below);
            inside.swap(above);
            if (!below.empty()) outside.push_back(std::move(below));
            return !inside.empty();
        };
        const Polygon whole = inside;
        for (std::size_t i = 0; i < 3; ++i) {
            const Vec3d along = t[(i + 1) % 3] - t[i];
            const Vec3d inward = cross(up_, along) * (slope > 0 ? 1.0 : -1.0);
            if (!keep_where([&](Vec3d x) { return dot(inward, x - t[i]); })) break;
        }
        const bool is_covered = !inside.empty() &&
                                keep_where([&](Vec3d x) { return most_ - height(x); }) &&
                                keep_where([&](Vec3d x) { return most_ + height(x); });
        if (!is_covered) {
            uncovered.push_back(whole);
            return;
        }
        for (const Vec3d& x : inside) {
            greatest_ = std::max(greatest_, std::min(std::abs(height(x)), most_));
        }
        uncovered.insert(uncovered.end(), outside.begin(), outside.end());
    }

    double most_;
    std::vector<Polygon> left_;
    Vec3d up_;
    double greatest_ = 0;
};

// Halves pieces of a surface until for each of them `bounds_of` tells enough; a piece of which it
// gives {0, 0} is none of its business. It counts what it does against the effort.
template <typename BoundsOf>
double greatest_distance(std::vector<Triangle3d> waiting, double greatest, double most,
                         std::size_t& effort, BoundsOf&& bounds_of) {
    while (!waiting.empty()) {
        if (effort == 0) return kFar;
        const Triangle3d t = waiting.back();
        waiting.pop_back();
        const Bounds bounds = bounds_of(t);
        if (!(bounds.low <= most)) return kFar;
        if (bounds.high <= std::max(greatest, most)) {
            greatest = std::max(greatest, bounds.high);
            continue;
        }
        for (const Triangle3d& half : halves(t)) waiting.push_back(half);
    }
    return greatest;
}

void spend(std::size_t& effort, std::size_t count) {
    effort -= std::min(effort, count);
}

}  // namespace

Triangle3d OriginalSurface::triangle(std::uint32_t face) const {
    const Face& f = mesh_.faces[face];
    return {to_double(mesh_.corner_position(f, 0)), to_double(mesh_.corner_position(f, 1)),
            to_double(mesh_.corner_position(f, 2))};
}

double OriginalSurface::distance_from_original(std::span<const Triangle3d> patch, double most,
                                               std::size_t& effort) const {
    double greatest = 0;
    std::vector<Triangle3d> left;
    for (const Triangle3d& t : patch) {
        Overlay overlay(t, most);
        const auto cover = [&](std::uint32_t face) {
            spend(effort, overlay.count());
            overlay.cover_with(triangle(face));
            return effort == 0 || overlay.count() == 0;
        };
        nearest_.tree().visit_overlapping(box_around({&t, 1}, most), cover);
        greatest = std::max(greatest, overlay.greatest());
        const std::vector<Triangle3d> pieces = overlay.left();
        left.insert(left.end(), pieces.begin(), pieces.end());
    }
    return greatest_distance(std::move(left), greatest, most, effort, [&](const Triangle3d& t) {
        Bounds bounds;
        for (const Vec3d& corner : t) {
            spend(effort, kSearch);
            const NearestPoint found = nearest_.find(corner, 4 * most * most);
            if (!found.is_found()) return Bounds{kFar, kFar};
            bounds.low = std::max(bounds.low, std::sqrt(found.squared_distance));
        }
        if (bounds.low > most) return bounds;
        // The face at the middle is mostly near to all of a piece.
        spend(effort, kSearch);
        const NearestPoint middle = nearest_.find((t[0] + t[1] + t[2]) / 3);
        if (!middle.is_found()) return Bounds{kFar, kFar};
        const Triangle3d other = triangle(middle.face);
        double high = 0;
        for (const Vec3d& corner : t) {
            high = std::max(high, nearest_on_triangle(corner, other).squared_distance);
        }
        bounds.high = std::sqrt(high);
        return bounds;
    });
}

double OriginalSurface::distance_of_original(const PatchChange& change, double most,
                                             std::size_t& effort) const {
    double greatest = 0;
    std::vector<Triangle3d> left;
    const auto lay_over = [&](std::uint32_t face) {
        const Triangle3d t = triangle(face);
        spend(effort, change.before.size());
        if (is_beyond(t, change.before, change.movement)) return effort == 0;
        Overlay overlay(t, most);
        for (const std::span<const Triangle3d> others : {change.after, change.around}) {
            for (const Triangle3d& other : others) {
                spend(effort, overlay.count());
                if (effort != 0) overlay.cover_with(other);
            }
        }
        greatest = std::max(greatest, overlay.greatest());
        const std::vector<Triangle3d> pieces = overlay.left();
        left.insert(left.end(), pieces.begin(), pieces.end());
        return effort == 0;
    };
    if (nearest_.tree().visit_overlapping(box_around(change.before, change.movement), lay_over)) {
        return kFar;
    }
    return greatest_distance(std::move(left), greatest, most, effort, [&](const Triangle3d& t) {
        spend(effort, change.before.size());
        if (is_beyond(t, change.before, change.movement)) return Bounds{0, 0};
        spend(effort, 3 * (change.before.size() + change.after.size() + change.around.size()));
        return distance_bounds(t, change, most);
    });
}

double OriginalSurface::distance(const PatchChange& change, double most,
                                 std::size_t& effort) const {
    const std::size_t whole = std::min(effort, kMostEffort);
    std::size_t left = whole;
    double greatest = distance_from_original(change.after, most, left);
    if (greatest <= most) greatest = std::max(greatest, distance_of_original(change, most, left));
    spend(effort, whole - left);
    return greatest;
}

}  // namespace povmesh
