// The distance of the original's vertices from the result tells what has been lost, and exact tests
// of all pairs of faces tell what crosses. Both are asked after the fact, because what a run of
// remeshing will do to a thin place is hard to tell beforehand, and most runs do no harm.
#include "remesh/remesh_review.h"

#include <algorithm>
#include <cmath>

#include "base/convert.h"
#include "base/parallel.h"
#include "base/poll.h"
#include "remesh/crossing_places.h"
#include "remesh/triangle_shape.h"
#include "spatial/face_tree.h"

namespace povmesh {
namespace {

// Shares of the length, and of the distance to the opposite wall, by which a place may be off.
constexpr double kMostOfLength = 0.35;
constexpr double kMostOfWall = 0.2;
constexpr double kMostOfGap = 0.5;
constexpr double kLeastWall = 0.05;

// Distances below this share of the length are of no interest.
constexpr double kLeastOfLength = 0.02;

// Vertices that are looked at first, of as many as there may be.
constexpr std::size_t kSamples = 20'000;

// Cosine beyond which a face looks the opposite way.
constexpr double kOpposite = 0.5;

// Bounds of the factor of one shortening. The distance falls with the square of the length.
constexpr double kMostShortening = 0.35;
constexpr double kLeastShortening = 0.85;

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
SpoiledPlace spoiled_at(const CrossingPlace& place) {
    const bool is_first = reach_of(place.first) <= reach_of(place.second);
    const Triangle3d& small = is_first ? place.first : place.second;
    return {middle_of(small), reach_of(small), place.common};
}

// Of the faces that are marked, or of all where none can be.
std::vector<SpoiledPlace> slivers_of(const TriMesh& mesh, std::span<const std::uint8_t> takes) {
    std::vector<SpoiledPlace> places;
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        poll_at(f);
        const Face& face = mesh.faces[f];
        if (face.deleted != 0 || (!takes.empty() && takes[f] == 0)) continue;
        const Triangle3d t = corners_of(mesh, face);
        if (!shape_of(t).is_sliver) continue;
        Box3d middle;
        middle.widen(middle_of(t));
        places.push_back({middle_of(t), reach_of(t), middle});
    }
    return places;
}

}  // namespace

RemeshReview::RemeshReview(const TriMesh& original, const NearestFace& tree,
                           const SizingField& field)
    : original_(original), tree_(tree), field_(field), normals_(original.vertices.size()) {
    asked_.resize(normals_.size());
    for (std::size_t v = 0; v < asked_.size(); ++v) asked_[v] = field.at_vertex(v);
    Poller poller;
    for (const Face& face : original.faces) {
        poller();
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

std::vector<SpoiledPlace> RemeshReview::spoiled_places(const TriMesh& made,
                                                       std::span<const std::uint8_t> changed,
                                                       std::span<const SpoiledPlace> before) const {
    std::vector<SpoiledPlace> places;
    for (const CrossingPlace& place : new_crossing_places(original_, made, changed)) {
        places.push_back(spoiled_at(place));
    }
    for (const SpoiledPlace& place : new_slivers(made, changed)) places.push_back(place);
    for (SpoiledPlace& place : places) {
        const NearestPoint found = tree_.find(place.point);
        if (found.is_found()) place.reach = std::max(place.reach, field_.at(found));
    }
    if (before.empty()) return places;
    const FaceTree tree = tree_of_faces(made, changed);
    for (const SpoiledPlace& place : before) {
        if (!overlaps(tree, outward(place.box))) places.push_back(place);
    }
    return places;
}

// What was there may come to lie an edge beside.
std::vector<SpoiledPlace> RemeshReview::new_slivers(const TriMesh& made,
                                                    std::span<const std::uint8_t> changed) const {
    std::vector<SpoiledPlace> places = slivers_of(made, changed);
    if (places.empty()) return places;
    std::vector<SpoiledPlace> known = slivers_of(original_, {});
    for (SpoiledPlace& place : known) {
        const NearestPoint found = tree_.find(place.point);
        if (found.is_found()) place.reach += field_.at(found);
    }
    const FaceTree tree = tree_of(known, 1);
    std::erase_if(places, [&](const SpoiledPlace& place) {
        return overlaps(tree, box_around(place.point, 0));
    });
    return places;
}

bool RemeshReview::shorten_where_lost(const TriMesh& made, double tolerance, double least_share,
                                      Array<double>& lengths) const {
    const NearestFace surface(made);
    Array<std::uint8_t> is_lost(original_.vertices.size(), 0);
    const auto look_at = [&](std::size_t v) {
        const Vec3d normal = normals_[v];
        const Vec3d p = to_double(original_.vertices[v].position());
        const double wanted = field_.at_vertex(v);
        if (dot(normal, normal) == 0) return;
        // Most are near: then nothing farther needs a look.
        const double least = kLeastOfLength * asked_[v];
        if (surface.find_any(p, least * least).is_found()) return;
        const double square = surface.find(p).squared_distance;
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
    };
    // A part of them tells whether it is worth it.
    const std::size_t step = std::max<std::size_t>(is_lost.size() / kSamples, 1);
    const std::size_t samples = (is_lost.size() + step - 1) / step;
    parallel_for(samples, [&](std::size_t i) { look_at(i * step); });
    const auto count = static_cast<double>(std::count(is_lost.begin(), is_lost.end(), 1));
    if (count < least_share * static_cast<double>(samples) || count == 0) return false;
    parallel_for(is_lost.size(), [&](std::size_t v) {
        if (v % step != 0) look_at(v);
    });
    return true;
}

Array<std::uint8_t> RemeshReview::vertices_near(const std::vector<SpoiledPlace>& places,
                                                double factor) const {
    const FaceTree tree = tree_of(places, factor);
    Array<std::uint8_t> near(original_.vertices.size(), 0);
    parallel_for(near.size(), [&](std::size_t v) {
        const Vec3f p = original_.vertices[v].position();
        Box3f box;
        box.widen(p);
        near[v] = overlaps(tree, box) ? 1 : 0;
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
