// A tree over the boxes of faces finds the pairs that come into question; those with a face around
// a vertex or an edge of high valence, whose boxes all overlap there, are found by directions.
#include "spatial/self_intersection.h"

#include <algorithm>
#include <array>
#include <atomic>
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
            (high_valence_.fan(face) == HighValencePairs::kNone ? plain : of_fans_).push_back(face);
        }
        Array<Box3f> boxes;
        polled_resize(boxes, plain.size());
        parallel_for(plain.size(),
                     [&](std::size_t i) { boxes[i] = face_box(mesh, mesh.faces[plain[i]]); });
        tree_ = FaceTree(boxes, plain);
    }

    /// Calls `visit(face, other)` from all threads at the same time, once for every pair that meets.
    template <typename Visit>
    void visit_all(const Visit& visit) const {
        const std::span<const FaceTree::Node> nodes = tree_.nodes();
        Array<std::uint32_t> leaves;
        for (std::uint32_t n = 0; n < nodes.size(); ++n) {
            poll_at(n);
            if (nodes[n].is_leaf()) leaves.push_back(n);
        }
        parallel_for(leaves.size(), [&](std::size_t i) { visit_from_leaf(leaves[i], visit); });
        if (of_fans_.empty()) return;
        const auto visit_from = [&](std::uint32_t face) {
            return [&visit, face](std::uint32_t other) { visit(face, other); };
        };
        const auto is_higher = [](std::uint32_t face) {
            return [face](std::uint32_t other) { return other > face; };
        };
        parallel_for(of_fans_.size(), [&](std::size_t i) {
            visit_met(of_fans_[i], is_higher(of_fans_[i]), visit_from(of_fans_[i]));
        });
        parallel_for(tree_.numbers().size(), [&](std::size_t i) {
            const std::uint32_t face = tree_.numbers()[i];
            visit_met_of_fans(face, is_higher(face), visit_from(face));
        });
    }

    /// Calls `visit(other)` for the faces that `face` meets, of those that `is_wanted` says.
    template <typename Wanted, typename Visit>
    void visit_met(std::uint32_t face, const Wanted& is_wanted, const Visit& visit) const {
        const Triangle triangle = triangle_of(mesh_, mesh_.faces[face]);
        tree_.visit_overlapping(face_box(mesh_, mesh_.faces[face]), [&](std::uint32_t other) {
            if (is_wanted(other) &&
                meet_beyond_shared(triangle, triangle_of(mesh_, mesh_.faces[other]))) {
                visit(other);
            }
            return false;
        });
        visit_met_of_fans(face, is_wanted, visit);
    }

private:
    template <typename Wanted, typename Visit>
    void visit_met_of_fans(std::uint32_t face, const Wanted& is_wanted, const Visit& visit) const {
        if (of_fans_.empty()) return;
        const Triangle triangle = triangle_of(mesh_, mesh_.faces[face]);
        const auto test = [&](std::uint32_t other) {
            if (is_wanted(other) &&
                meet_beyond_shared(triangle, triangle_of(mesh_, mesh_.faces[other]))) {
                visit(other);
            }
        };
        high_valence_.visit_near(face, face_box(mesh_, mesh_.faces[face]), test);
    }

    template <typename Visit>
    void visit_from_leaf(std::uint32_t leaf, const Visit& visit) const {
        const std::uint32_t first = tree_.nodes()[leaf].place;
        std::array<Triangle, FaceTree::kLeafSize> own;
        for (std::uint32_t i = 0; i < tree_.nodes()[leaf].count; ++i) own[i] = triangle(first + i);
        Triangle other = own[0];
        std::uint32_t at = first;  // the entry that this is
        tree_.visit_later_pairs(leaf, [&](std::uint32_t i, std::uint32_t j) {
            if (j != at) other = triangle(at = j);
            if (meet_beyond_shared(own[i - first], other)) {
                visit(tree_.numbers()[i], tree_.numbers()[j]);
            }
        });
    }

    Triangle triangle(std::uint32_t entry) const {
        return triangle_of(mesh_, mesh_.faces[tree_.numbers()[entry]]);
    }

    const TriMesh& mesh_;
    HighValencePairs high_valence_;
    FaceTree tree_;
    Array<std::uint32_t> of_fans_;
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
    // By face: how many it meets that have higher numbers.
    Array<std::uint32_t> met(mesh.faces.size(), 0);
    intersector.visit_all([&](std::uint32_t face, std::uint32_t other) {
        // Sums are the same in any order.
        std::atomic_ref(met[std::min(face, other)]).fetch_add(1, std::memory_order_relaxed);
    });

    SelfIntersections result;
    for (std::uint32_t face = 0; face < met.size(); ++face) {
        poll_at(face);
        result.count += met[face];
        if (met[face] == 0 || result.pairs.size() >= limit) continue;
        // The few faces that the list needs are looked up once more.
        poll();
        const std::size_t first = result.pairs.size();
        intersector.visit_met(
            face, [face](std::uint32_t other) { return other > face; },
            [&](std::uint32_t other) {
                result.pairs.push_back({face, other});
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
