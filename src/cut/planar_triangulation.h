// Constrained Delaunay triangulation of points in the plane, with winding numbers.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/array.h"
#include "base/predicates.h"

namespace povmesh {

/// A Delaunay triangulation of a set of points that is then forced to hold directed segments.
///
/// Every decision about order rests on exact orientation tests, so the triangles are always
/// positively oriented and never overlap, whatever the input. Which of the valid triangulations it
/// is rests on a rounded in-circle test: where four points lie nearly on a circle, either diagonal
/// may come.
///
/// Points at the same place share a node. A segment through a node becomes two; where two segments
/// cross, a node is added. Coordinates as the predicates take them.
///
/// Time: about n log n for the points; a segment costs the square of the number of edges that it
/// crosses at worst. Memory: 40 bytes a triangle, two triangles a point.
///
/// Source: A. Bowyer and C. Lawson for insertion with flips; N. Amenta, S. Choi and G. Rote,
/// Incremental constructions con BRIO, 2003, for the order; S. W. Sloan, A fast algorithm for
/// generating constrained Delaunay triangulations, 1993, for the segments.
class PlanarTriangulation {
public:
    explicit PlanarTriangulation(std::span<const Point2d> points);

    /// Adds a segment from point `from` to point `to`. The winding number on its left is higher by
    /// `weight` than on its right. Returns false when the segments cross so often that it gives up;
    /// the triangulation is of no use then.
    bool add_segment(std::size_t from, std::size_t to, std::int32_t weight = 1);

    /// The node that stands for a point: the point itself, or one of lower index at the same place.
    std::int32_t node_of(std::size_t point) const { return node_of_[point]; }

    /// True as long as no two points were at one place and no segment met another one or a node
    /// between its ends: each segment is then one side.
    bool is_exact() const { return is_exact_; }

    /// Nodes beyond the points given are those that were added at crossings.
    std::size_t node_count() const { return positions_.size() - kCorners; }
    Point2d position(std::int32_t node) const { return at(node + kCorners); }

    struct Triangle {
        std::array<std::int32_t, 3> node;  // counterclockwise
        std::int32_t winding;              // how often the segments go around it counterclockwise
    };

    /// The triangles whose winding number is not 0. The segments must form closed loops.
    Array<Triangle> wound_triangles() const;

private:
    // The three corners of a triangle around everything come first.
    static constexpr std::int32_t kCorners = 3;
    static constexpr std::int32_t kNone = -1;

    struct Side {
        std::int32_t neighbour = kNone;
        std::int32_t weight = 0;  // segments along it, counted with their direction
        bool is_fixed = false;
    };
    // Side i runs from corner i to corner i + 1.
    struct Cell {
        std::array<std::int32_t, 3> corner;
        std::array<Side, 3> side;
    };
    struct Place {
        std::int32_t cell;
        std::size_t side;
    };
    struct Segment {
        std::int32_t from, to;
    };

    Point2d at(std::int32_t corner) const { return positions_[static_cast<std::size_t>(corner)]; }
    Cell& cell(std::int32_t index) { return cells_[static_cast<std::size_t>(index)]; }
    const Cell& cell(std::int32_t index) const { return cells_[static_cast<std::size_t>(index)]; }
    int turn(std::int32_t a, std::int32_t b, std::int32_t c) const {
        return orient2d(at(a), at(b), at(c));
    }

    void make_outer_triangle(std::span<const Point2d> points);
    std::vector<std::uint32_t> insertion_order(std::span<const Point2d> points) const;
    void insert_point(std::size_t point, Point2d position);
    Place locate(Point2d p, int& zero_sides);
    void split_cell(std::int32_t index, std::int32_t corner);
    void split_side(Place place, std::int32_t x);
    std::size_t side_from(std::int32_t index, std::int32_t corner) const;
    Place beyond(Place place) const;
    Place find_side(std::int32_t a, std::int32_t b) const;
    void link(std::int32_t index, std::size_t side, const Side& outer);
    bool is_flippable(Place place) const;
    void flip(Place place);
    bool wants_flip(Place place) const;
    void legalise();
    void fix_side(Place place);
    bool walk(Segment segment);
    bool force(Segment segment, std::vector<Segment>& crossed);
    bool cross_fixed(Segment segment, Place place);

    std::vector<Point2d> positions_;
    Array<Cell> cells_;
    std::vector<std::int32_t> cell_at_;  // by corner: a cell that has it
    std::vector<std::int32_t> node_of_;  // by point
    std::vector<Place> suspects_;        // sides to be tested for a flip
    std::vector<Segment> pending_;
    std::int32_t last_cell_ = 0;
    std::int32_t weight_ = 1;  // of the segment at hand
    bool is_exact_ = true;
    std::size_t budget_ = 0;  // crossings still allowed
    std::uint32_t random_ = 1;
};

}  // namespace povmesh
