// Around a vertex, two faces meet away from it only when one ray from it crosses both: when their
// arcs on the unit sphere have a point in common. Around an edge they meet only when one is folded
// onto the other: when their unit normals agree. Both are searched with boxes, which take rounding
// in; the exact test of the pair itself is the caller's.
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

// For each node of a tree the group of all faces below it, or kNone.
template <typename GroupOf>
Array<std::uint32_t> common_groups(const FaceTree& tree, GroupOf&& group_of) {
    const auto nodes = tree.nodes();
    Array<std::uint32_t> common(nodes.size());
    for (std::size_t i = nodes.size(); i-- > 0;) {
        const FaceTree::Node& node = nodes[i];
        if (node.is_leaf()) {
            const auto faces = tree.numbers().subspan(node.place, node.count);
            common[i] = group_of(faces[0]);
            for (const std::uint32_t face : faces) {
                if (group_of(face) != common[i]) common[i] = HighValencePairs::kNone;
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
    Array<std::uint32_t> valence(mesh.vertices.size(), 0);
    for (const std::uint32_t face : faces) {
        for (const std::int32_t v : mesh.faces[face].vertex) ++valence[static_cast<std::size_t>(v)];
    }
    if (valence.empty() || *std::max_element(valence.begin(), valence.end()) < kHighValence) return;

    fan_.assign(mesh.faces.size(), kNone);
    book_.assign(mesh.faces.size(), kNone);
    Array<std::uint32_t> group_of_vertex(mesh.vertices.size(), kNone);
    std::vector<std::vector<std::uint32_t>> faces_of_fan;
    for (const std::uint32_t face : faces) {
        const auto& corners = mesh.faces[face].vertex;
        const std::int32_t vertex =
            *std::max_element(corners.begin(), corners.end(), [&](std::int32_t a, std::int32_t b) {
                return valence[static_cast<std::size_t>(a)] < valence[static_cast<std::size_t>(b)];
            });
        if (valence[static_cast<std::size_t>(vertex)] < kHighValence) continue;
        std::uint32_t& fan = group_of_vertex[static_cast<std::size_t>(vertex)];
        if (fan == kNone) {
            fan = static_cast<std::uint32_t>(fans_.size());
            fans_.push_back({vertex, {}, {}});
            faces_of_fan.emplace_back();
        }
        fan_[face] = fan;
        faces_of_fan[fan].push_back(face);
    }

    std::fill(valence.begin(), valence.end(), 0U);
    std::fill(group_of_vertex.begin(), group_of_vertex.end(), kNone);
    for (std::size_t fan = 0; fan < fans_.size(); ++fan) {
        find_books(faces_of_fan[fan], fans_[fan].vertex, valence, group_of_vertex);
    }
    build_trees(faces_of_fan);
}

// `valence` is 0 and `group_of_vertex` kNone for all vertices, before and after.
void HighValencePairs::find_books(std::span<const std::uint32_t> faces, std::int32_t vertex,
                                  Array<std::uint32_t>& valence,
                                  Array<std::uint32_t>& group_of_vertex) {
    const auto for_others = [&](std::uint32_t face, auto&& action) {
        for (const std::int32_t v : mesh_.faces[face].vertex) {
            if (v != vertex) action(v, static_cast<std::size_t>(v));
        }
    };
    for (const std::uint32_t face : faces) {
        for_others(face, [&](std::int32_t, std::size_t v) { ++valence[v]; });
    }
    for (const std::uint32_t face : faces) {
        for_others(face, [&](std::int32_t other, std::size_t v) {
            if (book_[face] != kNone || valence[v] < kHighValence) return;
            if (group_of_vertex[v] == kNone) {
                group_of_vertex[v] = static_cast<std::uint32_t>(books_.size());
                books_.push_back({vertex, other, {}});
            }
            book_[face] = group_of_vertex[v];
        });
    }
    for (const std::uint32_t face : faces) {
        for_others(face, [&](std::int32_t, std::size_t v) {
            valence[v] = 0;
            group_of_vertex[v] = kNone;
        });
    }
}

void HighValencePairs::build_trees(const std::vector<std::vector<std::uint32_t>>& faces_of_fan) {
    Array<Box3f> boxes;
    std::vector<std::vector<std::uint32_t>> faces_of_book(books_.size());
    for (std::size_t fan = 0; fan < fans_.size(); ++fan) {
        Fan& around = fans_[fan];
        boxes.clear();
        for (const std::uint32_t face : faces_of_fan[fan]) {
            boxes.push_back(direction_box(face, around.vertex));
            if (book_[face] != kNone) faces_of_book[book_[face]].push_back(face);
        }
        around.tree = FaceTree(boxes, faces_of_fan[fan]);
        around.book_of_node =
            common_groups(around.tree, [&](std::uint32_t face) { return book_[face]; });
    }
    for (std::size_t book = 0; book < books_.size(); ++book) {
        boxes.clear();
        for (const std::uint32_t face : faces_of_book[book]) {
            boxes.push_back(normal_box(face, books_[book]));
        }
        books_[book].tree = FaceTree(boxes, faces_of_book[book]);
    }
}

Array<std::uint32_t> HighValencePairs::common_fans(const FaceTree& tree) const {
    return common_groups(tree, [&](std::uint32_t face) { return fan(face); });
}

// The directions in which the face is seen from the vertex are an arc of the unit sphere. No point
// of an arc is farther from its chord than the middle is.
Box3f HighValencePairs::direction_box(std::uint32_t face, std::int32_t vertex) const {
    const Triangle t = triangle_of(mesh_, mesh_.faces[face]);
    const auto& corners = mesh_.faces[face].vertex;
    const std::size_t apex = corners[0] == vertex ? 0 : corners[1] == vertex ? 1 : 2;
    const Vec3d a = t[next_corner(apex)] - t[apex];
    const Vec3d b = t[previous_corner(apex)] - t[apex];
    const Vec3d unit_a = a / length(a);
    const Vec3d unit_b = b / length(b);
    return box_around(unit_a, unit_b, 1 - length(unit_a + unit_b) / 2 + kMargin);
}

Box3f HighValencePairs::normal_box(std::uint32_t face, const Book& book) const {
    const auto& corners = mesh_.faces[face].vertex;
    const auto third = std::find_if(corners.begin(), corners.end(),
                                    [&](std::int32_t v) { return v != book.a && v != book.b; });
    const auto position = [&](std::int32_t v) {
        return to_double(mesh_.vertices[static_cast<std::size_t>(v)].position());
    };
    const Vec3d edge = position(book.b) - position(book.a);
    const Vec3d side = position(*third) - position(book.a);
    const Vec3d normal = cross(edge, side);
    const double rounding = kCrossRounding * length(edge) * length(side);
    if (!(length(normal) > 4 * rounding)) return {{-2, -2, -2}, {2, 2, 2}};  // any direction
    const Vec3d unit = normal / length(normal);
    return box_around(unit, unit, rounding / length(normal) + kMargin);
}

}  // namespace povmesh
