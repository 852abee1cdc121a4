// Whether a point lies inside a closed surface.
#pragma once

#include <cstdint>

#include "base/vec.h"
#include "mesh/tri_mesh.h"
#include "spatial/face_tree.h"

namespace povmesh {

enum class PointPlace : std::uint8_t { Inside, Outside, AtCorner, OnSurface };

/// Where a point lies relative to a closed surface, whatever its winding: inside when a ray from it
/// passes an odd number of faces. AtCorner means at the position of a corner of a face.
///
/// @param faces  a tree of the surface's faces, numbered by their index in the mesh; an edge of the
///               surface is held by an even number of them
///
/// @param looked_at  when given, the number of faces that were looked at is added to it
///
/// Exact. Time: logarithmic in the number of faces, plus those that the ray comes near.
PointPlace locate(const TriMesh& mesh, const FaceTree& faces, Vec3f point,
                  std::uint64_t* looked_at = nullptr);

}  // namespace povmesh
