// Cuts polygons into triangles.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/predicates.h"
#include "base/vec.h"

namespace povmesh {

/// Leaves out the corners of a polygon that lie within 1e-6, in every coordinate, of the last one
/// kept; `points` and `corners` go side by side.
template <typename Corner>
void leave_out_repeated(std::vector<Vec3d>& points, std::vector<Corner>& corners) {
    constexpr double kSamePoint = 1e-6;
    std::size_t kept = 0;
    for (std::size_t i = 0; i < points.size(); ++i) {
        const Vec3d p = points[i];
        if (kept > 0) {
            const Vec3d q = points[kept - 1];
            if (std::abs(p.x - q.x) <= kSamePoint && std::abs(p.y - q.y) <= kSamePoint &&
                std::abs(p.z - q.z) <= kSamePoint) {
                continue;
            }
        }
        points[kept] = p;
        corners[kept++] = corners[i];
    }
    points.resize(kept);
    corners.resize(kept);
}

/// Cuts the polygons of a model file into triangles; reused from one to the next, so that the small
/// ones cost no allocation.
///
/// Ears are clipped in the plane of the polygon's Newell normal, seen along its largest axis. A
/// simple polygon, convex or not, flat or slightly warped, keeps its area, whatever corners lie in
/// line on its sides; one that meets itself gets some triangulation of all its corners. One without
/// area becomes a fan.
///
/// About n log n for usual polygons: only corners that are not convex can lie in an ear, and a grid
/// over them says which ones come into question.
class PolygonTriangulator {
public:
    using Triangle = std::array<std::uint32_t, 3>;  // corners, in the winding of the polygon

    /// Corners looked at for the last polygon.
    std::size_t work() const { return work_; }

    /// @param points  the corners in order, three or more
    /// @return  n - 2 triangles; valid until the next call
    std::span<const Triangle> triangulate(std::span<const Vec3d> points);

private:
    bool project(std::span<const Vec3d> points);
    void fan(std::size_t corner_count);
    void clip_ears();
    void make_ring();
    void make_grid();
    int turn(std::uint32_t a, std::uint32_t b, std::uint32_t c) const;
    bool is_convex(std::uint32_t corner) const;
    bool is_ear(std::uint32_t corner);
    bool blocks(std::uint32_t corner, std::uint32_t a, std::uint32_t b, std::uint32_t c);
    void clip(std::uint32_t corner);
    bool clip_queued();
    void clip_blindly();
    std::uint32_t least_bad_corner() const;
    std::size_t column(double x) const;
    std::size_t row(double y) const;

    std::vector<Point2d> points_;
    std::vector<std::uint32_t> next_;
    std::vector<std::uint32_t> previous_;
    std::vector<std::uint8_t> is_clipped_;
    std::vector<std::uint8_t> may_block_;  // not convex when the grid was made, and still not
    std::vector<std::uint32_t> queue_;
    std::vector<Triangle> triangles_;
    std::size_t corners_left_ = 0;
    std::uint32_t some_corner_ = 0;  // one that is not clipped
    std::size_t work_ = 0;           // corners looked at
    std::size_t work_limit_ = 0;

    // Grid over the corners that may block: cell c holds those from items[starts[c]] on, up to
    // items[starts[c + 1]].
    std::size_t grid_size_ = 0;
    Point2d grid_low_{};
    Point2d cells_per_unit_{};
    std::vector<std::uint32_t> grid_starts_;
    std::vector<std::uint32_t> grid_items_;
};

}  // namespace povmesh
