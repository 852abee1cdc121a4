#include "job/seam_check.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "base/poll.h"
#include "job/findings.h"
#include "job/numbers.h"
#include "mesh/bounds.h"
#include "repair/degenerate.h"
#include "spatial/self_intersection.h"

namespace povmesh {
namespace {

// Pairs that are looked at; a model with more crosses itself all over.
constexpr std::size_t kMostPairs = 10'000;

double axis_of(Vec3f v, std::size_t axis) {
    return static_cast<double>(axis == 0 ? v.x : axis == 1 ? v.y : v.z);
}

Box3f box_of(const TriMesh& mesh, const Face& face) {
    Box3f box;
    for (std::size_t i = 0; i < 3; ++i) box.widen(mesh.corner_position(face, i));
    return box;
}

bool overlap(const Box3f& a, const Box3f& b) {
    return a.low.x <= b.high.x && b.low.x <= a.high.x && a.low.y <= b.high.y &&
           b.low.y <= a.high.y && a.low.z <= b.high.z && b.low.z <= a.high.z;
}

}  // namespace

// The place is the end of the first one that is at a seam.
std::size_t SeamCheck::count_needles(const TriMesh& mesh, Vec3f& place) const {
    std::size_t count = 0;
    Poller poller;
    for (const Face& face : mesh.faces) {
        poller();
        if (!is_degenerate(mesh, face) || count++ != 0) continue;
        double nearest = std::numeric_limits<double>::infinity();
        for (std::size_t c = 0; c < 3; ++c) {
            const Vec3f corner = mesh.corner_position(face, c);
            for (std::size_t axis = 0; axis < 3; ++axis) {
                for (const double offset : offsets_[axis]) {
                    const double distance = std::abs(axis_of(corner, axis) - offset);
                    if (!(distance < nearest)) continue;
                    nearest = distance;
                    place = corner;
                }
            }
        }
    }
    return count;
}

SeamCheck::SeamCheck(const TriMesh& model, const std::vector<DividingPlane>& planes, double reach)
    : reach_(reach) {
    const Box3f box = finite_bounds(model);
    if (!box.is_empty()) {
        const double far = std::max(length(to_double(box.low)), length(to_double(box.high)));
        reach_ += 1e-6 * far + 4e-5 * length(to_double(box.extent()));
    }
    for (const DividingPlane& plane : planes) {
        offsets_[plane.axis].push_back(static_cast<double>(plane.offset));
    }
    for (std::vector<double>& offsets : offsets_) std::sort(offsets.begin(), offsets.end());
    const TriMesh near = near_seams(model);
    Vec3f place;
    needles_before_ = count_needles(near, place);
    const SelfIntersections found = find_self_intersections(near, kMostPairs);
    is_crossed_all_over_ = found.count > found.pairs.size();
    for (const FacePair& pair : found.pairs) {
        Box3f at = box_of(near, near.faces[pair.first]);
        at.widen(box_of(near, near.faces[pair.second]).low);
        at.widen(box_of(near, near.faces[pair.second]).high);
        crossed_.push_back(at);
    }
}

TriMesh SeamCheck::near_seams(const TriMesh& mesh) const {
    TriMesh near;
    near.vertices = mesh.vertices;
    Poller poller;
    for (const Face& face : mesh.faces) {
        poller();
        const Box3f box = box_of(mesh, face);
        bool is_near = false;
        for (std::size_t axis = 0; axis < 3 && !is_near; ++axis) {
            const auto next = std::lower_bound(offsets_[axis].begin(), offsets_[axis].end(),
                                               axis_of(box.low, axis) - reach_);
            is_near = next != offsets_[axis].end() && *next <= axis_of(box.high, axis) + reach_;
        }
        if (is_near) near.faces.push_back(face);
    }
    return near;
}

void SeamCheck::look_at(const TriMesh& part) {
    const TriMesh near = near_seams(part);
    Vec3f place;
    const std::size_t needles = count_needles(near, place);
    if (needles_after_ == 0) needle_ = place;
    needles_after_ += needles;
    if (is_crossed_all_over_) return;
    for (const FacePair& pair : find_self_intersections(near, kMostPairs).pairs) {
        const Box3f a = box_of(near, near.faces[pair.first]);
        const Box3f b = box_of(near, near.faces[pair.second]);
        const bool was_there = std::any_of(crossed_.begin(), crossed_.end(), [&](const Box3f& at) {
            return overlap(at, a) && overlap(at, b);
        });
        if (was_there) continue;
        if (new_crossings_++ == 0) crossing_ = near.corner_position(near.faces[pair.first], 0);
    }
}

std::string SeamCheck::crossings() const {
    if (new_crossings_ == 0) return {};
    return counted(new_crossings_, "pair") + " of triangles at the cuts cross, the first " +
           place_text(crossing_) +
           ", where those of the model do not: shells of one winding that lie inside one another "
           "are closed each by itself; 'povmesh wrap' joins them first";
}

std::string SeamCheck::needles() const {
    if (needles_after_ <= needles_before_) return {};
    return counted(needles_after_ - needles_before_, "triangle") +
           " along the cuts are needles, the first " + place_text(needle_) +
           "; 'povmesh revise' mends them";
}

}  // namespace povmesh
