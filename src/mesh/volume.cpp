#include "mesh/volume.h"

#include "base/parallel.h"
#include "base/poll.h"

namespace povmesh {
namespace {

constexpr double kNoLowest = 1e9;  // what the search for the lowest z starts from

}  // namespace

double signed_volume(const TriMesh& mesh) {
    double lowest = kNoLowest;
    for (const Vertex& vertex : mesh.vertices) {
        if (static_cast<double>(vertex.z) < lowest) lowest = static_cast<double>(vertex.z);
    }
    const Vec3d origin{0, 0, lowest};
    double sum = 0;
    Poller poller;
    for (const Face& face : mesh.faces) {
        poller();
        if (face.deleted != 0) continue;
        const Vec3d a = to_double(mesh.corner_position(face, 0)) - origin;
        const Vec3d b = to_double(mesh.corner_position(face, 1)) - origin;
        const Vec3d c = to_double(mesh.corner_position(face, 2)) - origin;
        sum += dot(a, cross(b, c));
    }
    return sum / 6.0;
}

double face_area(const TriMesh& mesh, const Face& face) {
    const Vec3d a = to_double(mesh.corner_position(face, 0));
    return length(cross(to_double(mesh.corner_position(face, 1)) - a,
                        to_double(mesh.corner_position(face, 2)) - a)) /
           2;
}

double surface_area(const TriMesh& mesh) {
    return blocked_sum(mesh.faces.size(), [&](std::size_t f) {
        const Face& face = mesh.faces[f];
        return face.deleted != 0 ? 0.0 : face_area(mesh, face);
    });
}

double volume(const TriMesh& mesh) {
    const double signed_value = signed_volume(mesh);
    return signed_value > 0 ? signed_value : 0.0;
}

}  // namespace povmesh
