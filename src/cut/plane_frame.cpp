#include "cut/plane_frame.h"

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

std::optional<PlaneFrame> PlaneFrame::make(const CutPlane& plane) {
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
    PlaneFrame frame;
    frame.normal_ = normal;
    frame.across_ = unit(cross(direction, normal));
    frame.along_ = cross(normal, frame.across_);
    frame.distance_ = dot(normal, plane.point) + plane.offset;
    const Vec3d size{std::abs(normal.x), std::abs(normal.y), std::abs(normal.z)};
    frame.dropped_ = size.z >= size.x && size.z >= size.y ? 2 : size.y >= size.x ? 1 : 0;
    frame.is_swapped_ = (frame.dropped_ == 0   ? normal.x
                         : frame.dropped_ == 1 ? normal.y
                                               : normal.z) > 0;
    return frame;
}

Vec3d PlaneFrame::lift(Point2d q) const {
    if (is_swapped_) std::swap(q.x, q.y);
    switch (dropped_) {
        case 0:
            return {(distance_ - normal_.y * q.x - normal_.z * q.y) / normal_.x, q.x, q.y};
        case 1:
            return {q.y, (distance_ - normal_.z * q.x - normal_.x * q.y) / normal_.y, q.x};
        default:
            return {q.x, q.y, (distance_ - normal_.x * q.x - normal_.y * q.y) / normal_.z};
    }
}

}  // namespace povmesh
