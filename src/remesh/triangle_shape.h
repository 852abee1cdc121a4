// Which triangles are of bad shape, and how bad.
#pragma once

#include <array>
#include <cstddef>

#include "base/vec.h"

namespace povmesh {

struct TriangleShape {
    bool is_needle = false;  // one edge is shorter than 1/20 of both others
    bool is_cap = false;     // an angle is above 170 degrees
    bool is_sliver =
        false;  // an angle is below 0.06 degrees; such a triangle is needle or cap, too

    bool is_bad() const { return is_needle || is_cap; }
};

/// A triangle with a corner that is not finite is not bad.
///
/// The limit for slivers lies a little above the 0.05 degrees from which on a face counts as
/// degenerate, so that rounding leaves none of these among the others.
TriangleShape shape_of(const std::array<Vec3d, 3>& corners);

}  // namespace povmesh
