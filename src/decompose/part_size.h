// What a printer has room for.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/vec.h"

namespace povmesh {

/// The largest extents of a part along x, y and z; infinite where there is no limit.
using Limits = std::array<double, 3>;

/// The largest part, axis by axis: sizes that are 0, negative or no finite number set no limit.
class PartSize {
public:
    /// A part may be larger than asked for by this share: rounding and the distance within which
    /// vertices count as lying on a cut must not call for another part.
    static constexpr double kTolerance = 5e-5;

    /// @param may_turn  a part may lie on any of its sides, as long as those stay along the axes
    explicit PartSize(Vec3d size, bool may_turn = false);

    /// With the tolerance; as given first, and then every other order of them if parts may be
    /// turned.
    const std::vector<Limits>& limits() const { return limits_; }

    /// Those that divide an extent into the fewest slab cells; of equal ones the first.
    const Limits& best_limits(const Vec3d& extent) const;

    /// The smallest size asked for; infinite when there is no limit.
    double smallest() const { return smallest_; }

    bool fits(const Vec3d& extent) const;
    bool fits(const Box3d& box) const { return fits(box.extent()); }

private:
    std::vector<Limits> limits_;
    double smallest_;
};

/// Into how many equal slabs an extent has to be divided; more than 2^31 counts as 2^31.
std::int64_t slab_count(double extent, double limit);

/// A coordinate by the number of its axis.
inline double along(const Vec3d& v, std::size_t axis) {
    return axis == 0 ? v.x : axis == 1 ? v.y : v.z;
}

/// A vector along an axis.
inline Vec3d along_axis(std::size_t axis, double length) {
    return {axis == 0 ? length : 0, axis == 1 ? length : 0, axis == 2 ? length : 0};
}

}  // namespace povmesh
