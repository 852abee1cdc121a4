// A quad keeps clear of all others while it lies within its envelope: the four tetrahedra of its
// edge and two neighbouring vertices, which no other edge's envelope shares. Notation: the edge
// stands at the origin of the plane (u, v) and reaches from 0 to 1 along w; the cell of corner 0
// lies where u and v are positive, the others follow counterclockwise.
#include "field/untangle.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "base/convert.h"
#include "base/parallel.h"
#include "spatial/triangle_intersection.h"

namespace povmesh {
namespace {

// Steps of a vertex on its way to the centre of its cell.
constexpr std::uint8_t kAtMean = 1;
constexpr std::uint8_t kHalfWay = 2;
constexpr std::uint8_t kAtCentre = 3;

// What lies nearer to the border of an envelope, in cells, is tested: far beyond rounding.
constexpr double kClear = 1e-4;

// Diagonals that come as near to the crossing, and are as long, as this many cells tell.
constexpr double kAlike = 1e-6;

using Corners = std::array<Vec3d, 4>;  // u, v, w

double turn(Vec3d a, Vec3d b) {
    return a.x * b.y - a.y * b.x;
}
// Twice the area of a triangle seen along the edge.
double area(Vec3d a, Vec3d b, Vec3d c) {
    return turn(b - a, c - a);
}

// The segments between neighbouring corners pass through the square between their cells.
bool sides_are_clear(const Corners& p) {
    for (std::size_t i = 0; i < 4; ++i) {
        const Vec3d a = p[i];
        const Vec3d b = p[(i + 1) % 4];
        const bool is_u = i % 2 == 0;  // from corner 0 to 1 and 2 to 3 along u
        const double from = is_u ? a.x : a.y;
        const double to = is_u ? b.x : b.y;
        const double t = from / (from - to);
        const double w = a.z + (b.z - a.z) * t;
        double across = is_u ? a.y + (b.y - a.y) * t : a.x + (b.x - a.x) * t;
        // Corners 0, 1 lie on the positive side of v, 2 and 3 on the negative; 3, 0 on the
        // positive side of u.
        if (i == 1 || i == 2) across = -across;
        if (!(w > kClear && w < 1 - kClear && across > kClear && across < 1 - kClear)) return false;
    }
    return true;
}

struct Division {
    bool is_clear = false;
    double place = 0;  // where the triangles meet the edge
};

// The triangles (d, d + 1, d + 2) and (d, d + 2, d + 3).
Division divide(const Corners& p, std::size_t d) {
    const Vec3d a = p[d];
    const Vec3d b = p[d + 1];
    const Vec3d c = p[d + 2];
    const Vec3d e = p[(d + 3) % 4];
    Division result;
    // The diagonal passes the edge on one side; the triangle on the other meets it.
    const double beside = turn(a, c);  // above 0 when the edge lies on the side of e
    const bool is_first = beside < 0;
    const Vec3d middle = is_first ? b : e;
    const Vec3d other = is_first ? e : b;
    const double whole = area(a, middle, c);
    result.place = (turn(middle, c) * a.z + turn(c, a) * middle.z + turn(a, middle) * c.z) / whole;
    result.is_clear = std::abs(area(a, b, c)) > kClear && std::abs(area(a, c, e)) > kClear &&
                      area(a, b, c) > 0 && area(a, c, e) > 0 && result.place > kClear &&
                      result.place < 1 - kClear;
    if (!result.is_clear) return result;
    // Where the diagonal passes between the edge and the other corner.
    const double along = turn(other, a) / (turn(other, a) - turn(other, c));
    const Vec3d at = a + (c - a) * along;
    const double share =
        (at.x * other.x + at.y * other.y) / (other.x * other.x + other.y * other.y);
    if (share > 0) {
        result.is_clear =
            at.z > share * other.z + kClear && at.z < 1 + share * (other.z - 1) - kClear;
    }
    return result;
}

Triangle triangle_at(const DualSurface& surface, const std::array<std::uint32_t, 3>& corners) {
    return {to_double(surface.places[corners[0]]), to_double(surface.places[corners[1]]),
            to_double(surface.places[corners[2]])};
}

class Untangling {
public:
    Untangling(DualSurface& surface, const std::function<Vec3d(std::uint32_t)>& mean)
        : surface_(surface), mean_(mean) {}

    ContourReport run() {
        std::vector<std::uint32_t> suspects;
        for (std::uint32_t q = 0; q < surface_.quads.size(); ++q) {
            if (surface_.quads[q].is_suspect != 0) suspects.push_back(q);
        }
        report_.suspects = suspects.size();
        while (!suspects.empty()) {
            const std::vector<std::uint32_t> moving = tangled_vertices(suspects);
            if (moving.empty()) break;
            ++report_.rounds;
            suspects = move_back(moving);
        }
        return report_;
    }

private:
    void visit_quads_at(std::uint32_t vertex, auto&& visit) const {
        surface_.visit_edges(surface_.cells[vertex],
                             [&](std::uint32_t edge, std::size_t, Vec3d) { visit(edge); });
    }

    // Vertices of triangles that cross, ascending, those at their centres left out.
    std::vector<std::uint32_t> tangled_vertices(const std::vector<std::uint32_t>& suspects) const {
        constexpr std::size_t kAtOnce = 256;
        std::vector<std::vector<std::uint32_t>> found((suspects.size() + kAtOnce - 1) / kAtOnce);
        for_blocks(found.size(), [&](std::size_t piece) {
            const std::size_t end = std::min((piece + 1) * kAtOnce, suspects.size());
            for (std::size_t s = piece * kAtOnce; s < end; ++s) test(suspects[s], found[piece]);
        });
        std::vector<std::uint32_t> all;
        for (const auto& some : found) all.insert(all.end(), some.begin(), some.end());
        std::sort(all.begin(), all.end());
        all.erase(std::unique(all.begin(), all.end()), all.end());
        return all;
    }

    void test(std::uint32_t suspect, std::vector<std::uint32_t>& found) const {
        const DualSurface::Quad& quad = surface_.quads[suspect];
        const auto own = DualSurface::triangles(quad);
        const std::array<Triangle, 2> shapes = {triangle_at(surface_, own[0]),
                                                triangle_at(surface_, own[1])};
        const auto add = [&](const std::array<std::uint32_t, 3>& corners) {
            for (const std::uint32_t v : corners) {
                if (surface_.steps[v] < kAtCentre) found.push_back(v);
            }
        };
        for (std::size_t t = 0; t < 2; ++t) {
            if (!has_area(shapes[t])) add(own[t]);
        }
        if (meet_beyond_shared(shapes[0], shapes[1])) {
            add(own[0]);
            add(own[1]);
        }
        std::array<std::uint32_t, 48> seen{};
        std::size_t seen_count = 0;
        for (const std::uint32_t corner : quad.corners) {
            visit_quads_at(corner, [&](std::uint32_t other) {
                const auto seen_end = seen.begin() + static_cast<std::ptrdiff_t>(seen_count);
                if (other == suspect || std::find(seen.begin(), seen_end, other) != seen_end)
                    return;
                seen[seen_count++] = other;
                const auto others = DualSurface::triangles(surface_.quads[other]);
                for (std::size_t a = 0; a < 2; ++a) {
                    for (std::size_t b = 0; b < 2; ++b) {
                        const Triangle shape = triangle_at(surface_, others[b]);
                        if (!meet_beyond_shared(shapes[a], shape)) continue;
                        add(own[a]);
                        add(others[b]);
                    }
                }
            });
        }
    }

    Vec3d place_of(std::uint32_t vertex) const {
        constexpr Vec3d kCentre = {0.5, 0.5, 0.5};
        switch (surface_.steps[vertex]) {
            case kAtMean:
                return mean_(vertex);
            case kHalfWay:
                return (mean_(vertex) + kCentre) / 2.0;
            default:
                return kCentre;
        }
    }

    // Returns the quads at moved vertices, ascending, that are suspect then.
    std::vector<std::uint32_t> move_back(const std::vector<std::uint32_t>& moving) {
        std::vector<std::uint32_t> around;
        for (const std::uint32_t vertex : moving) {
            if (surface_.steps[vertex] == 0) ++report_.moved;
            ++surface_.steps[vertex];
            surface_.places[vertex] = surface_.to_world(surface_.cells[vertex], place_of(vertex));
            visit_quads_at(vertex, [&](std::uint32_t quad) { around.push_back(quad); });
        }
        std::sort(around.begin(), around.end());
        around.erase(std::unique(around.begin(), around.end()), around.end());
        std::vector<std::uint32_t> suspects;
        for (const std::uint32_t quad : around) {
            surface_.choose_diagonal(surface_.quads[quad]);
            if (surface_.quads[quad].is_suspect != 0) suspects.push_back(quad);
        }
        return suspects;
    }

    DualSurface& surface_;
    const std::function<Vec3d(std::uint32_t)>& mean_;
    ContourReport report_;
};

}  // namespace

Vec3d DualSurface::to_exact_world(std::uint32_t cell, Vec3d place) const {
    const NodeIndex low = layout_.node(cell);
    return grid_.origin + (Vec3d{static_cast<double>(low.i), static_cast<double>(low.j),
                                 static_cast<double>(low.k)} +
                           place) *
                              grid_.cell;
}

Vec3f DualSurface::to_world(std::uint32_t cell, Vec3d place) const {
    const Vec3d p = to_exact_world(cell, place);
    return {static_cast<float>(p.x), static_cast<float>(p.y), static_cast<float>(p.z)};
}

void DualSurface::find_corners(Quad& quad) const {
    const NodeIndex node = layout_.node(quad.node);
    const std::size_t u = quad.axis == 2 ? 0 : quad.axis + 1;
    const std::size_t v = quad.axis == 0 ? 2 : quad.axis - 1;
    quad.corners = {vertex_of(node), vertex_of(node.stepped(u, -1)),
                    vertex_of(node.stepped(u, -1).stepped(v, -1)), vertex_of(node.stepped(v, -1))};
}

void DualSurface::choose_diagonal(Quad& quad) const {
    const NodeIndex node = layout_.node(quad.node);
    const Vec3d low = grid_.node(node.i, node.j, node.k);
    Corners p;
    for (std::size_t c = 0; c < 4; ++c) {
        const Vec3d away = (to_double(places[quad.corners[c]]) - low) / grid_.cell;
        p[c] = quad.axis == 0   ? Vec3d{away.y, away.z, away.x}
               : quad.axis == 1 ? Vec3d{away.z, away.x, away.y}
                                : away;
    }
    const std::array<Division, 2> divisions = {divide(p, 0), divide(p, 1)};
    if (divisions[0].is_clear != divisions[1].is_clear) {
        quad.diagonal = divisions[1].is_clear ? 1 : 0;
    } else {
        const double first = std::abs(divisions[0].place - static_cast<double>(quad.place));
        const double second = std::abs(divisions[1].place - static_cast<double>(quad.place));
        const double first_length = length(p[2] - p[0]);
        const double second_length = length(p[3] - p[1]);
        const bool is_alike = std::abs(first - second) < kAlike;
        quad.diagonal = (is_alike ? second_length < first_length - kAlike : second < first) ? 1 : 0;
    }
    quad.is_suspect = divisions[quad.diagonal].is_clear && sides_are_clear(p) ? 0 : 1;
}

std::array<std::array<std::uint32_t, 3>, 2> DualSurface::triangles(const Quad& quad) {
    const auto& c = quad.corners;
    const std::size_t d = quad.diagonal;
    std::array<std::array<std::uint32_t, 3>, 2> result = {
        {{c[d], c[d + 1], c[d + 2]}, {c[d], c[d + 2], c[(d + 3) % 4]}}};
    if (quad.is_low_solid == 0) {
        for (auto& triangle : result) std::swap(triangle[1], triangle[2]);
    }
    return result;
}

ContourReport untangle(DualSurface& surface, const std::function<Vec3d(std::uint32_t)>& mean) {
    return Untangling(surface, mean).run();
}

}  // namespace povmesh
