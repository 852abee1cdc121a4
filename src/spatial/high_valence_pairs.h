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
/// with each, and with those around a second such vertex. Another face can meet them away from that
/// vertex only where it lies in the same direction from it; so the faces around a vertex of high
/// valence get a tree over the boxes of their directions. Faces around a common edge agree in one
/// direction even so; they can meet only when they have the same normal, and get a tree over these.
///
/// Each face belongs to one vertex of high valence at most, its fan, and to one edge of high
/// valence at that vertex, its book. Triangles without area must be left out.
class HighValencePairs {
public:
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;

    /// Faces around a vertex or an edge from which on its valence is high. Below, pairing all with
    /// all costs less than a tree of their own.
    static constexpr std::uint32_t kHighValence = 256;

    /// @param faces  those that take part, finite and with area
    HighValencePairs(const TriMesh& mesh, std::span<const std::uint32_t> faces);

    /// The fan or the book of a face, by number; kNone for most.
    std::uint32_t fan(std::uint32_t face) const { return of(fan_, face); }
    std::uint32_t book(std::uint32_t face) const { return of(book_, face); }

    /// Calls `visit(other)` for the faces of all fans that may meet `face`, of that box, beyond
    /// shared corners, each once, `face` itself included.
    template <typename Visit>
    void visit_near(std::uint32_t face, const Box3f& box, Visit&& visit) const;

private:
    // The faces around one vertex: a tree over directions, and for each of its nodes the book that
    // all faces below it belong to and their box in space.
    struct Fan {
        std::int32_t vertex;
        FaceTree tree;
        Array<std::uint32_t> book_of_node;
        Array<Box3f> box_of_node;
        std::vector<std::uint32_t> books;
    };
    // The faces around one edge: a tree over normals, and one over directions from the end that is
    // not the fan's vertex: from there other faces at that end are told from these.
    struct Book {
        std::int32_t a, b;
        FaceTree tree;
        FaceTree tree_at_b;
    };

    static std::uint32_t of(const Array<std::uint32_t>& groups, std::uint32_t face) {
        return groups.empty() ? kNone : groups[face];
    }
    void find_books(std::span<const std::uint32_t> faces, std::int32_t vertex,
                    Array<std::uint32_t>& valence, Array<std::uint32_t>& group_of_vertex);
    void build_trees(const std::vector<std::vector<std::uint32_t>>& faces_of_fan);
    template <typename Visit>
    void visit_fan(std::uint32_t face, const Box3f& box, std::uint32_t fan, Visit& visit) const;
    bool has_other_end(std::uint32_t face, std::uint32_t book) const;
    Box3f direction_box(std::uint32_t face, std::int32_t vertex) const;
    Box3f normal_box(std::uint32_t face, const Book& book) const;

    const TriMesh& mesh_;
    std::vector<Fan> fans_;
    FaceTree tree_of_fans_;
    std::vector<Book> books_;
    Array<std::uint32_t> fan_;  // by face; empty when no valence is high
    Array<std::uint32_t> book_;
};

template <typename Visit>
void HighValencePairs::visit_near(std::uint32_t face, const Box3f& box, Visit&& visit) const {
    tree_of_fans_.visit_overlapping(box, [&](std::uint32_t fan) {
        visit_fan(face, box, fan, visit);
        return false;
    });
}

template <typename Visit>
void HighValencePairs::visit_fan(std::uint32_t face, const Box3f& box, std::uint32_t fan_number,
                                 Visit& visit) const {
    const Fan& around = fans_[fan_number];
    const std::uint32_t own_book = fan(face) == fan_number ? book(face) : kNone;
    const auto is_elsewhere = [&](std::uint32_t in_book) {
        return in_book != kNone && (in_book == own_book || has_other_end(face, in_book));
    };
    around.tree.visit_overlapping(
        direction_box(face, around.vertex),
        [&](std::uint32_t other) {
            if (!is_elsewhere(book(other))) visit(other);
            return false;
        },
        [&](std::uint32_t node) {
            return !overlap(around.box_of_node[node], box) ||
                   is_elsewhere(around.book_of_node[node]);
        });
    for (const std::uint32_t other_book : around.books) {
        if (other_book == own_book || !has_other_end(face, other_book)) continue;
        books_[other_book].tree_at_b.visit_overlapping(direction_box(face, books_[other_book].b),
                                                       [&](std::uint32_t other) {
                                                           visit(other);
                                                           return false;
                                                       });
    }
    if (own_book == kNone) return;
    books_[own_book].tree.visit_overlapping(normal_box(face, books_[own_book]),
                                            [&](std::uint32_t other) {
                                                visit(other);
                                                return false;
                                            });
}

}  // namespace povmesh
