// Copies of meshes of any size.
#pragma once

#include "base/poll.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// `to = from`. Looks on the way whether the call is to end: a million triangles take tens of
/// milliseconds, most of them for pages that are new.
inline void copy_mesh(const TriMesh& from, TriMesh& to) {
    polled_copy(from.faces, to.faces);
    polled_copy(from.vertices, to.vertices);
    polled_copy(from.texture_coordinates, to.texture_coordinates);
    polled_copy(from.use_table.offsets, to.use_table.offsets);
    polled_copy(from.use_table.uses, to.use_table.uses);
    to.shells = from.shells;
    to.parts = from.parts;
}

inline TriMesh copy_mesh(const TriMesh& mesh) {
    TriMesh copy;
    copy_mesh(mesh, copy);
    return copy;
}

}  // namespace povmesh
