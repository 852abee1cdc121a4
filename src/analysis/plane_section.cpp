// The faces that a plane meets are found by a tree of boxes, turned so that the plane is z = 0, and
// sliced there like any model.
#include "analysis/plane_section.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

#include "base/convert.h"
#include "base/poll.h"
#include "mesh/bounds.h"
#include "slice/slices.h"

namespace povmesh {
namespace {

constexpr std::size_t kAcross = 2;  // the axis of the slicer
constexpr std::size_t kMostIdle =
    64;  // arrays as large as the model; beyond, threads make new ones

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

struct PlaneCutter::Crossed {
    TriMesh mesh;                 // in the coordinates of the plane
    Array<std::int32_t> copy_of;  // by vertex; -1 for those without a copy
    Array<std::uint32_t> copied;  // those with one
    Vec3d u, v;
};

// Arrays as large as the model are set up once for each thread.
class PlaneCutter::Lease {
public:
    explicit Lease(const PlaneCutter& cutter) : cutter_(cutter) {
        {
            const std::lock_guard lock(cutter.mutex_);
            if (!cutter.idle_.empty()) {
                crossed_ = std::move(cutter.idle_.back());
                cutter.idle_.pop_back();
            }
        }
        if (crossed_ != nullptr) return;
        crossed_ = std::make_unique<Crossed>();
        crossed_->copy_of.assign(cutter.mesh_.vertices.size(), -1);
    }
    ~Lease() {
        for (const std::uint32_t v : crossed_->copied) crossed_->copy_of[v] = -1;
        crossed_->copied.clear();
        crossed_->mesh.faces.clear();
        crossed_->mesh.vertices.clear();
        const std::lock_guard lock(cutter_.mutex_);
        if (cutter_.idle_.size() < cutter_.idle_.capacity()) {
            cutter_.idle_.push_back(std::move(crossed_));
        }
    }
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;

    Crossed& operator*() const { return *crossed_; }

private:
    const PlaneCutter& cutter_;
    std::unique_ptr<Crossed> crossed_;
};

PlaneCutter::PlaneCutter(const TriMesh& mesh)
    : mesh_(mesh), box_(finite_bounds(mesh)), tree_(boxes_of(mesh)) {
    idle_.reserve(kMostIdle);
}

PlaneCutter::~PlaneCutter() = default;

void PlaneCutter::copy_crossed_faces(Vec3d point, Vec3d normal, Crossed& crossed) const {
    const auto copy = [&](std::int32_t vertex) {
        std::int32_t& number = crossed.copy_of[static_cast<std::size_t>(vertex)];
        if (number >= 0) return number;
        crossed.copied.push_back(static_cast<std::uint32_t>(vertex));
        number = static_cast<std::int32_t>(crossed.mesh.vertices.size());
        const Vec3d p =
            to_double(mesh_.vertices[static_cast<std::size_t>(vertex)].position()) - point;
        crossed.mesh.vertices.push_back({narrow_to_float(dot(p, crossed.u)),
                                         narrow_to_float(dot(p, crossed.v)),
                                         narrow_to_float(dot(p, normal)), number});
        return number;
    };
    const auto nodes = tree_.nodes();
    tree_.visit_overlapping(
        box_,
        [&](std::uint32_t f) {
            Face face = mesh_.faces[f];
            for (std::int32_t& vertex : face.vertex) vertex = copy(vertex);
            crossed.mesh.faces.push_back(face);
            return false;
        },
        [&](std::uint32_t node) { return !meets(nodes[node].box, point, normal); });
}

bool PlaneCutter::cut(Vec3d point, Vec3d normal, PlaneSection& section) const {
    const Lease lease(*this);
    Crossed& crossed = *lease;
    const Vec3d u = crossed.u = across(normal);
    const Vec3d v = crossed.v = cross(normal, u);
    copy_crossed_faces(point, normal, crossed);
    SliceLoops loops;
    const std::array<double, 1> heights = {0};
    Slicer(crossed.mesh, kAcross, heights).slice(0, loops);
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
        for (const Point2d q : loops[loop]) points.push_back(point + u * q.x + v * q.y);
        return points;
    };
    const SectionShape& shape = section.shape;
    section.centre = point + u * shape.centroid.x + v * shape.centroid.y;
    section.longest = u * shape.longest.x + v * shape.longest.y;
    section.normal = normal;
    section.polygon = lifted(parts[chosen].front());
    section.holes.clear();
    for (const std::uint32_t hole : parts[chosen].subspan(1)) section.holes.push_back(lifted(hole));
    return true;
}

}  // namespace povmesh
