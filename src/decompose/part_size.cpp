#include "decompose/part_size.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "base/convert.h"

namespace povmesh {
namespace {

constexpr std::int64_t kMostSlabs = std::int64_t{1} << 31;

}  // namespace

PartSize::PartSize(Vec3d size) : smallest_(std::numeric_limits<double>::infinity()) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const double wanted = along(size, axis);
        const bool is_limit = std::isfinite(wanted) && wanted > 0;
        limits_[axis] =
            is_limit ? wanted * (1 + kTolerance) : std::numeric_limits<double>::infinity();
        if (is_limit) smallest_ = std::min(smallest_, wanted);
    }
}

bool PartSize::fits(const Box3d& box) const {
    const Vec3d extent = box.extent();
    return extent.x <= limits_[0] && extent.y <= limits_[1] && extent.z <= limits_[2];
}

std::int64_t PartSize::slabs(double extent, std::size_t axis) const {
    const double count = std::ceil(extent / limits_[axis]);
    if (!(count > 1)) return 1;
    return std::min(saturate_to<std::int64_t>(count), kMostSlabs);
}

}  // namespace povmesh
