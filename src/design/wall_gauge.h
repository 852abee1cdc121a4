// Measures how near another surface comes to a model's.
#pragma once

#include <limits>

#include "base/array.h"
#include "base/vec.h"
#include "mesh/tri_mesh.h"
#include "spatial/nearest_face.h"

namespace povmesh {

/// The surface of a model, arranged so that walls to other surfaces can be measured: between whole
/// triangles, not between samples of them. Holds copies: the model may change or go.
///
/// Building takes O(n log n); about 150 bytes a face. All searches run on all threads, with the
/// same bits for any number of them. A face of the other surface takes about a microsecond where it
/// is small and the model is farther away than asked about, and more where it is as near.
class WallGauge {
public:
    explicit WallGauge(const TriMesh& model);

    /// The least distance between the model and the live faces of another surface, 0 where they
    /// meet; `limit` when they come nowhere nearer. Infinite or the limit when one has no face.
    double least_distance(const TriMesh& surface,
                          double limit = std::numeric_limits<double>::infinity()) const;

    /// For each face whether it comes nearer to the model than the limit.
    Array<std::uint8_t> faces_nearer_than(const TriMesh& surface, double limit) const;

private:
    using Triangle = std::array<Vec3d, 3>;

    double distance_of(const Triangle& triangle, double limit) const;
    Triangle triangle_of(std::uint32_t face) const;

    NearestFace nearest_;
    Array<std::array<Vec3f, 3>> triangles_;  // by face
};

}  // namespace povmesh
