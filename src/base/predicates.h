// On which side of a line or a plane a point lies, exactly.
#pragma once

#include <cmath>

#include "base/vec.h"

namespace povmesh {

struct Point2d {
    double x, y;
};

namespace detail {

int orient2d_exact(Point2d a, Point2d b, Point2d c);
int orient3d_exact(Vec3d a, Vec3d b, Vec3d c, Vec3d d);

// Rounding errors of the determinants below, relative to the sum of the magnitudes of their
// products: Shewchuk's bounds for the same order of operations.
constexpr double kRounding = 0x1p-53;
constexpr double kOrient2dError = (3.0 + 16.0 * kRounding) * kRounding;
constexpr double kOrient3dError = (7.0 + 56.0 * kRounding) * kRounding;

}  // namespace detail

/// Sign (-1, 0, 1) of the area of the triangle a, b, c: 1 when the three turn counterclockwise, 0
/// when they lie on one line.
///
/// Both functions here are exact for coordinates that are 0 or between 2^-149 and 2^128 in
/// magnitude, so for every finite 32-bit float: a unit in the last place is then at least 2^-201,
/// every difference, product and error term is a multiple of 2^-603 and below 2^400, and neither
/// underflow nor overflow can touch them.
///
/// Cost: about ten operations when the sign is clear, else sums of up to 16 (orient3d: 192) terms.
///
/// Source: J. R. Shewchuk, Adaptive precision floating-point arithmetic and fast robust geometric
/// predicates, Discrete & Computational Geometry 18, 1997.
inline int orient2d(Point2d a, Point2d b, Point2d c) {
    const double left = (a.x - c.x) * (b.y - c.y);
    const double right = (a.y - c.y) * (b.x - c.x);
    const double det = left - right;
    const double size = std::abs(left) + std::abs(right);
    const double error = detail::kOrient2dError * size;
    if (det > error) return 1;
    if (det < -error) return -1;
    if (size == 0) return 0;
    return detail::orient2d_exact(a, b, c);
}

/// Sign of (b - a) x (c - a) . (d - a): 1 when d lies on the side of the plane a, b, c from which
/// the three turn counterclockwise, 0 when the four lie in one plane.
inline int orient3d(Vec3d a, Vec3d b, Vec3d c, Vec3d d) {
    const Vec3d u = b - a;
    const Vec3d v = c - a;
    const Vec3d w = d - a;
    const double vy_wz = v.y * w.z;
    const double vz_wy = v.z * w.y;
    const double vz_wx = v.z * w.x;
    const double vx_wz = v.x * w.z;
    const double vx_wy = v.x * w.y;
    const double vy_wx = v.y * w.x;
    const double det = u.x * (vy_wz - vz_wy) + u.y * (vz_wx - vx_wz) + u.z * (vx_wy - vy_wx);
    const double size = std::abs(u.x) * (std::abs(vy_wz) + std::abs(vz_wy)) +
                        std::abs(u.y) * (std::abs(vz_wx) + std::abs(vx_wz)) +
                        std::abs(u.z) * (std::abs(vx_wy) + std::abs(vy_wx));
    const double error = detail::kOrient3dError * size;
    if (det > error) return 1;
    if (det < -error) return -1;
    if (size == 0) return 0;  // every product has a factor of 0, as with points in an axis plane
    return detail::orient3d_exact(a, b, c, d);
}

}  // namespace povmesh
