// Cross-sections by planes in any direction.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "analysis/section_shape.h"
#include "base/array.h"
#include "base/vec.h"
#include "mesh/tri_mesh.h"
#include "spatial/face_tree.h"

namespace povmesh {

/// One connected part of the material in a plane.
struct PlaneSection {
    SectionShape shape;  // coordinates are those of the plane
    Vec3d centre;        // centroid of the area
    Vec3d normal;
    Vec3d longest;               // unit vector in the plane, along which the section is longest
    std::vector<Vec3d> polygon;  // outer boundary, counterclockwise about the normal
    std::vector<std::vector<Vec3d>> holes;  // clockwise
};

/// Cuts a closed mesh that is wound outward. The mesh outlives it.
///
/// Setting up takes O(n log n); a cut about a microsecond for each face that it meets. Each thread
/// that cuts at the same time as others adds 4 bytes a vertex.
class PlaneCutter {
public:
    explicit PlaneCutter(const TriMesh& mesh);
    ~PlaneCutter();
    PlaneCutter(const PlaneCutter&) = delete;
    PlaneCutter& operator=(const PlaneCutter&) = delete;

    /// The part of the section through `point` across the unit vector `normal` whose centroid is
    /// nearest to the point. False when there is no material. Several threads may cut at a time.
    bool cut(Vec3d point, Vec3d normal, PlaneSection& section) const;

private:
    struct Crossed;  // the faces that one plane meets
    class Lease;
    void copy_crossed_faces(Vec3d point, Vec3d normal, Crossed& crossed) const;

    const TriMesh& mesh_;
    Box3f box_;
    FaceTree tree_;
    mutable std::mutex mutex_;
    mutable std::vector<std::unique_ptr<Crossed>> idle_;  // under the mutex
};

}  // namespace povmesh
