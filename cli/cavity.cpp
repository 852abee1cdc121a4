#include "cli/cavity.h"

#include <cmath>
#include <limits>

#include "mesh/append_mesh.h"
#include "mesh/compact.h"
#include "spatial/nearest_face.h"

namespace povmesh::cli {

double smallest_wall(const TriMesh& model, const TriMesh& cavity) {
    double least = std::numeric_limits<double>::infinity();  // squared
    const auto look = [&](const TriMesh& from, const TriMesh& at) {
        const NearestFace nearest(at);
        const auto ask = [&](Vec3d p) {
            const NearestPoint found = nearest.find(p, least);
            if (found.is_found()) least = found.squared_distance;
        };
        for (const Face& face : from.faces) {
            Vec3d centre;
            for (std::size_t i = 0; i < 3; ++i) {
                const Vec3d corner = to_double(from.corner_position(face, i));
                ask(corner);
                centre = centre + corner / 3.0;
            }
            ask(centre);
        }
    };
    look(cavity, model);
    look(model, cavity);
    return std::sqrt(least);
}

void add_cavities(TriMesh& model, const TriMesh& cavities) {
    append_mesh(model, cavities, AppendWinding::Reversed);
    compact(model);
}

}  // namespace povmesh::cli
