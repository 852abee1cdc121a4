// Puts outside, inner wall and rims of a lampshade together.
#pragma once

#include <cstddef>

#include "base/array.h"
#include "design/lampshade_inside.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// One model's shade: the outside, the inner wall wound towards the inside, and the rims.
struct LampshadeParts {
    TriMesh mesh;
    // What each face is.
    enum class Kind : std::uint8_t { Outside, Inner, Rim };
    Array<Kind> kinds;
};

/// Cuts outside and inner wall at the openings, and fills the rims between them.
LampshadeParts make_lampshade_parts(const LampshadeInside& inside);

}  // namespace povmesh
