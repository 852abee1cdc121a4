// Finds pairs of faces around a vertex or an edge that very many faces share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/array.h"
#include "mesh/tri_mesh.h"
#include "spatial/face_tree.h"

namespace povmesh {

/// Faces around a common vertex all have boxes that overlap there, and a box tree would pair each
/// with each. They can meet away from that vertex, the hub, only where they lie in the same
/// direction from it; so those of a hub get a tree over the boxes of their directions. Faces around
/// a common edge agree in one direction even so; they can meet only when they have the same normal,
/// and get a tree over these.
///
/// Each face belongs to one hub vertex at most, and to one hub edge at that vertex. Triangles
/// without area must be left out.
class HighValencePairs {
public:
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;

    /// Faces around a vertex or an edge from which on it is a hub. Below, pairing all with all
    /// costs less than a tree of their own.
    static constexpr std::uint32_t kHubSize = 256;

    /// @param faces  those that take part, finite and with area
    HighValencePairs(const TriMesh& mesh, std::span<const std::uint32_t> faces);

    /// The hub vertex or hub edge of a face, by number; kNone for most.
    std::uint32_t vertex_hub(std::uint32_t face) const { return of(vertex_hub_, face); }
    std::uint32_t edge_hub(std::uint32_t face) const { return of(edge_hub_, face); }

    /// The hub that all entries below each node of a tree belong to.
    Array<std::uint32_t> common_vertex_hubs(const FaceTree& tree) const;

    /// Calls `visit(other)` for the faces of the same hub that may meet `face` away from it, each
    /// once, `face` itself included.
    template <typename Visit>
    void visit_near(std::uint32_t face, Visit&& visit) const;

private:
    // Around one vertex: a tree over directions, and the hub edge that all faces below each of its
    // nodes belong to.
    struct VertexHub {
        std::int32_t vertex;
        FaceTree tree;
        Array<std::uint32_t> edge_hub_of_node;
    };
    struct EdgeHub {
        std::int32_t a, b;
        FaceTree tree;
    };

    static std::uint32_t of(const Array<std::uint32_t>& hubs, std::uint32_t face) {
        return hubs.empty() ? kNone : hubs[face];
    }
    void find_edge_hubs(std::span<const std::uint32_t> faces, std::int32_t vertex,
                        Array<std::uint32_t>& uses, Array<std::uint32_t>& hub_of_vertex);
    void build_trees(const std::vector<std::vector<std::uint32_t>>& faces_of_hub);
    Box3f direction_box(std::uint32_t face, std::int32_t vertex) const;
    Box3f normal_box(std::uint32_t face, const EdgeHub& hub) const;

    const TriMesh& mesh_;
    std::vector<VertexHub> vertex_hubs_;
    std::vector<EdgeHub> edge_hubs_;
    Array<std::uint32_t> vertex_hub_;  // by face; empty without hubs
    Array<std::uint32_t> edge_hub_;
};

template <typename Visit>
void HighValencePairs::visit_near(std::uint32_t face, Visit&& visit) const {
    if (vertex_hub(face) == kNone) return;
    const VertexHub& around = vertex_hubs_[vertex_hub(face)];
    const std::uint32_t edge = edge_hub(face);
    around.tree.visit_overlapping(
        direction_box(face, around.vertex),
        [&](std::uint32_t other) {
            if (edge == kNone || edge_hub(other) != edge) visit(other);
            return false;
        },
        [&](std::uint32_t node) { return edge != kNone && around.edge_hub_of_node[node] == edge; });
    if (edge == kNone) return;
    edge_hubs_[edge].tree.visit_overlapping(normal_box(face, edge_hubs_[edge]),
                                            [&](std::uint32_t other) {
                                                visit(other);
                                                return false;
                                            });
}

}  // namespace povmesh
