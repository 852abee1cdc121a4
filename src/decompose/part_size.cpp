#include "decompose/part_size.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "base/convert.h"

namespace povmesh {
namespace {

constexpr std::int64_t kMostSlabs = std::int64_t{1} << 31;

}  // namespace

PartSize::PartSize(Vec3d size, bool may_turn) : smallest_(std::numeric_limits<double>::infinity()) {
    Limits given{};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const double wanted = along(size, axis);
        const bool is_limit = std::isfinite(wanted) && wanted > 0;
        given[axis] =
            is_limit ? wanted * (1 + kTolerance) : std::numeric_limits<double>::infinity();
        if (is_limit) smallest_ = std::min(smallest_, wanted);
    }
    limits_.push_back(given);
    if (!may_turn) return;
    Limits turned = given;
    std::sort(turned.begin(), turned.end());
    do {
        if (turned != given) limits_.push_back(turned);
    } while (std::next_permutation(turned.begin(), turned.end()));
}

const Limits& PartSize::best_limits(const Vec3d& extent) const {
    const auto cells = [&](const Limits& limits) {
        double product = 1;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            product *= static_cast<double>(slab_count(along(extent, axis), limits[axis]));
        }
        return product;
    };
    return *std::min_element(limits_.begin(), limits_.end(),
                             [&](const Limits& a, const Limits& b) { return cells(a) < cells(b); });
}

bool PartSize::fits(const Vec3d& extent) const {
    return std::any_of(limits_.begin(), limits_.end(), [&](const Limits& limits) {
        return extent.x <= limits[0] && extent.y <= limits[1] && extent.z <= limits[2];
    });
}

std::int64_t slab_count(double extent, double limit) {
    const double count = std::ceil(extent / limit);
    if (!(count > 1)) return 1;
    return std::min(saturate_to<std::int64_t>(count), kMostSlabs);
}

}  // namespace povmesh
