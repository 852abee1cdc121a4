// A tree over the boxes of faces finds the pairs that come into question; those with a face around
// a vertex or an edge of high valence, whose boxes all overlap there, are found by directions.
#include "spatial/self_intersection.h"

#include <algorithm>
#include <span>

#include "base/parallel.h"
#include "base/poll.h"
#include "spatial/face_tree.h"
#include "spatial/high_valence_pairs.h"
#include "spatial/triangle_intersection.h"

namespace povmesh {
namespace {

bool is_sound(const TriMesh& mesh, const Face& face) {
    return face.deleted == 0 && !face_box(mesh, face).is_empty() &&
           has_area(triangle_of(mesh, face));
}

Array<std::uint32_t> sound_faces(const TriMesh& mesh) {
    Array<std::uint8_t> sound(mesh.faces.size());
    parallel_for(sound.size(),
                 [&](std::size_t f) { sound[f] = is_sound(mesh, mesh.faces[f]) ? 1 : 0; });
    Array<std::uint32_t> faces;
    for (std::uint32_t f = 0; f < sound.size(); ++f) {
        poll_at(f);
        if (sound[f] != 0) faces.push_back(f);
    }
    return faces;
}

// The pairs among some sound faces. Those around hubs are found through these, the others by a tree
// over their boxes.
class SelfIntersector {
public:
    SelfIntersector(const TriMesh& mesh, std::span<const std::uint32_t> faces)
        : mesh_(mesh), high_valence_(mesh, faces) {
        Array<std::uint32_t> plain;
        Poller poller;
        for (const std::uint32_t face : faces) {
            poller();
            (high_valence_.fan(face) == HighValencePairs::kNone ? plain : order_).push_back(face);
        }
        Array<Box3f> boxes;
        polled_resize(boxes, plain.size());
        parallel_for(plain.size(),
                     [&](std::size_t i) { boxes[i] = face_box(mesh, mesh.faces[plain[i]]); });
        tree_ = FaceTree(boxes, plain);
        order_.insert(order_.end(), tree_.numbers().begin(), tree_.numbers().end());
    }

    /// The faces, most in the order of the tree: neighbours stand near one another, so that queries
    /// in this order find the tree in the cache.
    std::span<const std::uint32_t> faces() const { return order_; }

    /// Calls `visit(other)` for the faces that `face` meets, of those that `is_wanted` says.
    template <typename Wanted, typename Visit>
    void visit_met(std::uint32_t face, Wanted&& is_wanted, Visit&& visit) const {
        const Triangle triangle = triangle_of(mesh_, mesh_.faces[face]);
        const Box3f box = face_box(mesh_, mesh_.faces[face]);
        const auto test = [&](std::uint32_t other) {
            if (is_wanted(other) &&
                meet_beyond_shared(triangle, triangle_of(mesh_, mesh_.faces[other]))) {
                visit(other);
            }
            return false;
        };
        tree_.visit_overlapping(box, test);
        high_valence_.visit_near(face, box, test);
    }

    template <typename Visit>
    void visit_higher(std::uint32_t face, Visit&& visit) const {
        visit_met(
            face, [face](std::uint32_t other) { return other > face; }, visit);
    }

private:
    const TriMesh& mesh_;
    HighValencePairs high_valence_;
    FaceTree tree_;
    Array<std::uint32_t> order_;
};

// Of the sound faces those with a box that overlaps one of `faces`.
Array<std::uint32_t> faces_near(const TriMesh& mesh, std::span<const std::uint32_t> faces) {
    Array<Box3f> boxes;
    for (const std::uint32_t face : faces) {
        const Face& at = mesh.faces[face];
        boxes.push_back(is_sound(mesh, at) ? face_box(mesh, at) : Box3f());
    }
    const FaceTree tree(boxes, faces);
    Array<std::uint32_t> near;
    for (std::uint32_t f = 0; f < mesh.faces.size(); ++f) {
        poll_at(f);
        if (mesh.faces[f].deleted == 0 &&
            tree.visit_overlapping(face_box(mesh, mesh.faces[f]),
                                   [](std::uint32_t) { return true; }) &&
            is_sound(mesh, mesh.faces[f])) {
            near.push_back(f);
        }
    }
    return near;
}

}  // namespace

SelfIntersections find_self_intersections(const TriMesh& mesh, std::size_t limit) {
    const SelfIntersector intersector(mesh, sound_faces(mesh));
    const std::span<const std::uint32_t> faces = intersector.faces();
    const std::size_t count = faces.size();
    Array<std::uint32_t> met(count);
    parallel_for(count, [&](std::size_t place) {
        std::uint32_t found = 0;
        intersector.visit_higher(faces[place], [&](std::uint32_t /*other*/) { ++found; });
        met[place] = found;
    });

    SelfIntersections result;
    Array<std::size_t> places;
    for (std::size_t place = 0; place < count; ++place) {
        poll_at(place);
        result.count += met[place];
        if (met[place] != 0) places.push_back(place);
    }
    // The few faces that the list needs are looked up once more.
    polled_sort(places.begin(), places.end(),
                [&](std::size_t a, std::size_t b) { return faces[a] < faces[b]; });
    for (const std::size_t place : places) {
        poll();
        if (result.pairs.size() >= limit) break;
        const std::size_t first = result.pairs.size();
        intersector.visit_higher(faces[place], [&](std::uint32_t other) {
            result.pairs.push_back({faces[place], other});
        });
        std::sort(result.pairs.begin() + static_cast<std::ptrdiff_t>(first), result.pairs.end(),
                  [](const FacePair& a, const FacePair& b) { return a.second < b.second; });
    }
    if (result.pairs.size() > limit) result.pairs.resize(limit);
    return result;
}

std::vector<FacePair> find_meetings(const TriMesh& mesh, std::span<const std::uint32_t> faces) {
    const SelfIntersector intersector(mesh, faces_near(mesh, faces));
    std::vector<FacePair> pairs;
    for (const std::uint32_t face : faces) {
        poll();
        if (!is_sound(mesh, mesh.faces[face])) continue;
        intersector.visit_met(
            face, [face](std::uint32_t other) { return other != face; },
            [&](std::uint32_t other) {
                pairs.push_back({face, other});
            });
    }
    polled_sort(pairs.begin(), pairs.end(), [](const FacePair& a, const FacePair& b) {
        return a.first != b.first ? a.first < b.first : a.second < b.second;
    });
    return pairs;
}

}  // namespace povmesh
