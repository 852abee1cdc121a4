// What a printer has room for.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "base/vec.h"

namespace povmesh {

/// The largest part, axis by axis: sizes that are 0, negative or no finite number set no limit.
class PartSize {
public:
    /// A part may be larger than asked for by this share: rounding and the distance within which
    /// vertices count as lying on a cut must not call for another part.
    static constexpr double kTolerance = 5e-5;

    explicit PartSize(Vec3d size);

    /// The limit of an axis with the tolerance; infinite when there is none.
    double limit(std::size_t axis) const { return limits_[axis]; }

    /// The smallest size asked for; infinite when there is no limit.
    double smallest() const { return smallest_; }

    bool fits(const Box3d& box) const;

    /// Into how many equal slabs an extent has to be divided; more than 2^31 counts as 2^31.
    std::int64_t slabs(double extent, std::size_t axis) const;

private:
    std::array<double, 3> limits_;
    double smallest_;
};

/// A coordinate by the number of its axis.
inline double along(const Vec3d& v, std::size_t axis) {
    return axis == 0 ? v.x : axis == 1 ? v.y : v.z;
}

}  // namespace povmesh
