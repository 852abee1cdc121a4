#include "orient/pose.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "base/convert.h"
#include "base/poll.h"
#include "mesh/bounds.h"
#include "mesh/compact.h"
#include "orient/orient_model.h"
#include "spatial/overhang.h"

namespace povmesh {
namespace {

// Below this no point of a model moves by more than the rounding of its coordinates.
constexpr double kNoAngle = 1e-7;

Vec3d snapped(Vec3d up) {
    for (const Vec3d axis : {Vec3d{1, 0, 0}, Vec3d{0, 1, 0}, Vec3d{0, 0, 1}}) {
        const double along = dot(up, axis);
        if (length(up - axis * along) < kNoAngle) return axis * (along < 0 ? -1.0 : 1.0);
    }
    return up;
}

// Rows of the rotation matrix (O. Rodrigues) about v = up x z, which has no z.
std::array<Vec3d, 3> turn_to_z(Vec3d up) {
    const double square = up.x * up.x + up.y * up.y;
    if (square == 0 && up.z < 0) return {{{1, 0, 0}, {0, -1, 0}, {0, 0, -1}}};
    const Vec3d v = {up.y, -up.x, 0};
    // (1 - cos) / sin^2, without cancellation on either side.
    const double k = up.z > 0 ? 1 / (1 + up.z) : (1 - up.z) / square;
    return {
        {{1 - k * v.y * v.y, k * v.x * v.y, v.y}, {k * v.x * v.y, 1 - k * v.x * v.x, -v.x}, up}};
}

}  // namespace

void turn_up(TriMesh& mesh, Vec3d up) {
    compact(mesh, TextureDigits::All);
    const Box3f box = finite_bounds(mesh);
    if (box.is_empty()) return;
    const Vec3d middle = to_double(box.low) * 0.5 + to_double(box.high) * 0.5;
    const auto rows = turn_to_z(snapped(up));
    const auto turned = [&](const Vertex& vertex) {
        const Vec3d p = to_double(vertex.position()) - middle;
        return Vec3d{dot(rows[0], p), dot(rows[1], p), dot(rows[2], p)};
    };
    Box3d reached;
    Poller poller;
    for (const Vertex& vertex : mesh.vertices) {
        poller();
        if (is_finite(vertex.position())) reached.widen(turned(vertex));
    }
    const Vec3d by = {middle.x - (reached.low.x + reached.high.x) / 2,
                      middle.y - (reached.low.y + reached.high.y) / 2, -reached.low.z};
    for (Vertex& vertex : mesh.vertices) {
        poller();
        if (!is_finite(vertex.position())) continue;
        const Vec3d p = turned(vertex) + by;
        vertex.x = narrow_to_float(p.x);
        vertex.y = narrow_to_float(p.y);
        vertex.z = narrow_to_float(p.z);
    }
    compact(mesh, TextureDigits::All);
}

PoseFaces faces_of_pose(const TriMesh& mesh, Vec3d up) {
    PoseFaces faces;
    const OrientModel model = make_orient_model(mesh);
    if (model.triangles.empty()) return faces;
    double lowest = std::numeric_limits<double>::infinity();
    for (const Vec3f p : model.hull_points) lowest = std::min(lowest, dot(to_double(p), up));
    for (std::uint32_t f = 0; f < mesh.faces.size(); ++f) {
        poll_at(f);
        if (!has_finite_corners(mesh, mesh.faces[f])) continue;
        std::array<Vec3d, 3> corners;
        for (std::size_t c = 0; c < 3; ++c) {
            const Vec3d p = to_double(mesh.corner_position(mesh.faces[f], c));
            corners[c] = (p - model.middle) / model.unit;
        }
        const Vec3d normal = cross(corners[1] - corners[0], corners[2] - corners[0]);
        if (!(length(normal) > 0)) continue;
        const double down = dot(normal, up) / length(normal) * (model.is_turned_over ? 1.0 : -1.0);
        if (std::all_of(corners.begin(), corners.end(),
                        [&](Vec3d p) { return dot(p, up) - lowest <= model.slack; })) {
            faces.resting.push_back(f);
        } else if (const double need = support_need(down); need > 0) {
            (need < 0.5 ? faces.leaning : faces.held).push_back(f);
        }
    }
    return faces;
}

}  // namespace povmesh
