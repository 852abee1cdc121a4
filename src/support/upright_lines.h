// Where single upright lines pass through the surface of a mesh.
#pragma once

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <span>

#include "base/array.h"
#include "base/convert.h"
#include "mesh/tri_mesh.h"
#include "spatial/face_tree.h"

namespace povmesh {

/// Whether an upright line at x of a row at y passes a triangle, decided edge by edge from the
/// edge's end points alone, lower one first: so the faces on both sides of an edge agree, and a
/// line passes a closed surface upward as often as downward.
///
/// `place(x)` says from which line of a row on an edge that crosses it at x is passed; the lines
/// from `low()` to before `high()` pass.
struct RowSpan {
    std::uint32_t from = 0;
    std::uint32_t end = 0;

    std::uint32_t low() const { return from < end ? from : end; }
    std::uint32_t high() const { return from < end ? end : from; }
    /// Going up: 1 where the face is passed from its back to its front, else -1.
    std::int32_t way() const { return from < end ? 1 : -1; }
};

template <typename Place>
RowSpan row_span(const std::array<Vec3d, 3>& p, double y, Place&& place) {
    RowSpan span;
    for (std::size_t i = 0; i < 3; ++i) {
        const Vec3d& a = p[i];
        const Vec3d& b = p[next_corner(i)];
        // A vertex on the row counts as above it.
        if ((a.y <= y) == (b.y <= y)) continue;
        const bool rises = a.y <= y;
        const Vec3d& low = rises ? a : b;
        const Vec3d& high = rises ? b : a;
        const double x = low.x + (y - low.y) * ((high.x - low.x) / (high.y - low.y));
        // The face lies to the left of an edge that rises, seen from its front.
        (rises ? span.end : span.from) = place(x);
    }
    return span;
}

/// Height of the plane of a triangle at (x, y), kept between its corners.
double height_at(const std::array<Vec3d, 3>& p, Vec3d normal, double x, double y);

/// Finds crossings of lines one by one, wherever they stand. Faces with a coordinate that is not
/// finite are left out.
///
/// Building is that of a tree over the faces, seen from above; where long slanting faces would make
/// its boxes overlap much, of up to nine pieces a face. A line takes time of the pieces above and
/// below it and the logarithm of all. Lines may be asked for at the same time.
class UprightLines {
public:
    explicit UprightLines(const TriMesh& mesh);

    struct Crossing {
        double z;
        std::int32_t way;  // 1 where the face is passed from its back to its front, going up
    };

    /// Calls visit(crossing) for each face that the line passes, in no order, until one call
    /// returns true. Returns true when one did.
    template <typename Visit>
    bool visit_crossings(double x, double y, Visit&& visit) const;

    /// What lies below a place of a line.
    struct Below {
        double floor;     // height of the next surface, or -infinity
        bool is_outside;  // just below the place; also where holes leave that open
    };
    Below look_down(Vec3d from) const;
    /// The same, from the crossings of a line.
    static Below look_down(std::span<const Crossing> crossings, double from);

    /// True when no surface crosses the line from `low` to `high` and that stretch lies outside.
    bool is_free(double x, double y, double low, double high) const;

private:
    // A face between two cuts across its longer extent, all of it when `count` is 1.
    struct Piece {
        std::array<Vec3f, 3> corners;
        std::uint16_t number;
        std::uint16_t count;
    };

    void build(const TriMesh& mesh, std::span<const std::uint16_t> counts);
    static Array<std::uint16_t> piece_counts(std::span<const Box3f> boxes);
    double boxes_on_a_line() const;
    static Box3f box_of(const Piece& piece);
    static bool is_met_by(const Piece& piece, double x, double y);

    FaceTree tree_;
    Array<Piece> pieces_;  // in the order of the tree
};

// ------------------------------------------------------------------------------- the template

template <typename Visit>
bool UprightLines::visit_crossings(double x, double y, Visit&& visit) const {
    if (tree_.nodes().empty()) return false;
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    const float middle_x = narrow_to_float(x);
    const float middle_y = narrow_to_float(y);
    const float low_x = std::nextafter(middle_x, -kInfinity);
    const float high_x = std::nextafter(middle_x, kInfinity);
    const float low_y = std::nextafter(middle_y, -kInfinity);
    const float high_y = std::nextafter(middle_y, kInfinity);
    const auto is_over = [&](const Box3f& box) {
        return box.low.x <= high_x && low_x <= box.high.x && box.low.y <= high_y &&
               low_y <= box.high.y;
    };
    const auto place = [x](double edge_x) { return edge_x <= x ? 0U : 1U; };
    const auto nodes = tree_.nodes();
    const auto boxes = tree_.boxes();
    std::array<std::uint32_t, FaceTree::kMaxDepth + 2> stack;
    std::size_t size = 0;
    stack[size++] = 0;
    while (size != 0) {
        const std::uint32_t index = stack[--size];
        const FaceTree::Node& node = nodes[index];
        if (!is_over(node.box)) continue;
        if (!node.is_leaf()) {
            stack[size++] = node.place;
            stack[size++] = index + 1;
            continue;
        }
        for (std::uint32_t i = node.place; i < node.place + node.count; ++i) {
            if (!is_over(boxes[i])) continue;
            const Piece& piece = pieces_[i];
            if (piece.count > 1 && !is_met_by(piece, x, y)) continue;
            const std::array<Vec3d, 3> p = {to_double(piece.corners[0]),
                                            to_double(piece.corners[1]),
                                            to_double(piece.corners[2])};
            const RowSpan span = row_span(p, y, place);
            if (span.from == span.end) continue;
            const double z = height_at(p, cross(p[1] - p[0], p[2] - p[0]), x, y);
            if (visit(Crossing{z, span.way()})) return true;
        }
    }
    return false;
}

}  // namespace povmesh
