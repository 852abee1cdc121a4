// The faces that a plane meets are found by a tree of boxes, turned so that the plane is z = 0, and
// sliced there like any model.
#include "analysis/plane_section.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "base/convert.h"
#include "base/poll.h"
#include "mesh/bounds.h"
#include "slice/slices.h"

namespace povmesh {
namespace {

constexpr std::size_t kAcross = 2;  // the axis of the slicer

Array<Box3f> boxes_of(const TriMesh& mesh) {
    Array<Box3f> boxes;
    boxes.reserve(mesh.faces.size());
    Poller poller;
    for (const Face& face : mesh.faces) {
        poller();
        boxes.push_back(face.deleted != 0 ? Box3f{} : face_box(mesh, face));
    }
    return boxes;
}

bool meets(const Box3f& box, Vec3d point, Vec3d normal) {
    const Vec3d middle = (to_double(box.low) + to_double(box.high)) / 2.0;
    const Vec3d half = (to_double(box.high) - to_double(box.low)) / 2.0;
    const double reach =
        std::abs(normal.x) * half.x + std::abs(normal.y) * half.y + std::abs(normal.z) * half.z;
    return std::abs(dot(normal, middle - point)) <= reach * (1 + 1e-9);
}

// A unit vector across another one.
Vec3d across(Vec3d normal) {
    const std::array<double, 3> size = {std::abs(normal.x), std::abs(normal.y), std::abs(normal.z)};
    const auto least = std::min_element(size.begin(), size.end()) - size.begin();
    const Vec3d axis = at_height({0, 0}, 1, static_cast<std::size_t>(least));
    const Vec3d u = cross(normal, axis);
    return u / length(u);
}

}  // namespace

PlaneCutter::PlaneCutter(const TriMesh& mesh)
    : mesh_(mesh), box_(finite_bounds(mesh)), tree_(boxes_of(mesh)) {
    copy_of_.assign(mesh.vertices.size(), -1);
}

void PlaneCutter::copy_crossed_faces(Vec3d point, Vec3d normal) {
    for (const std::uint32_t v : copied_) copy_of_[v] = -1;
    copied_.clear();
    crossed_.faces.clear();
    crossed_.vertices.clear();
    const auto copy = [&](std::int32_t vertex) {
        std::int32_t& number = copy_of_[static_cast<std::size_t>(vertex)];
        if (number >= 0) return number;
        number = static_cast<std::int32_t>(crossed_.vertices.size());
        copied_.push_back(static_cast<std::uint32_t>(vertex));
        const Vec3d p =
            to_double(mesh_.vertices[static_cast<std::size_t>(vertex)].position()) - point;
        crossed_.vertices.push_back({narrow_to_float(dot(p, u_)), narrow_to_float(dot(p, v_)),
                                     narrow_to_float(dot(p, normal)), number});
        return number;
    };
    const auto nodes = tree_.nodes();
    tree_.visit_overlapping(
        box_,
        [&](std::uint32_t f) {
            Face face = mesh_.faces[f];
            for (std::int32_t& vertex : face.vertex) vertex = copy(vertex);
            crossed_.faces.push_back(face);
            return false;
        },
        [&](std::uint32_t node) { return !meets(nodes[node].box, point, normal); });
}

bool PlaneCutter::cut(Vec3d point, Vec3d normal, PlaneSection& section) {
    u_ = across(normal);
    v_ = cross(normal, u_);
    copy_crossed_faces(point, normal);
    SliceLoops loops;
    const std::array<double, 1> heights = {0};
    Slicer(crossed_, kAcross, heights).slice(0, loops);
    const SliceParts parts = find_slice_parts(loops);
    double nearest = std::numeric_limits<double>::infinity();
    std::size_t chosen = parts.size();
    for (std::size_t p = 0; p < parts.size(); ++p) {
        const SectionShape shape = section_shape(loops, parts[p]);
        const double distance = std::hypot(shape.centroid.x, shape.centroid.y);
        if (!(shape.area > 0) || !(distance < nearest)) continue;
        nearest = distance;
        chosen = p;
        section.shape = shape;
    }
    if (chosen == parts.size()) return false;
    const auto lifted = [&](std::uint32_t loop) {
        std::vector<Vec3d> points;
        for (const Point2d q : loops[loop]) points.push_back(point + u_ * q.x + v_ * q.y);
        return points;
    };
    const SectionShape& shape = section.shape;
    section.centre = point + u_ * shape.centroid.x + v_ * shape.centroid.y;
    section.longest = u_ * shape.longest.x + v_ * shape.longest.y;
    section.normal = normal;
    section.polygon = lifted(parts[chosen].front());
    section.holes.clear();
    for (const std::uint32_t hole : parts[chosen].subspan(1)) section.holes.push_back(lifted(hole));
    return true;
}

}  // namespace povmesh
