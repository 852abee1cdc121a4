// A distance whose levels keep edges and corners: planes move as they are until they meet.
#pragma once

#include "base/vec.h"
#include "mesh/tri_mesh.h"
#include "spatial/nearest_face.h"

namespace povmesh {

/// Where the nearest point lies on an edge or a corner that turns by 20 degrees or more, the
/// distance is the greatest of those to the planes of the faces there, and at least half of the
/// plain one, so that spikes end at twice a level; elsewhere it is the plain one.
class SharpDistance {
public:
    /// Copies the faces, which are those that the search knows.
    SharpDistance(const TriMesh& faces, const NearestFace& surface);

    struct Value {
        double distance;   // HUGE_VAL when no face is within reach
        Vec3d gradient;    // unit
        bool is_at_plane;  // the distance is that to a plane of an edge or a corner
    };
    Value at(Vec3d p, double reach) const;

private:
    TriMesh faces_;
    const NearestFace& surface_;
};

}  // namespace povmesh
