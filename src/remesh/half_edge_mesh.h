// A triangle mesh whose edges can be split, flipped and collapsed.
//
//             apex(h)
//             /    \           h = 3 * triangle + corner runs from that corner to the next one;
//            /  h   \          its triangle lies to the left
//          a ------> b         a = origin(h), b = target(h)
//            \  o   /          o = opposites[h] runs from b to a
//             \    /
//             apex(o)
//
// split(h) puts a vertex on the edge, joined to both apexes; flip(h) lets it run from one apex to
// the other; collapse(h) merges b into a: the triangles of h and o go, all others at b are handed
// to a.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "base/array.h"
#include "base/convert.h"
#include "base/poll.h"
#include "base/vec.h"
#include "mesh/edge_mates.h"
#include "mesh/tri_mesh.h"
#include "remesh/triangle_half_edges.h"

namespace povmesh {

/// True when a face with the first normal, of any length, would turn by more than 60 degrees to get
/// the second one; also when either is none.
inline bool turns(Vec3d before, Vec3d after) {
    constexpr double kLeastCosine = 0.5;
    const double d = dot(before, after);
    return !(d > 0 &&
             d * d > kLeastCosine * kLeastCosine * dot(before, before) * dot(after, after));
}

/// Puts items into an order of old numbers.
template <typename T>
void rearrange(Array<T>& items, const Array<std::uint32_t>& order) {
    Array<T> sorted(order.size());
    for (std::size_t i = 0; i < order.size(); ++i) sorted[i] = items[order[i]];
    items.swap(sorted);
}

/// Triangles on flat arrays.
///
/// Invariants: opposites[opposites[h]] == h unless it is kNone; the two run in opposite directions
/// between the same vertices. starts[v] is a half-edge from v. Triangles that are gone have kGone
/// as their first vertex and come back with the next one that is made.
///
/// Edges of more than two faces, and those whose faces are wound against each other, have no
/// opposite here and are locked.
class HalfEdgeMesh {
public:
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;
    static constexpr std::int32_t kGone = -1;

    /// A vertex of more triangles has a high valence: going round it once for each of them would be
    /// quadratic.
    static constexpr std::uint32_t kMaxValence = 128;

    enum Kind : std::uint8_t {
        Free,       // inside a smooth patch
        Line,       // on a feature line, between just two of its edges
        Fixed,      // where lines end, meet or turn sharply
        Irregular,  // on an edge without opposite that is not open, or where several fans meet
    };

    Array<std::array<std::int32_t, 3>> triangles;
    Array<std::uint32_t> opposites;  // 3 a triangle
    Array<std::uint32_t> features;   // 3 a triangle: not 0 where the edge must stay on its line
    Array<std::uint8_t> is_locked;   // 3 a triangle: the edge is irregular and may not be split
    Array<Vec3d> positions;
    Array<std::uint32_t> starts;
    Array<std::uint32_t> valences;  // triangles at each vertex
    Array<std::uint8_t> kinds;

    /// Of the live faces of a mesh; triangle t is the t-th of them. Features are not marked, but
    /// for edges without an opposite.
    HalfEdgeMesh(const TriMesh& mesh, const EdgeMates& mates);

    static std::uint32_t next(std::uint32_t h) { return next_half_edge(h); }
    static std::uint32_t previous(std::uint32_t h) { return previous_half_edge(h); }
    static std::size_t index(std::int32_t v) { return static_cast<std::size_t>(v); }

    bool is_gone(std::size_t triangle) const { return triangles[triangle][0] == kGone; }
    std::int32_t origin(std::uint32_t h) const { return triangles[h / 3][h % 3]; }
    std::int32_t target(std::uint32_t h) const { return origin(next(h)); }
    std::int32_t apex(std::uint32_t h) const { return origin(previous(h)); }
    Vec3d position(std::int32_t v) const { return positions[index(v)]; }
    Vec3d normal(std::size_t triangle) const {  // not of unit length
        const std::array<std::int32_t, 3>& t = triangles[triangle];
        const Vec3d p = position(t[0]);
        return cross(position(t[1]) - p, position(t[2]) - p);
    }
    double squared_length(std::uint32_t h) const {
        const Vec3d along = position(target(h)) - position(origin(h));
        return dot(along, along);
    }

    /// Calls visit(h) for each half-edge from the vertex in its fan; of several fans, in one. Where
    /// `previous(h)` has no opposite, the neighbour at the open border is the apex of h.
    template <typename Visit>
    void around(std::int32_t v, Visit&& visit) const {
        const std::uint32_t first = starts[index(v)];
        std::uint32_t h = first;
        do {
            visit(h);
            h = opposites[previous(h)];
        } while (h != kNone && h != first);
        if (h == first) return;
        // An open fan: what lies on the other side of the start.
        for (h = first; opposites[h] != kNone;) {
            h = next(opposites[h]);
            visit(h);
        }
    }

    bool is_open(std::int32_t v) const;

    /// The other feature edge at a vertex between two, as a half-edge from or to it.
    std::uint32_t feature_beyond(std::int32_t v, std::uint32_t edge) const;

    /// Puts a vertex on an edge. Returns the vertex; its kind is Line on a feature, else Free.
    std::int32_t split(std::uint32_t h, Vec3d place);

    /// True when the edge is no feature, has two triangles, and turning it would neither double an
    /// edge nor leave a vertex inside with two triangles. Not between two vertices of
    /// high valence or irregular.
    bool can_flip(std::uint32_t h) const;

    /// Turns an edge with two triangles within their quadrilateral. The half-edge keeps its number.
    void flip(std::uint32_t h);

    /// True when the edge can go without pinching the surface or joining feature lines. That an
    /// inner edge does not join two open borders is for the caller to see to. Where the two
    /// valences together are high, only on demand, and not when the target's is.
    bool can_collapse(std::uint32_t h, bool into_high_valence = false) const;

    /// Merges the target of the edge into its origin, which moves to `place`.
    void collapse(std::uint32_t h, Vec3d place);

    /// Old numbers, by new number.
    struct Order {
        Array<std::uint32_t> triangles, vertices;
    };

    /// Numbers triangles and vertices so that those near by in space are mostly near by in memory:
    /// what goes over all of them then takes half the time. Triangles that are gone, and vertices
    /// without any, are left out. Half-edges keep their corner.
    Order order_in_space();

    /// The triangles t for which takes(t), in their order, white and without labels, with all the
    /// vertices.
    template <typename Takes>
    TriMesh plain_mesh(Takes&& takes) const;

private:
    bool are_neighbours(std::int32_t v, std::int32_t w) const;  // v is regular
    std::size_t common_neighbours(std::int32_t a, std::int32_t b, bool has_high_valence) const;
    std::uint32_t new_triangle();
    std::uint32_t split_side(std::uint32_t h, std::int32_t m);
    void join(std::uint32_t h, std::uint32_t g);
    void remove_side(std::uint32_t h);

    Array<std::uint32_t> unused_;  // triangles
};

template <typename Takes>
TriMesh HalfEdgeMesh::plain_mesh(Takes&& takes) const {
    TriMesh mesh;
    mesh.vertices.reserve(positions.size());
    for (std::size_t v = 0; v < positions.size(); ++v) {
        poll_at(v);
        const Vec3d p = positions[v];
        mesh.vertices.push_back({narrow_to_float(p.x), narrow_to_float(p.y), narrow_to_float(p.z),
                                 static_cast<std::int32_t>(v)});
    }
    std::size_t count = 0;
    for (std::size_t t = 0; t < triangles.size(); ++t) count += !is_gone(t) && takes(t) ? 1 : 0;
    mesh.faces.reserve(count);
    for (std::size_t t = 0; t < triangles.size(); ++t) {
        poll_at(t);
        if (is_gone(t) || !takes(t)) continue;
        Face face{{}, 0, -1, triangles[t], {-1, -1, -1}};
        face.colour.fill(255);
        mesh.faces.push_back(face);
    }
    return mesh;
}

}  // namespace povmesh
