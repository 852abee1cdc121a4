// Copies the faces of one side with reflected vertices and reversed winding; vertices on the plane
// are their own images, which joins the halves.
#include "cut/mirror.h"

#include <algorithm>

#include "mesh/compact.h"

namespace povmesh {

TriMesh mirrored(const PlaneSplit& split, const PlaneFrame& frame, PlaneSide side) {
    auto [mesh, points] = split.side_mesh(side, {});
    const std::size_t vertex_count = mesh.vertices.size();
    Array<std::int32_t> image(vertex_count);
    for (std::size_t v = 0; v < vertex_count; ++v) {
        if (split.is_on_plane(points[v])) {
            image[v] = static_cast<std::int32_t>(v);
            continue;
        }
        image[v] = fits<std::int32_t>(mesh.vertices.size());
        const Vec3d p = to_double(mesh.vertices[v].position());
        const Vec3d q = p - frame.normal() * (2.0 * frame.distance(p));
        mesh.vertices.push_back(
            {narrow_to_float(q.x), narrow_to_float(q.y), narrow_to_float(q.z), image[v]});
    }
    const auto lies_flat = [&](const Face& face) {
        return std::all_of(face.vertex.begin(), face.vertex.end(),
                           [&](std::int32_t v) { return image[static_cast<std::size_t>(v)] == v; });
    };
    mesh.faces.erase(std::remove_if(mesh.faces.begin(), mesh.faces.end(), lies_flat),
                     mesh.faces.end());
    const std::size_t face_count = mesh.faces.size();
    mesh.faces.reserve(2 * face_count);
    for (std::size_t f = 0; f < face_count; ++f) {
        Face face = mesh.faces[f];
        for (std::int32_t& v : face.vertex) v = image[static_cast<std::size_t>(v)];
        reverse_winding(face);
        mesh.faces.push_back(face);
    }
    if (face_count == 0) return {};
    compact(mesh);
    return std::move(mesh);
}

}  // namespace povmesh
