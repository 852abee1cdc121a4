// Models cut open for a picture.
#pragma once

#include <cstddef>
#include <optional>

#include "base/vec.h"
#include "job/picture/picture.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

struct Section {
    std::size_t axis = 0;         // 0, 1, 2: the plane is across x, y, z
    std::optional<double> value;  // where; without it through the middle of the scene
};

/// Takes away what lies on the viewer's side of the plane, and closes the solid that is left.
///
/// @param scene  the box of all models
/// @param caps   gets the faces in the plane, which are no longer in the mesh
void cut_open(TriMesh& mesh, const Section& section, picture::View view, const Box3d& scene,
              TriMesh& caps);

}  // namespace povmesh
