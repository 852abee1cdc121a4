// Meshes as CGAL's operations take them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mesh/tri_mesh.h"

namespace povmesh::bench {

/// @tparam Surface  a CGAL::Surface_mesh.
template <typename Surface>
Surface cgal_surface(const TriMesh& mesh) {
    Surface surface;
    for (const Vertex& v : mesh.vertices) surface.add_vertex({v.x, v.y, v.z});
    for (const Face& face : mesh.faces) {
        const auto corner = [&](std::size_t i) {
            return typename Surface::Vertex_index(static_cast<std::uint32_t>(face.vertex[i]));
        };
        surface.add_face(corner(0), corner(1), corner(2));
    }
    return surface;
}

}  // namespace povmesh::bench
