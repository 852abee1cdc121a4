// Puts meshes together.
#pragma once

#include "mesh/tri_mesh.h"

namespace povmesh {

enum class AppendWinding { Kept, Reversed };

/// Appends the faces, vertices and texture coordinates of another mesh, nothing welded. Shells and
/// uses become empty, `parts` stays.
/// Throws std::length_error beyond kMaxFaceCount triangles.
void append_mesh(TriMesh& to, const TriMesh& from, AppendWinding winding = AppendWinding::Kept);

}  // namespace povmesh
