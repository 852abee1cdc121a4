// Faces that lie on one another.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/array.h"
#include "mesh/edge_mates.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// The live faces that hold the same three vertices as a live face of lower number, whatever their
/// winding, in ascending order. Linear time, 4 to 8 bytes a face.
Array<std::uint32_t> find_duplicate_faces(const TriMesh& mesh);

struct RedundantFaces {
    Array<std::uint32_t> faces;  // ascending
    Array<std::uint32_t> walls;  // of those that go with all that lie on them, one each
};

/// The faces to remove so that no two hold the same three vertices and nothing that was closed
/// opens. Of faces on one another
///
/// - none stays where they are a wall without thickness: two bodies that share a side, a fold.
///   Every edge around the wall is then held by an even number of other faces, or none of them is
///   and each face lies back to back with another one; - else one stays, the first of those that
///   have the winding of most.
///
/// n log n in the faces at vertices of such faces; linear otherwise.
RedundantFaces find_redundant_faces(const TriMesh& mesh, const EdgeMates& mates);

}  // namespace povmesh
