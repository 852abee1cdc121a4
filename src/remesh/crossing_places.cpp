// Both meshes are searched only where that is needed: the changed one around its changed faces, the
// original around the crossings that are found there.
#include "remesh/crossing_places.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "base/convert.h"
#include "base/parallel.h"
#include "mesh/bounds.h"
#include "remesh/place_mask.h"
#include "spatial/self_intersection.h"

namespace povmesh {
namespace {

constexpr std::size_t kMostPairs = 100'000;

// What crosses near a crossing of the original, within this share of the size of the two faces
// there, is the same crossing.
constexpr double kKnownMargin = 0.125;

// Cells along the grid that rounds these places.
constexpr double kCells = 128;

double size_of(const CrossingPlace& place) {
    Box3d box;
    for (const Triangle3d& t : {place.first, place.second}) {
        for (const Vec3d p : t) box.widen(p);
    }
    return length(box.high - box.low);
}

std::vector<CrossingPlace> crossing_places(const TriMesh& mesh) {
    const auto corners_of = [&](std::uint32_t f) {
        const Face& face = mesh.faces[f];
        return Triangle3d{to_double(mesh.corner_position(face, 0)),
                          to_double(mesh.corner_position(face, 1)),
                          to_double(mesh.corner_position(face, 2))};
    };
    std::vector<CrossingPlace> places;
    for (const FacePair& pair : find_self_intersections(mesh, kMostPairs).pairs) {
        const Triangle3d first = corners_of(pair.first);
        const Triangle3d second = corners_of(pair.second);
        Box3d a;
        Box3d b;
        for (const Vec3d p : first) a.widen(p);
        for (const Vec3d p : second) b.widen(p);
        const Box3d common = {
            {std::max(a.low.x, b.low.x), std::max(a.low.y, b.low.y), std::max(a.low.z, b.low.z)},
            {std::min(a.high.x, b.high.x), std::min(a.high.y, b.high.y),
             std::min(a.high.z, b.high.z)}};
        places.push_back({first, second, common});
    }
    return places;
}

}  // namespace

Box3f outward(const Box3d& box) {
    constexpr float kFar = std::numeric_limits<float>::infinity();
    const auto down = [](double x) { return std::nextafter(narrow_to_float(x), -kFar); };
    const auto up = [](double x) { return std::nextafter(narrow_to_float(x), kFar); };
    Box3f around;
    around.low = {down(box.low.x), down(box.low.y), down(box.low.z)};
    around.high = {up(box.high.x), up(box.high.y), up(box.high.z)};
    return around;
}

TriMesh faces_near(const TriMesh& mesh, const FaceTree& tree) {
    Array<std::uint8_t> is_near(mesh.faces.size(), 0);
    parallel_for(is_near.size(), [&](std::size_t f) {
        const Face& face = mesh.faces[f];
        if (face.deleted == 0) is_near[f] = overlaps(tree, face_box(mesh, face)) ? 1 : 0;
    });
    TriMesh near;
    near.vertices = mesh.vertices;
    for (std::size_t f = 0; f < is_near.size(); ++f) {
        if (is_near[f] != 0) near.faces.push_back(mesh.faces[f]);
    }
    return near;
}

FaceTree tree_of_faces(const TriMesh& mesh, std::span<const std::uint8_t> takes) {
    Array<Box3f> boxes(mesh.faces.size());
    for (std::size_t f = 0; f < boxes.size(); ++f) {
        if (takes[f] != 0) boxes[f] = face_box(mesh, mesh.faces[f]);
    }
    return FaceTree(boxes);
}

std::vector<CrossingPlace> new_crossing_places(const TriMesh& original, const TriMesh& made,
                                               std::span<const std::uint8_t> changed) {
    std::vector<CrossingPlace> places =
        crossing_places(changed.empty() ? made : faces_near(made, tree_of_faces(made, changed)));
    if (places.empty()) return places;
    const Box3f bounds = finite_bounds(original);
    const double cell = length(to_double(bounds.extent())) / kCells;
    Array<Box3f> around(places.size());
    for (std::size_t i = 0; i < places.size(); ++i) {
        around[i] = outward(grown(places[i].common, cell + 2 * size_of(places[i])));
    }
    PlaceMask known(bounds);
    for (const CrossingPlace& place : crossing_places(faces_near(original, FaceTree(around)))) {
        known.add(grown(place.common, kKnownMargin * size_of(place)));
    }
    known.finish();
    std::erase_if(places, [&](const CrossingPlace& place) { return known.meets(place.common); });
    return places;
}

}  // namespace povmesh
