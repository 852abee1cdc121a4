#include "remesh/corner_attributes.h"

namespace povmesh {

bool has_varied_attributes(const TriMesh& mesh) {
    const auto is_live = [](const Face& face) { return face.deleted == 0; };
    const auto first = std::find_if(mesh.faces.begin(), mesh.faces.end(), is_live);
    if (first == mesh.faces.end()) return false;
    const CornerKey key(mesh, *first, 0);
    const auto differs = [&](const Face& face) {
        if (!is_live(face)) return false;
        for (std::size_t corner = 0; corner < 3; ++corner) {
            if (CornerKey(mesh, face, corner) != key) return true;
        }
        return false;
    };
    return std::any_of(first, mesh.faces.end(), differs);
}

}  // namespace povmesh
