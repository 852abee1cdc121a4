#include "mesh/bounds.h"

namespace povmesh {

Box3f finite_bounds(const TriMesh& mesh) {
    Box3f box;
    for (const Vertex& vertex : mesh.vertices) {
        if (is_finite(vertex.position())) box.widen(vertex.position());
    }
    return box;
}

}  // namespace povmesh
