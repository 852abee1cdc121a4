#include "cut/level_frame.h"

#include <algorithm>
#include <utility>

namespace povmesh {
namespace {

// Of unit length; zero when there is none. Scaled first, so that no length over- or underflows.
Vec3d unit(Vec3d v) {
    const double size = std::max({std::abs(v.x), std::abs(v.y), std::abs(v.z)});
    if (!(size > 0)) return {};
    const Vec3d scaled = v / size;
    return scaled / length(scaled);
}

}  // namespace

std::optional<LevelFrame> LevelFrame::make(const CutPlane& plane) {
    if (!is_finite(plane.normal) || !is_finite(plane.direction) || !is_finite(plane.point) ||
        !std::isfinite(plane.offset)) {
        return {};
    }
    const Vec3d normal = unit(plane.normal);
    Vec3d direction = unit(plane.direction);
    if (normal == Vec3d{} || direction == Vec3d{}) return {};
    // Below a billionth of a turn it says nothing any more.
    if (length(cross(normal, direction)) < 1e-9) {
        direction = std::abs(normal.x) < 0.5 ? Vec3d{1, 0, 0} : Vec3d{0, 1, 0};
    }
    LevelFrame frame;
    frame.up_ = normal * -1.0;
    frame.across_ = unit(cross(frame.up_, direction));
    frame.along_ = cross(frame.across_, frame.up_);
    frame.level_ = dot(frame.up_, plane.point) + plane.offset;
    const Vec3d& up = frame.up_;
    const Vec3d size{std::abs(up.x), std::abs(up.y), std::abs(up.z)};
    frame.dropped_ = size.z >= size.x && size.z >= size.y ? 2 : size.y >= size.x ? 1 : 0;
    frame.is_swapped_ = (frame.dropped_ == 0 ? up.x : frame.dropped_ == 1 ? up.y : up.z) < 0;
    return frame;
}

Vec3d LevelFrame::lift(Point2d q) const {
    if (is_swapped_) std::swap(q.x, q.y);
    switch (dropped_) {
        case 0:
            return {(level_ - up_.y * q.x - up_.z * q.y) / up_.x, q.x, q.y};
        case 1:
            return {q.y, (level_ - up_.z * q.x - up_.x * q.y) / up_.y, q.x};
        default:
            return {q.x, q.y, (level_ - up_.x * q.x - up_.y * q.y) / up_.z};
    }
}

}  // namespace povmesh
