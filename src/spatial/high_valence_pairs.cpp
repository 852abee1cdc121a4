// From a vertex, two faces that meet away from it are seen in one direction: their images on a
// sphere around it have a point in common. Around an edge two faces meet only when one is folded
// onto the other: when their unit normals agree. Both are searched with boxes, which take rounding
// in; the exact test of the pair itself is the caller's.
#include "spatial/high_valence_pairs.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "base/poll.h"
#include "base/predicates.h"
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

// Directions from one place on the unit sphere around it.
class DirectionBox {
public:
    const Box3f& box() const { return box_; }

    void take_all() { box_ = {{-2, -2, -2}, {2, 2, 2}}; }

    // All between two unit vectors: the arc may reach beyond both where it is level along an axis.
    void widen_by_arc(Vec3d a, Vec3d b) {
        widen(a);
        widen(b);
        const Vec3d normal = cross(a, b);
        const double size = length(normal);
        if (!(size > kShortArc)) {
            // In line: either within the margin, or on opposite sides.
            if (!(dot(a, b) > 0)) take_all();
            return;
        }
        for (const Vec3d& axis : kAxes) {
            const Vec3d level = axis - normal * (dot(axis, normal) / (size * size));
            const double reach = length(level);
            if (!(reach > kShortArc)) continue;
            for (const double sign : {-1.0, 1.0}) {
                const Vec3d p = level * (sign / reach);
                if (dot(cross(a, p), normal) >= -kRounding &&
                    dot(cross(p, b), normal) >= -kRounding) {
                    widen(p);
                }
            }
        }
    }

    // The axes that the cone of three unit vectors holds; all else is between its sides.
    void widen_by_axes(Vec3d u, Vec3d v, Vec3d w) {
        const std::array<Vec3d, 3> normals = {cross(v, w), cross(w, u), cross(u, v)};
        const double turn = dot(u, normals[0]);
        for (const Vec3d& axis : kAxes) {
            double least = 1;
            double most = -1;
            for (const Vec3d& normal : normals) {
                least = std::min(least, dot(normal, axis));
                most = std::max(most, dot(normal, axis));
            }
            for (const double sign : {-1.0, 1.0}) {
                // Both when the cone is flat.
                if (least >= -kRounding && sign * turn >= -kRounding) widen(axis * sign);
                if (most <= kRounding && sign * turn <= kRounding) widen(axis * sign);
            }
        }
    }

private:
    static constexpr std::array<Vec3d, 3> kAxes = {Vec3d{1, 0, 0}, Vec3d{0, 1, 0}, Vec3d{0, 0, 1}};
    static constexpr double kRounding = 1e-9;
    static constexpr double kShortArc = kMargin / 2;

    void widen(Vec3d p) {
        if (!(length(p) <= 2)) return take_all();  // no number: the place itself
        const Box3f at = box_around(p, p, kMargin);
        box_.widen(at.low);
        box_.widen(at.high);
    }

    Box3f box_;
};

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

// For each node of a tree over something else the box of its faces.
Array<Box3f> boxes_in_space(const TriMesh& mesh, const FaceTree& tree) {
    const auto nodes = tree.nodes();
    Array<Box3f> boxes(nodes.size());
    for (std::size_t i = nodes.size(); i-- > 0;) {
        Box3f box;
        const auto widen = [&](const Box3f& by) {
            box.widen(by.low);
            box.widen(by.high);
        };
        if (nodes[i].is_leaf()) {
            for (const std::uint32_t face :
                 tree.numbers().subspan(nodes[i].place, nodes[i].count)) {
                widen(face_box(mesh, mesh.faces[face]));
            }
        } else {
            widen(boxes[i + 1]);
            widen(boxes[nodes[i].place]);
        }
        boxes[i] = box;
    }
    return boxes;
}

}  // namespace

HighValencePairs::HighValencePairs(const TriMesh& mesh, std::span<const std::uint32_t> faces)
    : mesh_(mesh) {
    Array<std::uint32_t> valence(mesh.vertices.size(), 0);
    Poller poller;
    for (const std::uint32_t face : faces) {
        poller();
        for (const std::int32_t v : mesh.faces[face].vertex) ++valence[static_cast<std::size_t>(v)];
    }
    if (valence.empty() || *std::max_element(valence.begin(), valence.end()) < kHighValence) return;

    fan_.assign(mesh.faces.size(), kNone);
    book_.assign(mesh.faces.size(), kNone);
    Array<std::uint32_t> group_of_vertex(mesh.vertices.size(), kNone);
    std::vector<std::vector<std::uint32_t>> faces_of_fan;
    for (const std::uint32_t face : faces) {
        poller();
        const auto& corners = mesh.faces[face].vertex;
        const std::int32_t vertex =
            *std::max_element(corners.begin(), corners.end(), [&](std::int32_t a, std::int32_t b) {
                const std::uint32_t of_a = valence[static_cast<std::size_t>(a)];
                const std::uint32_t of_b = valence[static_cast<std::size_t>(b)];
                return of_a != of_b ? of_a < of_b : a > b;  // a book's faces in one fan
            });
        if (valence[static_cast<std::size_t>(vertex)] < kHighValence) continue;
        std::uint32_t& fan = group_of_vertex[static_cast<std::size_t>(vertex)];
        if (fan == kNone) {
            fan = static_cast<std::uint32_t>(fans_.size());
            fans_.push_back({vertex, {}, {}, {}, {}});
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
                books_.push_back({vertex, other, {}, {}});
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
    Array<Box3f> boxes_of_fans;
    std::vector<std::vector<std::uint32_t>> faces_of_book(books_.size());
    Poller poller;
    for (std::size_t fan = 0; fan < fans_.size(); ++fan) {
        Fan& around = fans_[fan];
        boxes.clear();
        for (const std::uint32_t face : faces_of_fan[fan]) {
            poller();
            boxes.push_back(direction_box(face, around.vertex));
            if (book_[face] != kNone) faces_of_book[book_[face]].push_back(face);
        }
        around.tree = FaceTree(boxes, faces_of_fan[fan]);
        around.book_of_node =
            common_groups(around.tree, [&](std::uint32_t face) { return book_[face]; });
        around.box_of_node = boxes_in_space(mesh_, around.tree);
        boxes_of_fans.push_back(around.box_of_node[0]);
    }
    tree_of_fans_ = FaceTree(boxes_of_fans);
    for (std::size_t book = 0; book < books_.size(); ++book) {
        boxes.clear();
        for (const std::uint32_t face : faces_of_book[book]) {
            poller();
            boxes.push_back(normal_box(face, books_[book]));
        }
        books_[book].tree = FaceTree(boxes, faces_of_book[book]);
        boxes.clear();
        for (const std::uint32_t face : faces_of_book[book]) {
            poller();
            boxes.push_back(direction_box(face, books_[book].b));
        }
        books_[book].tree_at_b = FaceTree(boxes, faces_of_book[book]);
        fans_[fan(faces_of_book[book].front())].books.push_back(static_cast<std::uint32_t>(book));
    }
}

bool HighValencePairs::has_other_end(std::uint32_t face, std::uint32_t book) const {
    const auto& corners = mesh_.faces[face].vertex;
    return std::find(corners.begin(), corners.end(), books_[book].b) != corners.end();
}

Box3f HighValencePairs::direction_box(std::uint32_t face, std::int32_t vertex) const {
    const Triangle t = triangle_of(mesh_, mesh_.faces[face]);
    const auto& corners = mesh_.faces[face].vertex;
    const Vec3d from = to_double(mesh_.vertices[static_cast<std::size_t>(vertex)].position());
    const auto unit = [&](std::size_t corner) {
        const Vec3d way = t[corner] - from;
        return way / length(way);
    };
    DirectionBox seen;
    const auto place = std::find(corners.begin(), corners.end(), vertex);
    if (place != corners.end()) {
        const auto apex = static_cast<std::size_t>(place - corners.begin());
        seen.widen_by_arc(unit(next_corner(apex)), unit(previous_corner(apex)));
        return seen.box();
    }
    // A face through the vertex is near it in every direction.
    Box3d box;
    for (const Vec3d& corner : t) box.widen(corner);
    const bool is_beside = from.x < box.low.x || from.x > box.high.x || from.y < box.low.y ||
                           from.y > box.high.y || from.z < box.low.z || from.z > box.high.z;
    if (!is_beside && orient3d(t[0], t[1], t[2], from) == 0) {
        seen.take_all();
        return seen.box();
    }
    const std::array<Vec3d, 3> units = {unit(0), unit(1), unit(2)};
    for (std::size_t i = 0; i < 3; ++i) seen.widen_by_arc(units[i], units[next_corner(i)]);
    seen.widen_by_axes(units[0], units[1], units[2]);
    return seen.box();
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
