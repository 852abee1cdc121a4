#include "job/measures.h"

#include <cmath>
#include <cstdint>
#include <vector>

#include "base/poll.h"
#include "mesh/edge_mates.h"
#include "mesh/volume.h"

namespace povmesh {

double Measures::diagonal() const {
    return box.is_empty() ? 0 : length(to_double(box.high) - to_double(box.low));
}

Measures measures_of(const TriMesh& mesh) {
    Measures measures;
    std::vector<bool> is_used(mesh.vertices.size());
    Poller poller;
    for (const Face& face : mesh.faces) {
        poller();
        if (face.deleted != 0) continue;
        ++measures.triangles;
        for (const std::int32_t v : face.vertex) is_used[static_cast<std::size_t>(v)] = true;
    }
    for (std::size_t v = 0; v < is_used.size(); ++v) {
        poll_at(v);
        if (!is_used[v]) continue;
        ++measures.vertices;
        const Vec3f p = mesh.vertices[v].position();
        if (std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z)) measures.box.widen(p);
    }
    measures.area = surface_area(mesh);
    measures.volume = signed_volume(mesh);
    return measures;
}

bool is_closed(TriMesh& mesh) {
    const EdgeMates mates(mesh);
    for (std::size_t face = 0; face < mesh.faces.size(); ++face) {
        poll_at(face);
        for (std::size_t edge = 0; edge < 3; ++edge) {
            if (mates.kind(face, edge) == EdgeMates::Kind::Open) return false;
        }
    }
    return true;
}

}  // namespace povmesh
