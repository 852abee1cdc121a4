// Where a changed surface crosses itself and the original does not.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "base/vec.h"
#include "mesh/tri_mesh.h"
#include "spatial/face_tree.h"
#include "spatial/nearest_face.h"

namespace povmesh {

struct CrossingPlace {
    Triangle3d first, second;  // two faces that cross, or touch
    Box3d common;              // where they can meet
};

/// The pairs of faces that cross but where the original does, by the grid that tells for all
/// operations what is new.
///
/// @param changed  by face of `made`: not 0 for those that are looked at, with what they meet;
///                 where none are marked nothing is found; empty: all
std::vector<CrossingPlace> new_crossing_places(const TriMesh& original, const TriMesh& made,
                                               std::span<const std::uint8_t> changed);

/// The box in floats, rounded outward.
Box3f outward(const Box3d& box);

inline Box3d grown(const Box3d& box, double by) {
    return {box.low - Vec3d{by, by, by}, box.high + Vec3d{by, by, by}};
}

inline bool overlaps(const FaceTree& tree, const Box3f& box) {
    return tree.visit_overlapping(box, [](std::uint32_t /*i*/) { return true; });
}

/// The faces of a mesh whose boxes overlap an entry of a tree; it keeps all the vertices.
TriMesh faces_near(const TriMesh& mesh, const FaceTree& tree);

/// A tree over the faces marked in `takes`.
FaceTree tree_of_faces(const TriMesh& mesh, std::span<const std::uint8_t> takes);

}  // namespace povmesh
