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
    double fibre = 0;           // distance of the outermost point from the weakest axis

    /// Bending moment per stress in the outermost fibre, length^3; 0 without area.
    double modulus() const { return fibre > 0 ? smallest_moment / fibre : 0.0; }
};

/// The shape of one part of a slice: its outer loop and its holes. Exact for polygons but for
/// rounding. Where all axes are as weak as one another, as in a square or a circle, the fibre
/// farthest from the centroid counts.
///
/// Source: second moments by Green's theorem, principal axes after O. Mohr.
SectionShape section_shape(const SliceLoops& loops, std::span<const std::uint32_t> part);

}  // namespace povmesh
