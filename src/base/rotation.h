// Rotations by unit quaternions.
#pragma once

#include <cmath>
#include <numbers>

#include "base/vec.h"

namespace povmesh {

/// A rotation about an axis through the origin.
class Rotation {
public:
    /// @param axis     of unit length
    /// @param degrees  counter-clockwise, seen against the axis
    Rotation(Vec3d axis, double degrees) {
        const double half = degrees * std::numbers::pi / 360.0;
        w_ = std::cos(half);
        v_ = axis * std::sin(half);
    }

    Vec3d apply(Vec3d p) const {
        const Vec3d t = cross(v_, p) * 2.0;
        return p + t * w_ + cross(v_, t);
    }

    /// In double, rounded to floats.
    Vec3f apply(Vec3f p) const {
        const Vec3d q = apply(to_double(p));
        return {static_cast<float>(q.x), static_cast<float>(q.y), static_cast<float>(q.z)};
    }

private:
    double w_;
    Vec3d v_;
};

}  // namespace povmesh
