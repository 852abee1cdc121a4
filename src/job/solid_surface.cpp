#include "job/solid_surface.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "job/numbers.h"
#include "mesh/edge_mates.h"
#include "spatial/self_intersection.h"

namespace povmesh {
namespace {

std::size_t irregular_edges(const TriMesh& mesh) {
    TriMesh copy = mesh;
    const EdgeMates mates(copy);
    std::size_t count = 0;
    for (std::size_t f = 0; f < copy.faces.size(); ++f) {
        for (std::size_t e = 0; e < 3; ++e) {
            const bool is_regular =
                mates.kind(f, e) == EdgeMates::Kind::Manifold && !mates.is_same_direction(f, e);
            count += is_regular ? 0 : 1;
        }
    }
    return count;
}

}  // namespace

void check_solid(const TriMesh& mesh, Remarks& remarks) {
    const std::size_t irregular = irregular_edges(mesh);
    if (irregular != 0) {
        remarks.doubts.push_back("the result is not closed at " + counted(irregular, "edge"));
    }
    const std::uint64_t crossings = find_self_intersections(mesh, 0).count;
    if (crossings != 0) {
        remarks.doubts.push_back("the result crosses itself in " + counted(crossings, "pair") +
                                 " of faces");
    }
}

void warn_of_lost_textures(const TriMesh& mesh, Remarks& remarks) {
    const bool has_any = std::any_of(mesh.faces.begin(), mesh.faces.end(), [](const Face& face) {
        return face.deleted == 0 && face.uv[0] >= 0;
    });
    if (has_any) {
        remarks.warnings.emplace_back("texture coordinates and their materials are not kept");
    }
}

}  // namespace povmesh
