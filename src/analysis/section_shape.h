// What the outline of a cross-section tells about its bending strength.
#pragma once

#include <cstdint>
#include <span>

#include "base/predicates.h"
#include "slice/slices.h"

namespace povmesh {

struct SectionShape {
    double area = 0;
    Point2d centroid{};
    double smallest_moment =
        0;                      // second moment of area about the weakest axis through the centroid
    double largest_moment = 0;  // about the one across it
    Point2d longest{1, 0};      // unit vector along the weakest axis

    /// Bending moment per stress in the most stressed point, for the worst direction of the moment,
    /// length^3; 0 without area.
    double modulus = 0;
};

/// The shape of one part of a slice: its outer loop and its holes. Exact for polygons but for
/// rounding. The modulus takes both principal axes into account, so that it changes little when the
/// shape does: an exact square and one whose sides differ a little are alike.
///
/// Source: second moments by Green's theorem, principal axes after O. Mohr, unsymmetric bending.
SectionShape section_shape(const SliceLoops& loops, std::span<const std::uint32_t> part);

}  // namespace povmesh
