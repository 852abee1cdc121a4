// Feature edges by dihedral angle and by what the faces carry, then the kind of each vertex by the
// number and the directions of the feature edges that end there.
#include "remesh/features.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

#include "base/parallel.h"
#include "base/poll.h"
#include "base/vec.h"
#include "remesh/corner_attributes.h"

namespace povmesh {
namespace {

std::size_t index(std::int32_t v) {
    return static_cast<std::size_t>(v);
}

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
        if (surface.features[h] != 0) add(surface.target(h));
        const std::uint32_t back = HalfEdgeMesh::previous(h);
        if (surface.opposites[back] == HalfEdgeMesh::kNone) add(surface.origin(back));
    });
    if (count == 0) return HalfEdgeMesh::Free;
    if (count != 2) return HalfEdgeMesh::Fixed;
    const double straight = -dot(directions[0], directions[1]);
    const double lengths = length(directions[0]) * length(directions[1]);
    return straight >= cosine * lengths ? HalfEdgeMesh::Line : HalfEdgeMesh::Fixed;
}

// What the feature edges that hang together at one vertex have in common.
struct Component {
    Box3d box;
    double least_length = std::numeric_limits<double>::max();  // wanted beside them
    bool has_end = false;
    bool is_bound = false;  // by an edge that is a feature whatever its size
};

// Takes back the features that are shorter than an edge and end in nothing. `is_bound` tells of a
// half-edge whether it has to stay.
template <typename IsBound>
void drop_small_features(HalfEdgeMesh& surface, std::span<const float> lengths,
                         const IsBound& is_bound) {
    Array<std::int32_t> parents(surface.positions.size());
    Array<std::uint32_t> counts(parents.size(), 0);
    for (std::size_t v = 0; v < parents.size(); ++v) parents[v] = static_cast<std::int32_t>(v);
    const auto root = [&](std::int32_t v) {
        std::int32_t r = v;
        while (parents[index(r)] != r) r = parents[index(r)] = parents[index(parents[index(r)])];
        return r;
    };
    const auto for_features = [&](auto&& visit) {
        for (std::uint32_t h = 0; h < surface.opposites.size(); ++h) {
            poll_at(h);
            const std::uint32_t g = surface.opposites[h];
            if (surface.features[h] != 0 && (g == HalfEdgeMesh::kNone || h < g)) visit(h);
        }
    };
    for_features([&](std::uint32_t h) {
        const std::int32_t a = root(surface.origin(h));
        const std::int32_t b = root(surface.target(h));
        parents[index(std::max(a, b))] = std::min(a, b);
        ++counts[index(surface.origin(h))];
        ++counts[index(surface.target(h))];
    });
    Array<std::uint32_t> number(parents.size(), 0);
    std::vector<Component> components;
    for_features([&](std::uint32_t h) {
        const std::size_t r = index(root(surface.origin(h)));
        if (number[r] == 0) {
            components.emplace_back();
            number[r] = static_cast<std::uint32_t>(components.size());
        }
        Component& component = components[number[r] - 1];
        for (const std::int32_t v : {surface.origin(h), surface.target(h)}) {
            component.box.widen(surface.position(v));
            component.has_end = component.has_end || counts[index(v)] == 1;
        }
        component.least_length =
            std::min(component.least_length, static_cast<double>(lengths[h / 3]));
        component.is_bound = component.is_bound || is_bound(h);
    });
    for (std::uint32_t h = 0; h < surface.opposites.size(); ++h) {
        poll_at(h);
        if (surface.features[h] == 0) continue;
        const Component& c = components[number[index(root(surface.origin(h)))] - 1];
        const double size = length(c.box.high - c.box.low);
        if (c.has_end && !c.is_bound && size < c.least_length) surface.features[h] = 0;
    }
}

}  // namespace

void mark_features(HalfEdgeMesh& surface, const TriMesh& mesh, double angle,
                   std::span<const float> lengths) {
    const double cosine = std::cos(angle * std::numbers::pi / 180);
    Array<std::uint32_t> faces;
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        poll_at(f);
        if (mesh.faces[f].deleted == 0) faces.push_back(static_cast<std::uint32_t>(f));
    }
    const auto is_border_at = [&](std::uint32_t h) {
        const std::uint32_t g = surface.opposites[h];
        return g == HalfEdgeMesh::kNone ||
               is_border(mesh, mesh.faces[faces[h / 3]], h, mesh.faces[faces[g / 3]], g);
    };
    parallel_for(surface.opposites.size(), [&](std::size_t i) {
        const auto h = static_cast<std::uint32_t>(i);
        const std::uint32_t g = surface.opposites[h];
        if (g == HalfEdgeMesh::kNone) return;
        surface.features[h] = is_sharp(surface, h, cosine) || is_border_at(h) ? 1 : 0;
    });
    drop_small_features(surface, lengths, is_border_at);
    parallel_for(surface.positions.size(), [&](std::size_t v) {
        if (surface.starts[v] == HalfEdgeMesh::kNone) return;
        if (surface.kinds[v] == HalfEdgeMesh::Irregular) return;
        surface.kinds[v] = kind_of(surface, static_cast<std::int32_t>(v), cosine);
    });
}

}  // namespace povmesh
