#include "mesh/append_mesh.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>

#include "base/convert.h"
#include "base/poll.h"

namespace povmesh {
namespace {

// As push_back does when there is no room, but with looks whether the call is to end.
template <typename Items>
void make_room(Items& items, std::size_t more) {
    const std::size_t needed = items.size() + more;
    if (needed <= items.capacity()) return;
    Items roomy;
    roomy.reserve(std::max(needed, items.size() + items.size() / 2));
    polled_copy(items, roomy);
    items.swap(roomy);
}

}  // namespace

void append_mesh(TriMesh& to, const TriMesh& from, AppendWinding winding) {
    if (to.faces.size() + from.faces.size() > kMaxFaceCount) {
        throw std::length_error("vector<T> too long");
    }
    const auto first_vertex = fits<std::int32_t>(to.vertices.size());
    const auto first_uv = fits<std::int32_t>(to.texture_coordinates.size());
    make_room(to.vertices, from.vertices.size());
    make_room(to.faces, from.faces.size());
    Poller poller;
    for (Vertex vertex : from.vertices) {
        poller();
        vertex.index += first_vertex;
        to.vertices.push_back(vertex);
    }
    for (TextureCoordinate uv : from.texture_coordinates) {
        uv.index += first_uv;
        to.texture_coordinates.push_back(uv);
    }
    for (Face face : from.faces) {
        poller();
        for (std::int32_t& vertex : face.vertex) vertex += first_vertex;
        for (std::int32_t& uv : face.uv) uv += uv < 0 ? 0 : first_uv;
        if (winding == AppendWinding::Reversed) reverse_winding(face);
        to.faces.push_back(face);
    }
    to.use_table.clear();
    to.shells.clear();
}

}  // namespace povmesh
