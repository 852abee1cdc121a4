// Rebuilds a mesh from its live faces.
#pragma once

#include "mesh/tri_mesh.h"

namespace povmesh {

/// What becomes of texture coordinates: a soup has them in 32-bit floats, a file may hold more, and
/// faces of it may have a label without any.
enum class TextureDigits { AsInASoup, All, AllThatAreThere };

/// Removes deleted faces and unused vertices, renumbers both densely in face order, and welds
/// vertices at the same place by the rule of `build_f`; the result is that of passing the live
/// faces through a soup and `build_f`. Texture coordinates are rounded to 32-bit floats on the way
/// unless all digits are asked for. A mesh without live faces stays as it is.
///
/// A face with a vertex index outside the vertex array is left out; a texture index outside its
/// array counts as (0, 0), except that with `AllThatAreThere` a face that has none at all stays
/// without. Shells and uses become empty, `parts` stays.
///
/// Time: linear.
void compact(TriMesh& mesh, TextureDigits digits = TextureDigits::AsInASoup);

}  // namespace povmesh
