// A tree over the boxes of all faces finds the pairs that come into question; faces around a vertex
// or an edge of high valence, whose boxes all overlap there, are paired by their directions
// instead.
#include "spatial/self_intersection.h"

#include <algorithm>
#include <span>

#include "base/parallel.h"
#include "spatial/face_tree.h"
#include "spatial/high_valence_pairs.h"
#include "spatial/triangle_intersection.h"

namespace povmesh {
namespace {

FaceTree tree_of_sound_faces(const TriMesh& mesh) {
    Array<Box3f> boxes(mesh.faces.size());
    parallel_for(mesh.faces.size(), [&](std::size_t f) {
        const Face& face = mesh.faces[f];
        boxes[f] = face.deleted == 0 ? face_box(mesh, face) : Box3f();
        if (!boxes[f].is_empty() && !has_area(triangle_of(mesh, face))) boxes[f] = Box3f();
    });
    return FaceTree(boxes);
}

class SelfIntersector {
public:
    explicit SelfIntersector(const TriMesh& mesh)
        : mesh_(mesh),
          tree_(tree_of_sound_faces(mesh)),
          high_valence_(mesh, tree_.numbers()),
          fan_of_node_(high_valence_.common_fans(tree_)) {}

    /// The faces that take part, in the order of the tree: neighbours stand near one another, so
    /// that queries in this order find the tree in the cache.
    std::span<const std::uint32_t> faces() const { return tree_.numbers(); }

    /// Calls `visit(other)` for the faces of a higher index that faces()[place] meets.
    template <typename Visit>
    void visit_higher(std::size_t place, Visit&& visit) const {
        const std::uint32_t face = faces()[place];
        const std::uint32_t fan = high_valence_.fan(face);
        const Triangle triangle = triangle_of(mesh_, mesh_.faces[face]);
        const auto test = [&](std::uint32_t other) {
            if (other > face &&
                meet_beyond_shared(triangle, triangle_of(mesh_, mesh_.faces[other]))) {
                visit(other);
            }
        };
        if (fan == HighValencePairs::kNone) {
            tree_.visit_overlapping(tree_.boxes()[place], [&](std::uint32_t other) {
                test(other);
                return false;
            });
            return;
        }
        tree_.visit_overlapping(
            tree_.boxes()[place],
            [&](std::uint32_t other) {
                if (high_valence_.fan(other) != fan) test(other);
                return false;
            },
            [&](std::uint32_t node) { return fan_of_node_[node] == fan; });
        high_valence_.visit_near(face, test);
    }

private:
    const TriMesh& mesh_;
    FaceTree tree_;
    HighValencePairs high_valence_;
    Array<std::uint32_t> fan_of_node_;
};

}  // namespace

SelfIntersections find_self_intersections(const TriMesh& mesh, std::size_t limit) {
    const SelfIntersector intersector(mesh);
    const std::span<const std::uint32_t> faces = intersector.faces();
    const std::size_t count = faces.size();
    Array<std::uint32_t> met(count);
    parallel_for(count, [&](std::size_t place) {
        std::uint32_t found = 0;
        intersector.visit_higher(place, [&](std::uint32_t /*other*/) { ++found; });
        met[place] = found;
    });

    SelfIntersections result;
    std::vector<std::size_t> places;
    for (std::size_t place = 0; place < count; ++place) {
        result.count += met[place];
        if (met[place] != 0) places.push_back(place);
    }
    // The few faces that the list needs are looked up once more.
    std::sort(places.begin(), places.end(),
              [&](std::size_t a, std::size_t b) { return faces[a] < faces[b]; });
    for (const std::size_t place : places) {
        if (result.pairs.size() >= limit) break;
        const std::size_t first = result.pairs.size();
        intersector.visit_higher(place, [&](std::uint32_t other) {
            result.pairs.push_back({faces[place], other});
        });
        std::sort(result.pairs.begin() + static_cast<std::ptrdiff_t>(first), result.pairs.end(),
                  [](const FacePair& a, const FacePair& b) { return a.second < b.second; });
    }
    if (result.pairs.size() > limit) result.pairs.resize(limit);
    return result;
}

}  // namespace povmesh
