// Ear clipping (G. H. Meisters, Polygons have ears, 1975): a convex corner whose triangle holds no
// other corner is cut off, until three are left. Only reflex corners can lie in an ear, so that
// these alone stand in a grid, and an ear asks the cells that its box covers. All signs are exact.
#include "io/polygon.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "base/convert.h"

namespace povmesh {
namespace {

// A simple polygon always has an ear, so the search is for a polygon that meets itself once it
// finds none; from there on it may look at so many more corners for each corner of the polygon, and
// at some more for small ones.
constexpr std::size_t kWorkAfterMeeting = 128;
constexpr std::size_t kWorkOfSmallOnes = 50'000;

// Up to this many blocking corners are looked at one by one, without a grid.
constexpr std::size_t kFewBlocking = 24;

Vec3d newell_normal(std::span<const Vec3d> points) {
    Vec3d normal;
    for (std::size_t i = 0; i < points.size(); ++i) {
        // Relative to the first corner, so that a small polygon far from the origin keeps its
        // digits.
        const Vec3d a = points[i] - points[0];
        const Vec3d b = points[(i + 1) % points.size()] - points[0];
        normal = normal + cross(a, b);
    }
    return normal;
}

}  // namespace

std::span<const PolygonTriangulator::Triangle> PolygonTriangulator::triangulate(
    std::span<const Vec3d> points) {
    triangles_.clear();
    if (points.size() < 3) return triangles_;
    triangles_.reserve(points.size() - 2);
    if (points.size() == 3 || !project(points)) {
        fan(points.size());
    } else {
        clip_ears();
    }
    return triangles_;
}

void PolygonTriangulator::fan(std::size_t corner_count) {
    for (std::uint32_t i = 1; i + 1 < corner_count; ++i) triangles_.push_back({0, i, i + 1});
}

// Drops the axis along which the normal is longest, which loses no digits, and mirrors where needed
// so that the polygon runs counter-clockwise. False when it has no area.
bool PolygonTriangulator::project(std::span<const Vec3d> points) {
    const Vec3d normal = newell_normal(points);
    const Vec3d size{std::abs(normal.x), std::abs(normal.y), std::abs(normal.z)};
    const double largest = std::max({size.x, size.y, size.z});
    if (!(largest > 0) || !std::isfinite(largest)) return false;
    points_.resize(points.size());
    for (std::size_t i = 0; i < points.size(); ++i) {
        const Vec3d& p = points[i];
        Point2d q = size.z == largest   ? Point2d{p.x, p.y}
                    : size.x == largest ? Point2d{p.y, p.z}
                                        : Point2d{p.z, p.x};
        const double along = size.z == largest ? normal.z : size.x == largest ? normal.x : normal.y;
        if (along < 0) std::swap(q.x, q.y);
        points_[i] = q;
    }
    return true;
}

void PolygonTriangulator::make_ring() {
    const auto n = static_cast<std::uint32_t>(points_.size());
    next_.resize(n);
    previous_.resize(n);
    for (std::uint32_t i = 0; i < n; ++i) {
        next_[i] = i + 1 == n ? 0 : i + 1;
        previous_[i] = i == 0 ? n - 1 : i - 1;
    }
    is_clipped_.assign(n, 0);
    may_block_.resize(n);
    for (std::uint32_t i = 0; i < n; ++i) may_block_[i] = is_convex(i) ? 0 : 1;
    corners_left_ = n;
    some_corner_ = 0;
}

void PolygonTriangulator::make_grid() {
    grid_items_.clear();
    Point2d high{};
    for (std::uint32_t i = 0; i < points_.size(); ++i) {
        if (may_block_[i] == 0) continue;
        const Point2d& p = points_[i];
        if (grid_items_.empty()) grid_low_ = high = p;
        grid_low_ = {std::min(grid_low_.x, p.x), std::min(grid_low_.y, p.y)};
        high = {std::max(high.x, p.x), std::max(high.y, p.y)};
        grid_items_.push_back(i);
    }
    grid_size_ = 0;
    if (grid_items_.size() <= kFewBlocking) return;
    grid_size_ = static_cast<std::size_t>(std::sqrt(static_cast<double>(grid_items_.size())));
    const auto scale = [&](double low, double top) {
        return top > low ? static_cast<double>(grid_size_) / (top - low) : 0.0;
    };
    cells_per_unit_ = {scale(grid_low_.x, high.x), scale(grid_low_.y, high.y)};

    const auto cell = [&](std::uint32_t i) {
        return row(points_[i].y) * grid_size_ + column(points_[i].x);
    };
    std::vector<std::uint32_t> unsorted;
    unsorted.swap(grid_items_);
    grid_starts_.assign(grid_size_ * grid_size_ + 2, 0);
    for (const std::uint32_t i : unsorted) ++grid_starts_[cell(i) + 2];
    for (std::size_t c = 2; c < grid_starts_.size(); ++c) grid_starts_[c] += grid_starts_[c - 1];
    grid_items_.resize(unsorted.size());
    for (const std::uint32_t i : unsorted) grid_items_[grid_starts_[cell(i) + 1]++] = i;
}

std::size_t PolygonTriangulator::column(double x) const {
    const auto c = saturate_to<std::int64_t>((x - grid_low_.x) * cells_per_unit_.x);
    return static_cast<std::size_t>(
        std::clamp<std::int64_t>(c, 0, static_cast<std::int64_t>(grid_size_) - 1));
}

std::size_t PolygonTriangulator::row(double y) const {
    const auto r = saturate_to<std::int64_t>((y - grid_low_.y) * cells_per_unit_.y);
    return static_cast<std::size_t>(
        std::clamp<std::int64_t>(r, 0, static_cast<std::int64_t>(grid_size_) - 1));
}

// 1 for a left turn, exactly.
int PolygonTriangulator::turn(std::uint32_t a, std::uint32_t b, std::uint32_t c) const {
    return orient2d(points_[a], points_[b], points_[c]);
}

bool PolygonTriangulator::is_convex(std::uint32_t corner) const {
    return turn(previous_[corner], corner, next_[corner]) > 0;
}

// Whether a corner keeps the triangle a, b, c from being an ear: it lies in it or on its border,
// and is not the same point as one of its corners (where an outline is led to a hole and back, two
// corners are).
bool PolygonTriangulator::blocks(std::uint32_t corner, std::uint32_t a, std::uint32_t b,
                                 std::uint32_t c) {
    ++work_;
    if (may_block_[corner] == 0 || corner == a || corner == b || corner == c) return false;
    const Point2d& p = points_[corner];
    for (const std::uint32_t other : {a, b, c}) {
        if (p.x == points_[other].x && p.y == points_[other].y) return false;
    }
    return turn(a, b, corner) >= 0 && turn(b, c, corner) >= 0 && turn(c, a, corner) >= 0;
}

bool PolygonTriangulator::is_ear(std::uint32_t corner) {
    ++work_;
    const std::uint32_t a = previous_[corner];
    const std::uint32_t b = corner;
    const std::uint32_t c = next_[corner];
    if (!(turn(a, b, c) > 0)) return false;
    if (grid_size_ == 0) {
        return std::none_of(grid_items_.begin(), grid_items_.end(),
                            [&](std::uint32_t other) { return blocks(other, a, b, c); });
    }
    const auto [low_x, high_x] = std::minmax({points_[a].x, points_[b].x, points_[c].x});
    const auto [low_y, high_y] = std::minmax({points_[a].y, points_[b].y, points_[c].y});
    const std::size_t last_row = row(high_y);
    const std::size_t last_column = column(high_x);
    for (std::size_t y = row(low_y); y <= last_row; ++y) {
        const std::size_t begin = grid_starts_[y * grid_size_ + column(low_x)];
        const std::size_t end = grid_starts_[y * grid_size_ + last_column + 1];
        for (std::size_t i = begin; i < end; ++i) {
            if (blocks(grid_items_[i], a, b, c)) return false;
        }
    }
    return true;
}

void PolygonTriangulator::clip(std::uint32_t corner) {
    const std::uint32_t before = previous_[corner];
    const std::uint32_t after = next_[corner];
    triangles_.push_back({before, corner, after});
    is_clipped_[corner] = 1;
    may_block_[corner] = 0;
    next_[before] = after;
    previous_[after] = before;
    some_corner_ = after;
    --corners_left_;
    for (const std::uint32_t neighbour : {before, after}) {
        if (may_block_[neighbour] != 0 && is_convex(neighbour)) may_block_[neighbour] = 0;
        queue_.push_back(neighbour);
    }
}

// Clips ears in the order of the queue, to which the neighbours of a clipped corner are added;
// going round the polygon in that way makes no long fans. True when any was clipped.
bool PolygonTriangulator::clip_queued() {
    const std::size_t before = corners_left_;
    for (std::size_t i = 0; i < queue_.size() && corners_left_ > 3 && work_ < work_limit_; ++i) {
        const std::uint32_t corner = queue_[i];
        if (is_clipped_[corner] == 0 && is_ear(corner)) {
            clip(corner);
        }
    }
    return corners_left_ < before;
}

// Where no corner is an ear, the polygon meets itself or what is left has no area: the first convex
// corner, else the first one.
std::uint32_t PolygonTriangulator::least_bad_corner() const {
    std::uint32_t corner = some_corner_;
    for (std::size_t i = 0; i < corners_left_; ++i) {
        if (is_convex(corner)) return corner;
        corner = next_[corner];
    }
    return some_corner_;
}

// Cuts off what is left without a look at other corners: convex corners while there are any within
// a turn, then the rest as a fan.
void PolygonTriangulator::clip_blindly() {
    std::uint32_t corner = some_corner_;
    for (std::size_t in_vain = 0; corners_left_ > 3;) {
        if (in_vain <= corners_left_ && !is_convex(corner)) {
            corner = next_[corner];
            ++in_vain;
            continue;
        }
        const std::uint32_t before = previous_[corner];
        clip(corner);
        if (in_vain <= corners_left_ + 1) in_vain = 0;
        corner = before;
    }
}

void PolygonTriangulator::clip_ears() {
    make_ring();
    make_grid();
    work_ = 0;
    work_limit_ = std::numeric_limits<std::size_t>::max();
    while (corners_left_ > 3 && work_ < work_limit_) {
        queue_.clear();
        std::uint32_t corner = some_corner_;
        for (std::size_t i = 0; i < corners_left_; ++i) {
            queue_.push_back(corner);
            corner = next_[corner];
        }
        if (clip_queued() || work_ >= work_limit_) continue;
        work_limit_ =
            std::min(work_limit_, work_ + kWorkAfterMeeting * points_.size() + kWorkOfSmallOnes);
        work_ += corners_left_;
        clip(least_bad_corner());
    }
    clip_blindly();
    triangles_.push_back({previous_[some_corner_], some_corner_, next_[some_corner_]});
}

}  // namespace povmesh
