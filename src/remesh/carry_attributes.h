// Gives a new surface the colours, labels and texture coordinates of an old one.
#pragma once

#include <cstddef>

#include "mesh/tri_mesh.h"
#include "spatial/nearest_face.h"

namespace povmesh {

/// Fills labels, colours and texture coordinates of the faces of `to`, which have none, from the
/// nearest points of `from`. A face takes the label under its middle. Its corners are looked up a
/// little inside of it, so that they fall on its own side of a seam.
///
/// @param tree  of `from`; null: it is built if it is needed
void carry_attributes(const TriMesh& from, const NearestFace* tree, TriMesh& to);

/// Gives the faces of `to` from `first` on the colours of the nearest points of `from`, if that has
/// any but white; labels and texture coordinates stay as they are.
void carry_colours(const TriMesh& from, TriMesh& to, std::size_t first = 0);

}  // namespace povmesh
