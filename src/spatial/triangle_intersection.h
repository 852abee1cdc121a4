// Whether two triangles in space have a point in common, exactly.
#pragma once

#include <array>

#include "base/vec.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// Corner positions, exact for 32-bit floats widened to double (see base/predicates.h).
using Triangle = std::array<Vec3d, 3>;

Triangle triangle_of(const TriMesh& mesh, const Face& face);

bool is_finite(const Triangle& triangle);

/// True when the corners do not lie on one line. They must be finite.
bool has_area(const Triangle& triangle);

/// True when the triangles, taken with their borders, have a point in common: touching at a point,
/// along an edge or within a common plane counts. A triangle without area or with a coordinate that
/// is not finite meets nothing.
///
/// Source: P. Guigue and O. Devillers, Fast and robust triangle-triangle overlap test using
/// orientation predicates, Journal of Graphics Tools 8(1), 2003; triangles in one plane by
/// separating lines.
bool triangles_intersect(const Triangle& a, const Triangle& b);

/// True when two triangles have more in common than the corners at the same positions and the edges
/// between those: for two that share an edge, when one is folded flat onto the other; for two that
/// share a corner, when they have a second point in common; for two without a common corner, when
/// they intersect. Triangles with the same three corners meet nowhere else. Both must be finite and
/// have area.
bool meet_beyond_shared(const Triangle& a, const Triangle& b);

}  // namespace povmesh
