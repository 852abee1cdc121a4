// Where the merged vertex of a collapsed edge goes.
#pragma once

#include "remesh/quadric.h"

namespace povmesh {

/// The place of least error near the middle of an edge; the middle itself where the quadric is too
/// flat to tell, or puts it more than two edge lengths away.
Vec3d best_place(const PositionQuadric& q, Vec3d middle, double squared_edge);

/// The error over the position alone when the attributes are always the best ones there.
PositionQuadric without_attributes(const AttributeQuadric& q);

/// The attributes of least error at a position.
Attributes best_attributes(const AttributeQuadric& q, Vec3d p);

/// The error over the position alone when the attributes are these.
PositionQuadric with_attributes(const AttributeQuadric& q, const Attributes& s);

}  // namespace povmesh
