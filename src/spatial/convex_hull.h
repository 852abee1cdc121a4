// The smallest convex solid around a set of points.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "base/array.h"
#include "base/predicates.h"
#include "base/vec.h"

namespace povmesh {

/// The convex hull of points, by their numbers in the set.
///
/// | dimension | the points                   | vertices                       | triangles        |
/// |-----------|------------------------------|--------------------------------|------------------|
/// | -1        | none that is finite          | none                           | none             |
/// | 0         | all in one place             | one of them                    | none             |
/// | 1         | on one line                  | its two ends                   | none             |
/// | 2         | in one plane                 | the corners of the polygon, in | none             |
/// |           |                              | the order of its outline       |                  |
/// | 3         | a solid                      | those of the triangles,        | closed, manifold |
/// |           |                              | ascending                      | wound outward    |
///
/// No point lies outside: of every triangle all points are on its plane or below it, exactly; with
/// a tolerance, at most that far above it. No triangle is degenerate. Flat sides of more than three corners are several triangles in one
/// plane, and may have vertices that are no corners.
struct ConvexHull {
    int dimension = -1;
    Array<std::uint32_t> vertices;
    Array<std::array<std::uint32_t, 3>> triangles;
};

/// @param points     any number; those that are not finite take no part
/// @param tolerance  0 or more, in the unit of the points. Of hulls that would have more than
///                   20,000 triangles points that are not farther outside than this may be left
///                   out, so that one of a ball or a cylinder, all points of which are corners, is
///                   of the size that the shape needs
///
/// The result is the same bits for any number of threads, and does not depend on the unit of the
/// points. Time O(n log n) for points as models have them; 4 bytes a point and 150 a facet made.
///
/// Source: C. B. Barber, D. P. Dobkin, H. Huhdanpaa, The quickhull algorithm for convex hulls, ACM
/// TOMS 22(4), 1996; with exact signs of volumes in place of thick facets.
ConvexHull convex_hull(std::span<const Vec3f> points, double tolerance = 0);

/// The corners of the convex polygon around points of a plane, by their numbers, counterclockwise
/// from the leftmost (of several the lowest). No three are on one line, decided exactly; points on
/// one line give its two ends, points in one place that place once or twice.
///
/// @param points  finite ones
///
/// Time O(n log n). Source: A. M. Andrew, Another efficient algorithm for convex hulls in two
/// dimensions, Information Processing Letters 9(5), 1979.
Array<std::uint32_t> convex_outline(std::span<const Point2d> points);

}  // namespace povmesh
