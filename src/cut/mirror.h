// Joins one side of a cut with its mirror image.
#pragma once

#include "cut/plane_frame.h"
#include "cut/plane_split.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// The side of a split model and its image in the plane, with its winding reversed so that it is
/// wound like the side itself. The two have the vertices on the plane in common; faces that lie in
/// the plane are left out. Empty when there is no other face.
TriMesh mirrored(const PlaneSplit& split, const PlaneFrame& frame, PlaneSide side);

}  // namespace povmesh
