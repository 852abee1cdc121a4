// The openings of a cut are loops of rim edges. A constrained Delaunay triangulation of their
// points takes the edges as constraints; the winding number of each triangle tells how often the
// cap covers it, so that nested loops need no sorting into outer ones and holes. What the rims have
// beyond the triangles' sides (edges that cross, points that coincide) is traced as loops of no
// area and filled by fans, so that the boundary of a cap is the rim in any case.
#include "cut/cap.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <tuple>

#include "cut/planar_triangulation.h"
#include "slice/loops.h"

namespace povmesh {
namespace {

// Numbers the points of edges from 0 on, in ascending order.
class Nodes {
public:
    template <typename Edges>
    explicit Nodes(const Edges& edges) {
        for (const auto& edge : edges) add(edge.from, edge.to);
    }

    void add(std::int32_t a, std::int32_t b) {
        points_.push_back(a);
        points_.push_back(b);
    }
    void sort() {
        std::sort(points_.begin(), points_.end());
        points_.erase(std::unique(points_.begin(), points_.end()), points_.end());
    }
    std::int32_t operator[](std::int32_t point) const {
        const auto place = std::lower_bound(points_.begin(), points_.end(), point);
        return static_cast<std::int32_t>(place - points_.begin());
    }
    std::size_t size() const { return points_.size(); }
    const Array<std::int32_t>& points() const { return points_; }

private:
    Array<std::int32_t> points_;
};

bool is_balanced(std::span<const LoopEdge> edges, std::size_t node_count) {
    std::vector<std::int32_t> surplus(node_count, 0);
    for (const LoopEdge& edge : edges) {
        ++surplus[static_cast<std::size_t>(edge.from)];
        --surplus[static_cast<std::size_t>(edge.to)];
    }
    return std::all_of(surplus.begin(), surplus.end(), [](std::int32_t n) { return n == 0; });
}

// The chains that the directions leave open, closed without regard to them.
void add_undirected_loops(const Array<RimEdge>& rim, std::span<const LoopEdge> edges,
                          std::size_t node_count, Array<RimEdge>& closed) {
    const Loops loops = find_loops(edges, node_count, Direction::Ignored);
    for (std::size_t l = 0; l < loops.size(); ++l) {
        const auto loop = loops[l];
        // Where the loop goes on from its first edge tells which way it passes it.
        const LoopEdge& first = edges[loop[0]];
        const LoopEdge& second = edges[loop[1 % loop.size()]];
        std::int32_t here =
            first.to == second.from || first.to == second.to ? first.from : first.to;
        std::ptrdiff_t forward = 0;
        Array<RimEdge> turned;
        for (const std::uint32_t e : loop) {
            RimEdge edge = rim[e];
            const bool is_forward = edges[e].from == here;
            forward += is_forward ? 1 : -1;
            if (!is_forward) std::swap(edge.from, edge.to);
            here = is_forward ? edges[e].to : edges[e].from;
            turned.push_back(edge);
        }
        for (RimEdge& edge : turned) {
            if (forward < 0) std::swap(edge.from, edge.to);
            closed.push_back(edge);
        }
    }
}

struct DirectedSide {
    std::uint64_t key;
    std::int32_t from, to;
    int weight;
};

// What is left of directed edges when opposite ones cancel out.
Array<LoopEdge> remainder(Array<DirectedSide>& sides) {
    std::sort(sides.begin(), sides.end(), [](const DirectedSide& a, const DirectedSide& b) {
        return std::tuple(a.key, a.from, a.weight) < std::tuple(b.key, b.from, b.weight);
    });
    Array<LoopEdge> left;
    for (std::size_t i = 0; i < sides.size();) {
        const std::uint64_t key = sides[i].key;
        int rising = 0;
        for (; i < sides.size() && sides[i].key == key; ++i) {
            rising += sides[i].from < sides[i].to ? sides[i].weight : -sides[i].weight;
        }
        const auto low = static_cast<std::int32_t>(key >> 32);
        const auto high = static_cast<std::int32_t>(key & 0xFFFFFFFF);
        for (; rising > 0; --rising) left.push_back({low, high});
        for (; rising < 0; ++rising) left.push_back({high, low});
    }
    return left;
}

// Closes what the triangles miss of the rim: rims that cross, or points at one place, leave narrow
// loops. Each is filled by a fan.
void fill_remainder(std::span<const RimEdge> rim, Array<CapTriangle>& triangles) {
    Array<DirectedSide> sides;
    const auto add = [&](std::int32_t from, std::int32_t to, int weight) {
        if (from != to) sides.push_back({edge_key(from, to), from, to, weight});
    };
    for (const RimEdge& edge : rim) add(edge.from, edge.to, 1);
    for (const CapTriangle& t : triangles) {
        for (std::size_t i = 0; i < 3; ++i) add(t[i], t[next_corner(i)], -1);
    }
    Array<LoopEdge> left = remainder(sides);
    Nodes nodes(left);
    nodes.sort();
    for (LoopEdge& edge : left) edge = {nodes[edge.from], nodes[edge.to]};
    const Loops loops = find_loops(left, nodes.size(), Direction::Kept);
    for (std::size_t l = 0; l < loops.size(); ++l) {
        const auto loop = loops[l];
        const auto point = [&](std::size_t i) {
            return nodes.points()[static_cast<std::size_t>(left[loop[i]].from)];
        };
        for (std::size_t i = 2; i < loop.size(); ++i) {
            triangles.push_back({point(0), point(i - 1), point(i)});
        }
    }
}

struct TriangleSide {
    std::uint64_t key;
    std::uint32_t triangle;
    std::uint8_t side;
    bool is_rising;
};

// The point that divides each side of a triangle, or -1.
using Dividers = std::array<std::int32_t, 3>;

// Picks from the sides at one edge those to be divided and divides them, in opposite pairs.
class SharedSides {
public:
    SharedSides(CutPoints& points, std::vector<Dividers>& dividers)
        : points_(points), dividers_(dividers) {}

    void split(std::span<const TriangleSide> sides, std::uint32_t wall_count) {
        rising_.clear();
        falling_.clear();
        for (const TriangleSide& side : sides)
            (side.is_rising ? rising_ : falling_).push_back(side);
        std::size_t pairs = std::min(rising_.size(), falling_.size());
        if (wall_count == 0 && rising_.size() == falling_.size()) --pairs;  // one pair may stay
        const auto low = points_.exact(static_cast<std::int32_t>(sides[0].key >> 32));
        const auto high = points_.exact(static_cast<std::int32_t>(sides[0].key & 0xFFFFFFFF));
        for (std::size_t i = 0; i < pairs; ++i) {
            // Off the middle, where models drawn on a grid have vertices.
            const double share = (static_cast<double>(i) + 0.4375) / static_cast<double>(pairs);
            const std::int32_t point = points_.add(low + (high - low) * share);
            for (const TriangleSide& side : {rising_[i], falling_[i]}) {
                dividers_[side.triangle][side.side] = point;
            }
        }
    }

private:
    CutPoints& points_;
    std::vector<Dividers>& dividers_;
    std::vector<TriangleSide> rising_;
    std::vector<TriangleSide> falling_;
};

void divide(const CapTriangle& triangle, const Dividers& dividers, Array<CapTriangle>& result) {
    // The corners and dividers in their order are a polygon; its triangles must not lie along a
    // side.
    std::size_t first = 0;
    std::size_t count = 0;
    for (std::size_t i = 0; i < 3; ++i) {
        if (dividers[i] < 0) continue;
        ++count;
        first = i;
    }
    const auto [a, b, c] =
        std::tuple(triangle[first], triangle[next_corner(first)], triangle[previous_corner(first)]);
    const std::int32_t ab = dividers[first];
    const std::int32_t bc = dividers[next_corner(first)];
    const std::int32_t ca = dividers[previous_corner(first)];
    if (count == 1) {
        result.push_back({a, ab, c});
        result.push_back({ab, b, c});
    } else if (count == 3) {
        result.insert(result.end(), {{a, ab, ca}, {ab, b, bc}, {bc, c, ca}, {ab, bc, ca}});
    } else if (bc >= 0) {
        result.insert(result.end(), {{ab, b, bc}, {a, ab, bc}, {a, bc, c}});
    } else {
        result.insert(result.end(), {{a, ab, ca}, {ab, b, c}, {ab, c, ca}});
    }
}

}  // namespace

Array<RimEdge> closed_rim(std::span<const RimEdge> rim) {
    Nodes nodes(rim);
    nodes.sort();
    Array<LoopEdge> edges;
    for (const RimEdge& edge : rim) edges.push_back({nodes[edge.from], nodes[edge.to]});
    if (is_balanced(edges, nodes.size())) return {rim.begin(), rim.end()};
    Array<RimEdge> closed;
    Array<std::uint8_t> is_closed(rim.size(), 0);
    const Loops loops = find_loops(edges, nodes.size(), Direction::Kept);
    for (const std::uint32_t e : loops.edges) {
        closed.push_back(rim[e]);
        is_closed[e] = 1;
    }
    Array<RimEdge> open;
    Array<LoopEdge> open_edges;
    for (std::size_t e = 0; e < rim.size(); ++e) {
        if (is_closed[e] != 0) continue;
        open.push_back(rim[e]);
        open_edges.push_back(edges[e]);
    }
    add_undirected_loops(open, open_edges, nodes.size(), closed);
    return closed;
}

RimFilling fill_rim(CutPoints& points, const PlaneFrame& frame, std::span<const RimEdge> rim,
                    std::span<const std::array<std::int32_t, 2>> guides) {
    Nodes nodes(rim);
    for (const auto& [from, to] : guides) nodes.add(from, to);
    nodes.sort();
    std::vector<Point2d> flat;
    flat.reserve(nodes.size());
    for (const std::int32_t point : nodes.points()) flat.push_back(frame.flat(points.exact(point)));
    PlanarTriangulation triangulation(flat);
    const auto add = [&](std::int32_t from, std::int32_t to, std::int32_t weight) {
        return triangulation.add_segment(static_cast<std::size_t>(nodes[from]),
                                         static_cast<std::size_t>(nodes[to]), weight);
    };
    bool is_filled = true;
    for (const RimEdge& edge : rim) is_filled = is_filled && add(edge.from, edge.to, 1);
    for (const auto& [from, to] : guides) is_filled = is_filled && add(from, to, 0);

    RimFilling filling;
    Array<CapTriangle>& triangles = filling.triangles;
    filling.has_guides = is_filled;
    filling.is_plain = is_filled && triangulation.is_exact();
    if (is_filled) {
        Array<std::int32_t> point_of = nodes.points();
        for (std::size_t node = nodes.size(); node < triangulation.node_count(); ++node) {
            point_of.push_back(
                points.add(frame.lift(triangulation.position(static_cast<std::int32_t>(node)))));
        }
        for (const PlanarTriangulation::Triangle& t : triangulation.wound_triangles()) {
            CapTriangle triangle;
            for (std::size_t i = 0; i < 3; ++i) {
                triangle[i] = point_of[static_cast<std::size_t>(t.node[i])];
            }
            if (t.winding < 0) std::swap(triangle[0], triangle[1]);
            if (t.winding != 1 && t.winding != -1) filling.is_plain = false;
            for (int layer = 0; layer < std::abs(t.winding); ++layer) triangles.push_back(triangle);
        }
    }
    if (!is_filled || !triangulation.is_exact()) fill_remainder(rim, triangles);
    return filling;
}

void split_shared_sides(CutPoints& points, Array<CapTriangle>& triangles,
                        const Array<PlaneWall>& walls) {
    Array<TriangleSide> sides;
    for (std::uint32_t t = 0; t < triangles.size(); ++t) {
        for (std::size_t i = 0; i < 3; ++i) {
            const std::int32_t from = triangles[t][i];
            const std::int32_t to = triangles[t][next_corner(i)];
            sides.push_back({edge_key(from, to), t, static_cast<std::uint8_t>(i), from < to});
        }
    }
    std::sort(sides.begin(), sides.end(), [](const TriangleSide& a, const TriangleSide& b) {
        return std::tuple(a.key, a.triangle, a.side) < std::tuple(b.key, b.triangle, b.side);
    });
    std::vector<Dividers> dividers(triangles.size(), Dividers{-1, -1, -1});
    SharedSides shared(points, dividers);
    std::size_t wall = 0;
    for (std::size_t i = 0; i < sides.size();) {
        std::size_t end = i + 1;
        while (end < sides.size() && sides[end].key == sides[i].key) ++end;
        while (wall < walls.size() && walls[wall].key < sides[i].key) ++wall;
        const bool has_wall = wall < walls.size() && walls[wall].key == sides[i].key;
        const std::uint32_t wall_count = has_wall ? walls[wall].count : 0;
        if (end - i + wall_count > 2) {
            shared.split({sides.data() + i, sides.data() + end}, wall_count);
        }
        i = end;
    }
    Array<CapTriangle> result;
    for (std::size_t t = 0; t < triangles.size(); ++t) {
        if (dividers[t] == Dividers{-1, -1, -1}) {
            result.push_back(triangles[t]);
        } else {
            divide(triangles[t], dividers[t], result);
        }
    }
    triangles = std::move(result);
}

}  // namespace povmesh
