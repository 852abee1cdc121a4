#include "remesh/triangle_shape.h"

#include <algorithm>

namespace povmesh {
namespace {

constexpr double kNeedleRatio = 20;
constexpr double kCapCosine = -0.98480775301220806;  // of 170 degrees
constexpr double kSliverSine = 0.0010471973598;      // of 0.06 degrees

}  // namespace

TriangleShape shape_of(const std::array<Vec3d, 3>& corners) {
    const Vec3d ab = corners[1] - corners[0];
    const Vec3d bc = corners[2] - corners[1];
    const Vec3d ca = corners[0] - corners[2];
    std::array<double, 3> squares = {dot(ab, ab), dot(bc, bc), dot(ca, ca)};
    const double sum = squares[0] + squares[1] + squares[2];
    if (!std::isfinite(sum)) return {};
    std::sort(squares.begin(), squares.end());
    const auto [a, b, c] = squares;
    const Vec3d normal = cross(ab, bc);
    TriangleShape shape;
    shape.is_needle = a == 0 || kNeedleRatio * kNeedleRatio * a < b;
    // At the corner opposite the longest edge. The dot product of the two others, not a + b - c,
    // which is rounded to the size of c.
    const double widest = c == dot(ab, ab)   ? dot(bc, ca)
                          : c == dot(bc, bc) ? dot(ca, ab)
                                             : dot(ab, bc);
    shape.is_cap = -widest < kCapCosine * std::sqrt(a * b);
    shape.is_sliver = a == 0 || dot(normal, normal) < kSliverSine * kSliverSine * b * c;
    return shape;
}

}  // namespace povmesh
