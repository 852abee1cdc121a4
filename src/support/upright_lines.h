// Where single upright lines pass through the surface of a mesh.
#pragma once

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>

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
/// Building is that of a tree over the faces; a line takes time of the faces above and below it and
/// the logarithm of all. Lines may be asked for at the same time.
class UprightLines {
public:
    /// @param mesh  outlives the lines
    explicit UprightLines(const TriMesh& mesh);

    /// Calls visit(z, way, face) for each face that the line passes, in no order.
    template <typename Visit>
    void for_each(double x, double y, Visit&& visit) const {
        constexpr double kEnd = std::numeric_limits<float>::max();
        for_each(x, y, -kEnd, kEnd, visit);
    }
    /// The same for a stretch of the line; faces that only reach into its heights may come, too.
    template <typename Visit>
    void for_each(double x, double y, double low, double high, Visit&& visit) const {
        constexpr float kInfinity = std::numeric_limits<float>::infinity();
        const auto place = [x](double edge_x) { return edge_x <= x ? 0U : 1U; };
        const auto floats = [](double v) {
            return std::array{std::nextafter(narrow_to_float(v), -kInfinity),
                              std::nextafter(narrow_to_float(v), kInfinity)};
        };
        const auto [low_x, high_x] = floats(x);
        const auto [low_y, high_y] = floats(y);
        const Box3f line{{low_x, low_y, floats(low)[0]}, {high_x, high_y, floats(high)[1]}};
        tree_.visit_overlapping(line, [&](std::uint32_t face) {
            const std::array<Vec3d, 3> p = corners(face);
            const RowSpan span = row_span(p, y, place);
            if (span.from == span.end) return false;
            visit(height_at(p, cross(p[1] - p[0], p[2] - p[0]), x, y), span.way(), face);
            return false;
        });
    }

    /// What lies below a place of a line.
    struct Below {
        double floor;     // height of the next surface, or -infinity
        bool is_outside;  // just below the place; also where holes leave that open
    };
    Below look_down(Vec3d from) const;

    /// True when no surface crosses the line from `low` to `high` and that stretch lies outside.
    bool is_free(double x, double y, double low, double high) const;

private:
    std::array<Vec3d, 3> corners(std::uint32_t face) const;

    const TriMesh& mesh_;
    FaceTree tree_;
};

}  // namespace povmesh
