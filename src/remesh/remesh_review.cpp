// The distance of the original's vertices from the result tells what has been lost, and exact tests
// of all pairs of faces tell what crosses. Both are asked after the fact, because what a run of
// remeshing will do to a thin place is hard to tell beforehand, and most runs do no harm.
#include "remesh/remesh_review.h"

#include <algorithm>
#include <cmath>

#include "base/convert.h"
#include "base/parallel.h"
#include "remesh/triangle_shape.h"
#include "spatial/face_tree.h"
#include "spatial/self_intersection.h"

namespace povmesh {
namespace {

// Shares of the length, and of the distance to the opposite wall, by which a place may be off.
constexpr double kMostOfLength = 0.35;
constexpr double kMostOfWall = 0.2;
constexpr double kMostOfGap = 0.5;
constexpr double kLeastWall = 0.05;

// Distances below this share of the length are of no interest.
constexpr double kLeastOfLength = 0.02;

// Cosine beyond which a face looks the opposite way.
constexpr double kOpposite = 0.5;

// Bounds of the factor of one shortening. The distance falls with the square of the length.
constexpr double kMostShortening = 0.35;
constexpr double kLeastShortening = 0.85;

constexpr std::size_t kMostPairs = 100'000;

Triangle3d corners_of(const TriMesh& mesh, const Face& face) {
    return {to_double(mesh.corner_position(face, 0)), to_double(mesh.corner_position(face, 1)),
            to_double(mesh.corner_position(face, 2))};
}

Vec3d middle_of(const Triangle3d& t) {
    return (t[0] + t[1] + t[2]) / 3.0;
}

double reach_of(const Triangle3d& t) {
    const Vec3d m = middle_of(t);
    return std::max({length(t[0] - m), length(t[1] - m), length(t[2] - m)});
}

Box3f box_around(Vec3d p, double reach) {
    Box3f box;
    box.widen(
        {narrow_to_float(p.x - reach), narrow_to_float(p.y - reach), narrow_to_float(p.z - reach)});
    box.widen(
        {narrow_to_float(p.x + reach), narrow_to_float(p.y + reach), narrow_to_float(p.z + reach)});
    return box;
}

FaceTree tree_of(const std::vector<SpoiledPlace>& places, double factor) {
    Array<Box3f> boxes(places.size());
    for (std::size_t i = 0; i < places.size(); ++i) {
        boxes[i] = box_around(places[i].point, factor * places[i].reach);
    }
    return FaceTree(boxes);
}

// A crossing stands at the smaller of its two faces.
std::vector<SpoiledPlace> crossings_of(const TriMesh& mesh) {
    std::vector<SpoiledPlace> places;
    for (const FacePair& pair : find_self_intersections(mesh, kMostPairs).pairs) {
        const Triangle3d a = corners_of(mesh, mesh.faces[pair.first]);
        const Triangle3d b = corners_of(mesh, mesh.faces[pair.second]);
        const Triangle3d& small = reach_of(a) <= reach_of(b) ? a : b;
        places.push_back({middle_of(small), reach_of(small)});
    }
    return places;
}

std::vector<SpoiledPlace> slivers_of(const TriMesh& mesh) {
    std::vector<SpoiledPlace> places;
    for (const Face& face : mesh.faces) {
        if (face.deleted != 0) continue;
        const Triangle3d t = corners_of(mesh, face);
        if (shape_of(t).is_sliver) places.push_back({middle_of(t), reach_of(t)});
    }
    return places;
}

}  // namespace

RemeshReview::RemeshReview(const TriMesh& original, const NearestFace& tree,
                           const SizingField& field)
    : original_(original), tree_(tree), field_(field), normals_(original.vertices.size()) {
    asked_.resize(normals_.size());
    for (std::size_t v = 0; v < asked_.size(); ++v) asked_[v] = field.at_vertex(v);
    for (const Face& face : original.faces) {
        if (face.deleted != 0) continue;
        const Triangle3d t = corners_of(original, face);
        const Vec3d normal = cross(t[1] - t[0], t[2] - t[0]);
        for (const std::int32_t v : face.vertex) {
            Vec3d& sum = normals_[static_cast<std::size_t>(v)];
            sum = sum + normal;
        }
    }
    for (Vec3d& normal : normals_) {
        const double size = length(normal);
        if (size > 0) normal = normal / size;
    }
}

std::vector<SpoiledPlace> RemeshReview::spoiled_places(const TriMesh& made) {
    std::vector<SpoiledPlace> crossings = crossings_of(made);
    if (!crossings.empty()) leave_out_known(crossings, known_crossings_, crossings_of);
    std::vector<SpoiledPlace> slivers = slivers_of(made);
    if (!slivers.empty()) leave_out_known(slivers, known_slivers_, slivers_of);
    crossings.insert(crossings.end(), slivers.begin(), slivers.end());
    for (SpoiledPlace& place : crossings) {
        const NearestPoint found = tree_.find(place.point);
        if (found.is_found()) place.reach = std::max(place.reach, field_.at(found));
    }
    return crossings;
}

// What was there may come to lie an edge beside.
template <typename Find>
void RemeshReview::leave_out_known(std::vector<SpoiledPlace>& places,
                                   std::optional<std::vector<SpoiledPlace>>& known,
                                   Find&& find) const {
    if (!known) known = find(original_);
    std::vector<SpoiledPlace> around = *known;
    for (SpoiledPlace& place : around) {
        const NearestPoint found = tree_.find(place.point);
        if (found.is_found()) place.reach += field_.at(found);
    }
    const FaceTree tree = tree_of(around, 1);
    std::erase_if(places, [&](const SpoiledPlace& place) {
        return tree.visit_overlapping(box_around(place.point, 0),
                                      [](std::uint32_t /*i*/) { return true; });
    });
}

std::size_t RemeshReview::shorten_where_lost(const TriMesh& made, double tolerance,
                                             Array<double>& lengths) const {
    const NearestFace surface(made);
    Array<std::uint8_t> is_lost(original_.vertices.size(), 0);
    parallel_for(is_lost.size(), [&](std::size_t v) {
        const Vec3d normal = normals_[v];
        const Vec3d p = to_double(original_.vertices[v].position());
        const double wanted = field_.at_vertex(v);
        if (dot(normal, normal) == 0) return;
        const double square = surface.find(p).squared_distance;
        const double least = kLeastOfLength * asked_[v];
        if (!(square > least * least) || !std::isfinite(square)) return;
        const double off = std::sqrt(square);
        // The opposite wall, across the body or across a gap.
        const double reach = off / kMostOfWall;
        const NearestPoint wall = tree_.find_facing(p, normal * -1.0, kOpposite, reach * reach);
        double most = kMostOfLength * asked_[v];
        if (wall.is_found()) {
            const bool is_gap = dot(wall.point - p, normal) > 0;
            const double width = std::sqrt(wall.squared_distance);
            if (width > kLeastWall * asked_[v])
                most = std::min(most, (is_gap ? kMostOfGap : kMostOfWall) * width);
        }
        if (off <= tolerance * most) return;
        lengths[v] =
            wanted * std::clamp(0.9 * std::sqrt(most / off), kMostShortening, kLeastShortening);
        is_lost[v] = 1;
    });
    return static_cast<std::size_t>(std::count(is_lost.begin(), is_lost.end(), 1));
}

Array<std::uint8_t> RemeshReview::vertices_near(const std::vector<SpoiledPlace>& places,
                                                double factor) const {
    const FaceTree tree = tree_of(places, factor);
    Array<std::uint8_t> near(original_.vertices.size(), 0);
    parallel_for(near.size(), [&](std::size_t v) {
        const Vec3f p = original_.vertices[v].position();
        Box3f box;
        box.widen(p);
        near[v] = tree.visit_overlapping(box, [](std::uint32_t /*i*/) { return true; }) ? 1 : 0;
    });
    for (const SpoiledPlace& place : places) {
        const NearestPoint found = tree_.find(place.point);
        if (!found.is_found()) continue;
        for (const std::int32_t v : original_.faces[found.face].vertex) {
            near[static_cast<std::size_t>(v)] = 1;
        }
    }
    return near;
}

}  // namespace povmesh
