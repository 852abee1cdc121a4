#include "mesh/append_mesh.h"

#include <stdexcept>

#include "base/convert.h"

namespace povmesh {

void append_mesh(TriMesh& to, const TriMesh& from, AppendWinding winding) {
    if (to.faces.size() + from.faces.size() > kMaxFaceCount) {
        throw std::length_error("vector<T> too long");
    }
    const auto first_vertex = fits<std::int32_t>(to.vertices.size());
    const auto first_uv = fits<std::int32_t>(to.texture_coordinates.size());
    for (Vertex vertex : from.vertices) {
        vertex.index += first_vertex;
        to.vertices.push_back(vertex);
    }
    for (TextureCoordinate uv : from.texture_coordinates) {
        uv.index += first_uv;
        to.texture_coordinates.push_back(uv);
    }
    for (Face face : from.faces) {
        for (std::int32_t& vertex : face.vertex) vertex += first_vertex;
        for (std::int32_t& uv : face.uv) uv += uv < 0 ? 0 : first_uv;
        if (winding == AppendWinding::Reversed) reverse_winding(face);
        to.faces.push_back(face);
    }
    to.use_table.clear();
    to.shells.clear();
}

}  // namespace povmesh
