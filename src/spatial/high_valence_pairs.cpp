#include "spatial/high_valence_pairs.h"

#include <algorithm>
#include <array>
#include <utility>

#include "spatial/triangle_intersection.h"

namespace povmesh {
namespace {

// Directions are unit vectors in double, boxes are in floats: a margin that covers both roundings.
constexpr double kMargin = 1e-6;

// Rounding of a cross product, relative to the lengths of its factors, with room to spare.
constexpr double kCrossRounding = 1e-15;

Box3f box_around(Vec3d a, Vec3d b, double margin) {
    Box3f box;
    for (const Vec3d p : {a, b}) {
        for (const double m : {-margin, margin}) {
            box.widen({static_cast<float>(p.x + m), static_cast<float>(p.y + m),
                       static_cast<float>(p.z + m)});
        }
    }
    return box;
}

// For each node of a tree the hub of all faces below it, or kNone.
template <typename HubOf>
Array<std::uint32_t> common_hubs(const FaceTree& tree, HubOf&& hub_of) {
    const auto nodes = tree.nodes();
    Array<std::uint32_t> common(nodes.size());
    for (std::size_t i = nodes.size(); i-- > 0;) {
        const FaceTree::Node& node = nodes[i];
        if (node.is_leaf()) {
            const auto faces = tree.numbers().subspan(node.place, node.count);
            common[i] = hub_of(faces[0]);
            for (const std::uint32_t face : faces) {
                if (hub_of(face) != common[i]) common[i] = HighValencePairs::kNone;
            }
        } else {
            common[i] =
                common[i + 1] == common[node.place] ? common[i + 1] : HighValencePairs::kNone;
        }
    }
    return common;
}

}  // namespace

HighValencePairs::HighValencePairs(const TriMesh& mesh, std::span<const std::uint32_t> faces)
    : mesh_(mesh) {
    Array<std::uint32_t> uses(mesh.vertices.size(), 0);
    for (const std::uint32_t face : faces) {
        for (const std::int32_t v : mesh.faces[face].vertex) ++uses[static_cast<std::size_t>(v)];
    }
    if (uses.empty() || *std::max_element(uses.begin(), uses.end()) < kHubSize) return;

    vertex_hub_.assign(mesh.faces.size(), kNone);
    edge_hub_.assign(mesh.faces.size(), kNone);
    Array<std::uint32_t> hub_of_vertex(mesh.vertices.size(), kNone);
    std::vector<std::vector<std::uint32_t>> faces_of_hub;
    for (const std::uint32_t face : faces) {
        const auto& corners = mesh.faces[face].vertex;
        const std::int32_t vertex =
            *std::max_element(corners.begin(), corners.end(), [&](std::int32_t a, std::int32_t b) {
                return uses[static_cast<std::size_t>(a)] < uses[static_cast<std::size_t>(b)];
            });
        if (uses[static_cast<std::size_t>(vertex)] < kHubSize) continue;
        std::uint32_t& hub = hub_of_vertex[static_cast<std::size_t>(vertex)];
        if (hub == kNone) {
            hub = static_cast<std::uint32_t>(vertex_hubs_.size());
            vertex_hubs_.push_back({vertex, {}, {}});
            faces_of_hub.emplace_back();
        }
        vertex_hub_[face] = hub;
        faces_of_hub[hub].push_back(face);
    }

    std::fill(uses.begin(), uses.end(), 0U);
    std::fill(hub_of_vertex.begin(), hub_of_vertex.end(), kNone);
    for (std::size_t hub = 0; hub < vertex_hubs_.size(); ++hub) {
        find_edge_hubs(faces_of_hub[hub], vertex_hubs_[hub].vertex, uses, hub_of_vertex);
    }
    build_trees(faces_of_hub);
}

// `uses` is 0 and `hub_of_vertex` kNone for all vertices, before and after.
void HighValencePairs::find_edge_hubs(std::span<const std::uint32_t> faces, std::int32_t vertex,
                                      Array<std::uint32_t>& uses,
                                      Array<std::uint32_t>& hub_of_vertex) {
    const auto for_others = [&](std::uint32_t face, auto&& action) {
        for (const std::int32_t v : mesh_.faces[face].vertex) {
            if (v != vertex) action(v, static_cast<std::size_t>(v));
        }
    };
    for (const std::uint32_t face : faces) {
        for_others(face, [&](std::int32_t, std::size_t v) { ++uses[v]; });
    }
    for (const std::uint32_t face : faces) {
        for_others(face, [&](std::int32_t other, std::size_t v) {
            if (edge_hub_[face] != kNone || uses[v] < kHubSize) return;
            if (hub_of_vertex[v] == kNone) {
                hub_of_vertex[v] = static_cast<std::uint32_t>(edge_hubs_.size());
                edge_hubs_.push_back({vertex, other, {}});
            }
            edge_hub_[face] = hub_of_vertex[v];
        });
    }
    for (const std::uint32_t face : faces) {
        for_others(face, [&](std::int32_t, std::size_t v) {
            uses[v] = 0;
            hub_of_vertex[v] = kNone;
        });
    }
}

void HighValencePairs::build_trees(const std::vector<std::vector<std::uint32_t>>& faces_of_hub) {
    Array<Box3f> boxes;
    std::vector<std::vector<std::uint32_t>> faces_of_edge(edge_hubs_.size());
    for (std::size_t hub = 0; hub < vertex_hubs_.size(); ++hub) {
        VertexHub& around = vertex_hubs_[hub];
        boxes.clear();
        for (const std::uint32_t face : faces_of_hub[hub]) {
            boxes.push_back(direction_box(face, around.vertex));
            if (edge_hub_[face] != kNone) faces_of_edge[edge_hub_[face]].push_back(face);
        }
        around.tree = FaceTree(boxes, faces_of_hub[hub]);
        around.edge_hub_of_node =
            common_hubs(around.tree, [&](std::uint32_t face) { return edge_hub_[face]; });
    }
    for (std::size_t hub = 0; hub < edge_hubs_.size(); ++hub) {
        boxes.clear();
        for (const std::uint32_t face : faces_of_edge[hub]) {
            boxes.push_back(normal_box(face, edge_hubs_[hub]));
        }
        edge_hubs_[hub].tree = FaceTree(boxes, faces_of_edge[hub]);
    }
}

Array<std::uint32_t> HighValencePairs::common_vertex_hubs(const FaceTree& tree) const {
    return common_hubs(tree, [&](std::uint32_t face) { return vertex_hub(face); });
}

// The directions in which the face is seen from its hub are an arc of the unit sphere. No point of
// an arc is farther from its chord than the middle is.
Box3f HighValencePairs::direction_box(std::uint32_t face, std::int32_t vertex) const {
    const Triangle t = triangle_of(mesh_, mesh_.faces[face]);
    const auto& corners = mesh_.faces[face].vertex;
    const std::size_t hub = corners[0] == vertex ? 0 : corners[1] == vertex ? 1 : 2;
    const Vec3d a = t[(hub + 1) % 3] - t[hub];
    const Vec3d b = t[(hub + 2) % 3] - t[hub];
    const Vec3d unit_a = a / length(a);
    const Vec3d unit_b = b / length(b);
    return box_around(unit_a, unit_b, 1 - length(unit_a + unit_b) / 2 + kMargin);
}

Box3f HighValencePairs::normal_box(std::uint32_t face, const EdgeHub& hub) const {
    const auto& corners = mesh_.faces[face].vertex;
    const auto third = std::find_if(corners.begin(), corners.end(),
                                    [&](std::int32_t v) { return v != hub.a && v != hub.b; });
    const auto position = [&](std::int32_t v) {
        return to_double(mesh_.vertices[static_cast<std::size_t>(v)].position());
    };
    const Vec3d edge = position(hub.b) - position(hub.a);
    const Vec3d side = position(*third) - position(hub.a);
    const Vec3d normal = cross(edge, side);
    const double rounding = kCrossRounding * length(edge) * length(side);
    if (!(length(normal) > 4 * rounding)) return {{-2, -2, -2}, {2, 2, 2}};  // any direction
    const Vec3d unit = normal / length(normal);
    return box_around(unit, unit, rounding / length(normal) + kMargin);
}

}  // namespace povmesh
