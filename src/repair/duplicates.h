// Faces that lie on one another.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/array.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// The live faces that hold the same three vertices as a live face of lower number, whatever their
/// winding, in ascending order. Linear time, 4 to 8 bytes a face.
Array<std::uint32_t> find_duplicate_faces(const TriMesh& mesh);

}  // namespace povmesh
