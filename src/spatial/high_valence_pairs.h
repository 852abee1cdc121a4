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
/// with each. They can meet away from that vertex only where they lie in the same direction from
/// it; so the faces around a vertex of high valence get a tree over the boxes of their directions.
/// Faces around a common edge agree in one direction even so; they can meet only when they have the
/// same normal, and get a tree over these.
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

    /// For each node of a tree the fan that all entries below it belong to.
    Array<std::uint32_t> common_fans(const FaceTree& tree) const;

    /// Calls `visit(other)` for the faces of the same fan that may meet `face` away from its
    /// vertex, each once, `face` itself included.
    template <typename Visit>
    void visit_near(std::uint32_t face, Visit&& visit) const;

private:
    // The faces around one vertex: a tree over directions, and for each of its nodes the book that
    // all faces below it belong to.
    struct Fan {
        std::int32_t vertex;
        FaceTree tree;
        Array<std::uint32_t> book_of_node;
    };
    // The faces around one edge: a tree over normals.
    struct Book {
        std::int32_t a, b;
        FaceTree tree;
    };

    static std::uint32_t of(const Array<std::uint32_t>& groups, std::uint32_t face) {
        return groups.empty() ? kNone : groups[face];
    }
    void find_books(std::span<const std::uint32_t> faces, std::int32_t vertex,
                    Array<std::uint32_t>& valence, Array<std::uint32_t>& group_of_vertex);
    void build_trees(const std::vector<std::vector<std::uint32_t>>& faces_of_fan);
    Box3f direction_box(std::uint32_t face, std::int32_t vertex) const;
    Box3f normal_box(std::uint32_t face, const Book& book) const;

    const TriMesh& mesh_;
    std::vector<Fan> fans_;
    std::vector<Book> books_;
    Array<std::uint32_t> fan_;  // by face; empty when no valence is high
    Array<std::uint32_t> book_;
};

template <typename Visit>
void HighValencePairs::visit_near(std::uint32_t face, Visit&& visit) const {
    if (fan(face) == kNone) return;
    const Fan& around = fans_[fan(face)];
    const std::uint32_t own_book = book(face);
    around.tree.visit_overlapping(
        direction_box(face, around.vertex),
        [&](std::uint32_t other) {
            if (own_book == kNone || book(other) != own_book) visit(other);
            return false;
        },
        [&](std::uint32_t node) {
            return own_book != kNone && around.book_of_node[node] == own_book;
        });
    if (own_book == kNone) return;
    books_[own_book].tree.visit_overlapping(normal_box(face, books_[own_book]),
                                            [&](std::uint32_t other) {
                                                visit(other);
                                                return false;
                                            });
}

}  // namespace povmesh
