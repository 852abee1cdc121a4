// The volume and the surface area of a mesh.
#pragma once

#include "mesh/tri_mesh.h"

namespace povmesh {

/// Enclosed volume in cubic model units: the sum of the signed tetrahedra between each live face
/// and (0, 0, lowest z of all vertices), in double, in face order. An inside-out mesh, or an open
/// one whose sum is not positive, has the volume 0. Holds for a closed mesh; for an open one it is
/// what the sum gives.
double volume(const TriMesh& mesh);

/// The same sum with its sign: negative for a mesh that is wound inward.
double signed_volume(const TriMesh& mesh);

/// Area of a face in square model units.
double face_area(const TriMesh& mesh, const Face& face);

/// Area of the live faces in square model units, in double.
double surface_area(const TriMesh& mesh);

}  // namespace povmesh
