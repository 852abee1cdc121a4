// Cuts models open for pictures.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "job/picture/picture.h"
#include "mesh/tri_mesh.h"

namespace povmesh::cli {

struct Section {
    std::size_t axis = 0;         // 0, 1, 2: the plane is across x, y, z
    std::optional<double> value;  // where; without it through the middle of the scene
};

/// Reads "x", "y=12.5"; nothing when it is none.
std::optional<Section> parse_section(std::string_view text);

/// Takes away what lies on the viewer's side of the plane, and closes the solid that is left.
///
/// @param scene  the box of all models
/// @param caps   gets the faces in the plane, which are no longer in the mesh
void cut_open(TriMesh& mesh, const Section& section, picture::View view, const Box3d& scene,
              TriMesh& caps);

}  // namespace povmesh::cli
