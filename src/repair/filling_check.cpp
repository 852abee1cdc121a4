// Each face of a filling is held against the faces whose boxes overlap its own, exactly.
#include "repair/filling_check.h"

#include <algorithm>

#include "spatial/face_tree.h"
#include "spatial/triangle_intersection.h"

namespace povmesh {
namespace {

bool may_meet(const Triangle& triangle) {
    return is_finite(triangle) && has_area(triangle);
}

bool meets_another(const TriMesh& mesh, const FaceTree& tree, std::uint32_t face) {
    const Triangle triangle = triangle_of(mesh, mesh.faces[face]);
    if (!may_meet(triangle)) return false;
    return tree.visit_overlapping(face_box(mesh, mesh.faces[face]), [&](std::uint32_t other) {
        if (other == face || mesh.faces[other].deleted != 0) return false;
        const Triangle there = triangle_of(mesh, mesh.faces[other]);
        return may_meet(there) && meet_beyond_shared(triangle, there);
    });
}

}  // namespace

std::size_t undo_crossing_fillings(TriMesh& mesh, HoleReport& report) {
    if (report.added_face_count == 0) return 0;
    Array<Box3f> boxes(mesh.faces.size());
    for (std::size_t f = 0; f < boxes.size(); ++f) {
        if (mesh.faces[f].deleted == 0) boxes[f] = face_box(mesh, mesh.faces[f]);
    }
    const FaceTree tree(boxes);
    std::size_t undone = 0;
    // The last filling first, so that of two the earlier one is looked at when the other is gone.
    for (std::size_t i = report.holes.size(); i-- > 0;) {
        Hole& hole = report.holes[i];
        if (hole.fate != HoleFate::Closed) continue;
        const std::uint32_t end = hole.first_added + hole.added_count;
        bool crosses = false;
        for (std::uint32_t face = hole.first_added; face < end && !crosses; ++face) {
            crosses = meets_another(mesh, tree, face);
        }
        if (!crosses) continue;
        for (std::uint32_t face = hole.first_added; face < end; ++face) {
            mesh.faces[face].deleted = 1;
        }
        hole.fate = HoleFate::Crosses;
        report.added_face_count -= hole.added_count;
        ++undone;
    }
    return undone;
}

}  // namespace povmesh
