// The vertex of a cell, from the points where a surface passes the cell's edges.
#pragma once

#include <span>

#include "base/vec.h"

namespace povmesh {

/// Where a surface passes an edge, as a share of it, and its normal there: 0 where none is known.
struct EdgePoint {
    float place = 0.5F;
    Vec3f normal;
};

/// The same within a cell that reaches from 0 to 1.
struct CellPoint {
    Vec3d place;
    Vec3d normal;
};

Vec3d mean_of(std::span<const CellPoint> points);

/// True when all normals are known and within an angle of their mean.
bool is_smooth(std::span<const CellPoint> points, double cosine);

/// The point with the least sum of squared distances to the planes through the points; of several,
/// that nearest to the mean of the points. Directions in which the planes hardly differ do not
/// count (S. Schaefer, T. Ju, J. Warren, Manifold dual contouring, IEEE Transactions on
/// Visualization and Computer Graphics 13(3), 2007).
Vec3d dual_vertex(std::span<const CellPoint> points);

/// Kept off the sides of the cell by a margin, so that no two vertices coincide.
Vec3d clamped_to_cell(Vec3d place, double margin);

}  // namespace povmesh
