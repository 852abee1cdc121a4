#include "job/refusal.h"

#include <algorithm>
#include <cstddef>

namespace povmesh {
namespace {

bool has_finite_corners(const TriMesh& mesh, const Face& face) {
    return face.deleted != 0 ||
           (is_finite(mesh.corner_position(face, 0)) && is_finite(mesh.corner_position(face, 1)) &&
            is_finite(mesh.corner_position(face, 2)));
}

}  // namespace

bool has_finite_corners(const TriMesh& mesh) {
    return std::all_of(mesh.faces.begin(), mesh.faces.end(),
                       [&](const Face& face) { return has_finite_corners(mesh, face); });
}

std::string refusal(const TriMesh& mesh, bool was_finite) {
    if (live_face_count(mesh) == 0) return "no triangle would be left; nothing is written";
    const auto wild = std::find_if(mesh.faces.begin(), mesh.faces.end(), [&](const Face& face) {
        return !has_finite_corners(mesh, face);
    });
    if (wild == mesh.faces.end()) return {};
    return "triangle " + std::to_string(wild - mesh.faces.begin()) +
           " would have a coordinate that is infinite or no number; nothing is written; " +
           (was_finite ? "make the model smaller" : "povmesh repair takes such triangles out");
}

}  // namespace povmesh
