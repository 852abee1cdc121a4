// The faces of a mesh in coordinates relative to a grid.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>

#include "base/poll.h"

#include "mesh/tri_mesh.h"

namespace povmesh {

/// The corners of the live faces less an origin, rounded to floats. Faces with a coordinate that is
/// not finite do not come up.
class RelativeFaces {
public:
    RelativeFaces(const TriMesh& mesh, Vec3f origin) : mesh_(mesh) {
        points_.resize(mesh.vertices.size());
        for (std::size_t i = 0; i < points_.size(); ++i) {
            points_[i] = mesh.vertices[i].position() - origin;
        }
    }

    /// Calls `visit(face, corners)` with the corners as doubles, in face order.
    template <typename Visit>
    void for_each(Visit&& visit) const {
        Poller poller;
        for (const Face& face : mesh_.faces) {
            poller();
            if (face.deleted != 0) continue;
            std::array<Vec3d, 3> corners;
            bool is_finite = true;
            for (std::size_t i = 0; i < 3; ++i) {
                corners[i] = to_double(points_[static_cast<std::size_t>(face.vertex[i])]);
                is_finite = is_finite && std::isfinite(corners[i].x + corners[i].y + corners[i].z);
            }
            if (is_finite) visit(face, corners);
        }
    }

private:
    const TriMesh& mesh_;
    Array<Vec3f> points_;
};

}  // namespace povmesh
