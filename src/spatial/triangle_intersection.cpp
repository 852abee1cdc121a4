// Two triangles whose planes cut each other meet where the intervals that they have on the common
// line overlap, which orientation signs of their corners decide without computing the line; in one
// plane, where no edge separates them (P. Guigue, O. Devillers 2003). All signs are exact.
//
// "Above a plane" means on the side from which the corners of its triangle turn counterclockwise,
// where orient3d is positive.
#include "spatial/triangle_intersection.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "base/predicates.h"

namespace povmesh {
namespace {

constexpr std::array<std::size_t, 5> kCyclic = {0, 1, 2, 0, 1};

using Signs = std::array<int, 3>;
using FlatTriangle = std::array<Point2d, 3>;

// Where the corners of `of` lie relative to the plane of `plane`.
Signs sides(const Triangle& plane, const Triangle& of) {
    return {orient3d(plane[0], plane[1], plane[2], of[0]),
            orient3d(plane[0], plane[1], plane[2], of[1]),
            orient3d(plane[0], plane[1], plane[2], of[2])};
}

bool all_on_one_side(const Signs& s) {
    return s[0] != 0 && s[0] == s[1] && s[1] == s[2];
}

bool all_in_plane(const Signs& s) {
    return s[0] == 0 && s[1] == 0 && s[2] == 0;
}

// The corner that a plane cuts off from the other two: it lies above the plane and they do not, or
// it lies below and they do not, or it alone lies in the plane.
struct LoneCorner {
    std::size_t corner;
    bool is_above;  // for one in the plane: the others are below
};

LoneCorner lone_corner(const Signs& s) {
    for (std::size_t i = 0; i < 3; ++i) {
        const int next = s[kCyclic[i + 1]];
        const int last = s[kCyclic[i + 2]];
        if (s[i] > 0 && next <= 0 && last <= 0) return {i, true};
        if (s[i] < 0 && next >= 0 && last >= 0) return {i, false};
    }
    const std::size_t in_plane = s[0] == 0 ? 0 : s[1] == 0 ? 1 : 2;
    return {in_plane, s[kCyclic[in_plane + 1]] < 0};
}

// The triangle along x and y, y and z or z and x.
FlatTriangle flattened(const Triangle& t, std::size_t axes) {
    const auto flat = [&](Vec3d p) -> Point2d {
        if (axes == 0) return {p.x, p.y};
        if (axes == 1) return {p.y, p.z};
        return {p.z, p.x};
    };
    return {flat(t[0]), flat(t[1]), flat(t[2])};
}

int turn(const FlatTriangle& t) {
    return orient2d(t[0], t[1], t[2]);
}

// The pair of axes along which a triangle keeps an area, and the sign of that; 0 when it has none.
struct Flattening {
    std::size_t axes;
    int turn;
};

Flattening find_flattening(const Triangle& t) {
    for (std::size_t axes = 0; axes < 3; ++axes) {
        const int sign = turn(flattened(t, axes));
        if (sign != 0) return {axes, sign};
    }
    return {0, 0};
}

// True when all of `of` lies strictly outside an edge of `t`, which turns by `turn_of_t`.
bool is_beyond_an_edge(const FlatTriangle& t, int turn_of_t, const FlatTriangle& of) {
    for (std::size_t i = 0; i < 3; ++i) {
        const Point2d a = t[i];
        const Point2d b = t[kCyclic[i + 1]];
        if (std::all_of(of.begin(), of.end(),
                        [&](Point2d p) { return orient2d(a, b, p) == -turn_of_t; })) {
            return true;
        }
    }
    return false;
}

// Two convex polygons that do not touch are separated by the line of an edge of one of them.
bool intersect_in_plane(const Triangle& a, const Triangle& b) {
    const Flattening flattening = find_flattening(a);
    if (flattening.turn == 0) return false;
    const FlatTriangle flat_a = flattened(a, flattening.axes);
    const FlatTriangle flat_b = flattened(b, flattening.axes);
    const int turn_b = turn(flat_b);
    return turn_b != 0 && !is_beyond_an_edge(flat_a, flattening.turn, flat_b) &&
           !is_beyond_an_edge(flat_b, turn_b, flat_a);
}

bool intersect(const Triangle& a, const Triangle& b) {
    const Signs b_sides = sides(a, b);
    if (all_on_one_side(b_sides)) return false;
    const Signs a_sides = sides(b, a);
    if (all_on_one_side(a_sides)) return false;
    if (all_in_plane(a_sides) || all_in_plane(b_sides)) {
        // Only one of the two: the other triangle has no area, and so no plane.
        return all_in_plane(a_sides) && all_in_plane(b_sides) && intersect_in_plane(a, b);
    }
    // Each triangle meets the line that the two planes have in common in an interval, from where
    // the edges at its lone corner cross it. Turn both so that their lone corners p are above; then
    // the intervals overlap exactly when each begins before the other ends, and the order of two
    // crossing points is the orientation of the two edges.
    const LoneCorner lone_a = lone_corner(a_sides);
    const LoneCorner lone_b = lone_corner(b_sides);
    const Vec3d pa = a[lone_a.corner];
    Vec3d qa = a[kCyclic[lone_a.corner + 1]];
    Vec3d ra = a[kCyclic[lone_a.corner + 2]];
    const Vec3d pb = b[lone_b.corner];
    Vec3d qb = b[kCyclic[lone_b.corner + 1]];
    Vec3d rb = b[kCyclic[lone_b.corner + 2]];
    if (!lone_a.is_above) std::swap(qb, rb);
    if (!lone_b.is_above) std::swap(qa, ra);
    return orient3d(pa, qa, pb, qb) <= 0 && orient3d(pa, ra, pb, rb) >= 0;
}

// Whether p lies in the angle at the corner 0 of t, borders included.
bool is_in_angle(const FlatTriangle& t, int turn_of_t, Point2d p) {
    return orient2d(t[0], t[1], p) != -turn_of_t && orient2d(t[0], t[2], p) != turn_of_t;
}

bool angles_overlap_in_plane(const Triangle& a, const Triangle& b) {
    const Flattening flattening = find_flattening(a);
    const FlatTriangle flat_a = flattened(a, flattening.axes);
    const FlatTriangle flat_b = flattened(b, flattening.axes);
    const int turn_b = turn(flat_b);
    return is_in_angle(flat_a, flattening.turn, flat_b[1]) ||
           is_in_angle(flat_a, flattening.turn, flat_b[2]) ||
           is_in_angle(flat_b, turn_b, flat_a[1]) || is_in_angle(flat_b, turn_b, flat_a[2]);
}

// Triangles that share the corner 0 and no other. The ray from there along which they meet again
// ends, within b, on the edge opposite to the shared corner: so they meet beyond it exactly when
// that edge has a point in the angle of a.
bool meet_beyond_corner(const Triangle& a, const Triangle& b) {
    const int side_1 = orient3d(a[0], a[1], a[2], b[1]);
    const int side_2 = orient3d(a[0], a[1], a[2], b[2]);
    if (side_1 == 0 && side_2 == 0) return angles_overlap_in_plane(a, b);
    if (side_1 == side_2) return false;
    const bool falls = side_1 > side_2;
    const Vec3d upper = falls ? b[1] : b[2];
    const Vec3d lower = falls ? b[2] : b[1];
    return orient3d(a[0], a[1], upper, lower) <= 0 && orient3d(a[0], a[2], upper, lower) >= 0;
}

// Triangles that share the corners 0 and 1.
bool meet_beyond_edge(const Triangle& a, const Triangle& b) {
    if (orient3d(a[0], a[1], a[2], b[2]) != 0) return false;
    const Flattening flattening = find_flattening(a);
    return turn(flattened(b, flattening.axes)) == flattening.turn;
}

Triangle from_corner(const Triangle& t, std::size_t first) {
    return {t[first], t[kCyclic[first + 1]], t[kCyclic[first + 2]]};
}

}  // namespace

Triangle triangle_of(const TriMesh& mesh, const Face& face) {
    return {to_double(mesh.corner_position(face, 0)), to_double(mesh.corner_position(face, 1)),
            to_double(mesh.corner_position(face, 2))};
}

bool is_finite(const Triangle& triangle) {
    return std::all_of(triangle.begin(), triangle.end(), [](Vec3d p) {
        return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
    });
}

bool has_area(const Triangle& triangle) {
    return find_flattening(triangle).turn != 0;
}

bool triangles_intersect(const Triangle& a, const Triangle& b) {
    return is_finite(a) && is_finite(b) && intersect(a, b);
}

bool meet_beyond_shared(const Triangle& a, const Triangle& b) {
    std::size_t shared = 0;
    std::size_t corner_a = 0;  // of the last shared corner found
    std::size_t corner_b = 0;
    std::size_t free_sum_a = 3;  // sum of the corners of a that are not shared
    std::size_t free_sum_b = 3;
    for (std::size_t i = 0; i < 3; ++i) {
        for (std::size_t j = 0; j < 3; ++j) {
            if (!(a[i] == b[j])) continue;
            ++shared;
            corner_a = i;
            corner_b = j;
            free_sum_a -= i;
            free_sum_b -= j;
        }
    }
    if (shared == 0) return intersect(a, b);
    if (shared == 1) return meet_beyond_corner(from_corner(a, corner_a), from_corner(b, corner_b));
    if (shared > 2) return false;
    const Vec3d other_corner = a[3 - free_sum_a - corner_a];
    return meet_beyond_edge({a[corner_a], other_corner, a[free_sum_a]},
                            {a[corner_a], other_corner, b[free_sum_b]});
}

}  // namespace povmesh
