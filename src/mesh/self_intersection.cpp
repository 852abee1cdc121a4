#include "mesh/self_intersection.h"

#include <algorithm>

#include "base/parallel.h"
#include "mesh/face_tree.h"
#include "mesh/triangle_intersection.h"

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

/// Calls `visit(other)` for the faces of a higher index that the face at a place of the tree meets.
template <typename Visit>
void visit_higher(const TriMesh& mesh, const FaceTree& tree, std::size_t place, Visit&& visit) {
    const std::uint32_t face = tree.numbers()[place];
    const Triangle triangle = triangle_of(mesh, mesh.faces[face]);
    tree.visit_overlapping(tree.boxes()[place], [&](std::uint32_t other) {
        if (other > face && meet_beyond_shared(triangle, triangle_of(mesh, mesh.faces[other]))) {
            visit(other);
        }
        return false;
    });
}

}  // namespace

SelfIntersections find_self_intersections(const TriMesh& mesh, std::size_t limit) {
    const FaceTree tree = tree_of_sound_faces(mesh);
    const std::size_t count = tree.numbers().size();

    // Places of the tree lie near one another, so in their order the queries find it in the cache.
    Array<std::uint32_t> met(count);
    parallel_for(count, [&](std::size_t place) {
        std::uint32_t found = 0;
        visit_higher(mesh, tree, place, [&](std::uint32_t /*other*/) { ++found; });
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
              [&](std::size_t a, std::size_t b) { return tree.numbers()[a] < tree.numbers()[b]; });
    for (const std::size_t place : places) {
        if (result.pairs.size() >= limit) break;
        const std::size_t first = result.pairs.size();
        visit_higher(mesh, tree, place, [&](std::uint32_t other) {
            result.pairs.push_back({tree.numbers()[place], other});
        });
        std::sort(result.pairs.begin() + static_cast<std::ptrdiff_t>(first), result.pairs.end(),
                  [](const FacePair& a, const FacePair& b) { return a.second < b.second; });
    }
    if (result.pairs.size() > limit) result.pairs.resize(limit);
    return result;
}

}  // namespace povmesh
