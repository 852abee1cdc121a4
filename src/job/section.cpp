#include "job/section.h"

#include <array>
#include <utility>

#include "cut/cut.h"

namespace povmesh {
namespace {

double along(Vec3d v, std::size_t axis) {
    return std::array{v.x, v.y, v.z}[axis];
}

Vec3d unit_vector(std::size_t axis) {
    return {axis == 0 ? 1.0 : 0.0, axis == 1 ? 1.0 : 0.0, axis == 2 ? 1.0 : 0.0};
}

// 1 where the viewer looks from the high end of the axis, else -1. Across the line of sight either
// would do.
double viewer_side(picture::View view, std::size_t axis) {
    switch (view) {
        case picture::View::Iso:
        case picture::View::Front:
            return axis == 1 ? -1 : 1;
        case picture::View::Left:
            return axis == 0 ? -1 : 1;
        case picture::View::Bottom:
            return axis == 2 ? -1 : 1;
        case picture::View::Back:
        case picture::View::Right:
        case picture::View::Top:
            return 1;
    }
    return 1;
}

// Appends the faces of a piece whose place in the plane is as asked for.
template <typename Choose>
void append(TriMesh& to, const TriMesh& piece, Choose&& is_chosen) {
    const auto first = static_cast<std::int32_t>(to.vertices.size());
    for (Vertex vertex : piece.vertices) {
        vertex.index += first;
        to.vertices.push_back(vertex);
    }
    for (Face face : piece.faces) {
        if (face.deleted != 0 || !is_chosen(face)) continue;
        for (std::int32_t& vertex : face.vertex) vertex += first;
        face.label = -1;
        face.uv = {-1, -1, -1};
        to.faces.push_back(face);
    }
}

}  // namespace

void cut_open(TriMesh& mesh, const Section& section, picture::View view, const Box3d& scene,
              TriMesh& caps) {
    if (scene.is_empty()) return;
    const std::size_t axis = section.axis;
    const double middle = (along(scene.low, axis) + along(scene.high, axis)) / 2;
    const double value = section.value.value_or(middle);
    const double side = viewer_side(view, axis);
    CutOptions options;
    options.operation = CutOperation::CutAndCap;
    options.keep_cavities = true;
    options.plane.normal = unit_vector(axis) * side;
    options.plane.direction = unit_vector((axis + 1) % 3);
    options.plane.point = unit_vector(axis) * value;
    RunLog log;
    RunContext run{{}, log};
    cut_models(mesh, options, run);
    TriMesh kept;
    const double slack = 1e-5 * length(scene.extent());
    for (const TriMesh& piece : mesh.parts) {
        Box3d box;
        for (const Vertex& vertex : piece.vertices) box.widen(to_double(vertex.position()));
        const double centre = (along(box.low, axis) + along(box.high, axis)) / 2;
        if (box.is_empty() || (centre - value) * side > 0) continue;
        const auto is_cap = [&](const Face& face) {
            for (std::size_t i = 0; i < 3; ++i) {
                const Vec3d corner = to_double(piece.corner_position(face, i));
                if (std::abs(along(corner, axis) - value) > slack) return false;
            }
            return true;
        };
        append(kept, piece, [&](const Face& face) { return !is_cap(face); });
        append(caps, piece, is_cap);
    }
    mesh = std::move(kept);
}

}  // namespace povmesh
