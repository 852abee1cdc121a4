#include "field/winding.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <span>

#include "base/parallel.h"
#include "spatial/triangle_intersection.h"

namespace povmesh {
namespace {

// Groups farther away than this many radii count as one dipole.
constexpr double kFarRadii = 2.5;

// A. Van Oosterom, J. Strackee, The solid angle of a plane triangle, IEEE Transactions on
// Biomedical Engineering 30(2), 1983.
double solid_angle(Vec3d p, const Triangle& t) {
    const Vec3d a = t[0] - p;
    const Vec3d b = t[1] - p;
    const Vec3d c = t[2] - p;
    const double la = length(a);
    const double lb = length(b);
    const double lc = length(c);
    const double above = dot(a, cross(b, c));
    const double below = la * lb * lc + dot(a, b) * lc + dot(b, c) * la + dot(c, a) * lb;
    return 2 * std::atan2(above, below);
}

double farthest_corner(const Box3f& box, Vec3d p) {
    const Vec3d low = to_double(box.low);
    const Vec3d high = to_double(box.high);
    const Vec3d reach = {std::max(p.x - low.x, high.x - p.x), std::max(p.y - low.y, high.y - p.y),
                         std::max(p.z - low.z, high.z - p.z)};
    return length(reach);
}

}  // namespace

WindingNumbers::WindingNumbers(const TriMesh& mesh) : mesh_(mesh) {
    Array<Box3f> boxes(mesh.faces.size());
    parallel_for(boxes.size(), [&](std::size_t f) {
        boxes[f] = mesh.faces[f].deleted == 0 ? face_box(mesh, mesh.faces[f]) : Box3f{};
    });
    tree_ = FaceTree(boxes);
    const std::span<const FaceTree::Node> nodes = tree_.nodes();
    dipoles_.assign(nodes.size(), {});
    for (std::size_t i = nodes.size(); i-- > 0;) {
        const FaceTree::Node& node = nodes[i];
        Dipole& sum = dipoles_[i];
        const auto add = [&](Vec3d middle, Vec3d area, double whole_area) {
            sum.middle = sum.middle + middle * whole_area;
            sum.area = sum.area + area;
            sum.whole_area += whole_area;
        };
        if (node.is_leaf()) {
            for (std::uint32_t k = node.place; k < node.place + node.count; ++k) {
                const Triangle t = triangle_of(mesh, mesh.faces[tree_.numbers()[k]]);
                const Vec3d area = cross(t[1] - t[0], t[2] - t[0]) / 2.0;
                add((t[0] + t[1] + t[2]) / 3.0, area, length(area));
            }
        } else {
            for (const std::size_t child : {i + 1, static_cast<std::size_t>(node.place)}) {
                add(dipoles_[child].middle, dipoles_[child].area, dipoles_[child].whole_area);
            }
        }
        const Vec3d centre = (to_double(node.box.low) + to_double(node.box.high)) / 2.0;
        sum.middle = sum.whole_area > 0 ? sum.middle / sum.whole_area : centre;
        sum.radius = farthest_corner(node.box, sum.middle);
    }
}

double WindingNumbers::at(Vec3d p) const {
    const std::span<const FaceTree::Node> nodes = tree_.nodes();
    if (nodes.empty()) return 0;
    std::array<std::uint32_t, FaceTree::kMaxDepth + 2> stack;
    std::size_t size = 0;
    stack[size++] = 0;
    double sum = 0;
    while (size != 0) {
        const std::uint32_t index = stack[--size];
        const Dipole& dipole = dipoles_[index];
        const Vec3d away = dipole.middle - p;
        const double square = dot(away, away);
        if (square > kFarRadii * kFarRadii * dipole.radius * dipole.radius) {
            sum += dot(dipole.area, away) / (square * std::sqrt(square));
            continue;
        }
        const FaceTree::Node& node = nodes[index];
        if (node.is_leaf()) {
            for (std::uint32_t k = node.place; k < node.place + node.count; ++k) {
                sum += solid_angle(p, triangle_of(mesh_, mesh_.faces[tree_.numbers()[k]]));
            }
        } else {
            stack[size++] = node.place;
            stack[size++] = index + 1;
        }
    }
    return sum / (4 * std::numbers::pi);
}

double winding_number(const TriMesh& mesh, Vec3d p) {
    const double sum = blocked_sum(mesh.faces.size(), [&](std::size_t f) {
        const Face& face = mesh.faces[f];
        return face.deleted == 0 ? solid_angle(p, triangle_of(mesh, face)) : 0.0;
    });
    return sum / (4 * std::numbers::pi);
}

}  // namespace povmesh
