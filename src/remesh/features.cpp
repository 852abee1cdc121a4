// Feature edges by dihedral angle and by what the faces carry, then the kind of each vertex by the
// number and the directions of the feature edges that end there.
#include "remesh/features.h"

#include <cmath>
#include <numbers>

#include "base/parallel.h"
#include "remesh/corner_attributes.h"

namespace povmesh {
namespace {

// True when the two faces of an edge do not continue each other. The half-edge h of face f has g of
// face k for its opposite.
bool is_border(const TriMesh& mesh, const Face& f, std::uint32_t h, const Face& k,
               std::uint32_t g) {
    if (f.label != k.label) return true;
    if (f.label < 0) return false;
    const std::size_t a = h % 3;
    const std::size_t b = HalfEdgeMesh::next(h) % 3;
    return corner_texture(mesh, f, a) != corner_texture(mesh, k, HalfEdgeMesh::next(g) % 3) ||
           corner_texture(mesh, f, b) != corner_texture(mesh, k, g % 3);
}

// A face without area has no direction, so that its edges are no features by their angle.
bool is_sharp(const HalfEdgeMesh& surface, std::uint32_t h, double cosine) {
    const Vec3d m = surface.normal(h / 3);
    const Vec3d n = surface.normal(surface.opposites[h] / 3);
    const double lengths = length(m) * length(n);
    return lengths > 0 && dot(m, n) < cosine * lengths;
}

HalfEdgeMesh::Kind kind_of(const HalfEdgeMesh& surface, std::int32_t v, double cosine) {
    std::array<Vec3d, 2> directions;
    std::size_t count = 0;
    const Vec3d p = surface.position(v);
    const auto add = [&](std::int32_t other) {
        if (count < 2) directions[count] = surface.position(other) - p;
        ++count;
    };
    surface.around(v, [&](std::uint32_t h) {
        if (surface.is_feature[h] != 0) add(surface.target(h));
        const std::uint32_t back = HalfEdgeMesh::previous(h);
        if (surface.opposites[back] == HalfEdgeMesh::kNone) add(surface.origin(back));
    });
    if (count == 0) return HalfEdgeMesh::Free;
    if (count != 2) return HalfEdgeMesh::Fixed;
    const double straight = -dot(directions[0], directions[1]);
    const double lengths = length(directions[0]) * length(directions[1]);
    return straight >= cosine * lengths ? HalfEdgeMesh::Line : HalfEdgeMesh::Fixed;
}

}  // namespace

void mark_features(HalfEdgeMesh& surface, const TriMesh& mesh, double angle) {
    const double cosine = std::cos(angle * std::numbers::pi / 180);
    Array<std::uint32_t> faces;
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        if (mesh.faces[f].deleted == 0) faces.push_back(static_cast<std::uint32_t>(f));
    }
    parallel_for(surface.opposites.size(), [&](std::size_t i) {
        const auto h = static_cast<std::uint32_t>(i);
        const std::uint32_t g = surface.opposites[h];
        if (g == HalfEdgeMesh::kNone) return;
        const bool found =
            is_sharp(surface, h, cosine) ||
            is_border(mesh, mesh.faces[faces[h / 3]], h, mesh.faces[faces[g / 3]], g);
        surface.is_feature[h] = found ? 1 : 0;
    });
    parallel_for(surface.positions.size(), [&](std::size_t v) {
        if (surface.starts[v] == HalfEdgeMesh::kNone) return;
        if (surface.kinds[v] == HalfEdgeMesh::Irregular) return;
        surface.kinds[v] = kind_of(surface, static_cast<std::int32_t>(v), cosine);
    });
}

}  // namespace povmesh
