// What is never written: a model that is empty or reaches beyond all numbers.
#pragma once

#include <string>

#include "mesh/tri_mesh.h"

namespace povmesh {

/// Why a mesh is not to be written, without the file: no triangle is left, or one has a corner that
/// is infinite or no number. Empty when it is fit to be.
///
/// @param was_finite  whether the model that it was made of had none of these
std::string refusal(const TriMesh& mesh, bool was_finite);

/// True when all corners of live faces are finite.
bool has_finite_corners(const TriMesh& mesh);

}  // namespace povmesh
