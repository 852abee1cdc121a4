// Divides faces into small triangles that meet edge to edge across the faces.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

#include "base/array.h"
#include "base/vec.h"
#include "mesh/tri_mesh.h"
#include "spatial/triangle_intersection.h"

namespace povmesh {

/// The edge from `corner` to the next one.
struct LongestEdge {
    std::size_t corner = 0;
    double squared = 0;  // its length
};

LongestEdge longest_edge(const Triangle& t);

/// The halves of a triangle, wound as it is: that at `corner`, then that at the corner after it.
inline std::pair<Triangle, Triangle> halves(const Triangle& t, std::size_t corner) {
    const Vec3d& a = t[corner];
    const Vec3d& b = t[next_corner(corner)];
    const Vec3d& c = t[previous_corner(corner)];
    const Vec3d middle = (a + b) * 0.5;  // the same bits from either end
    return {{a, middle, c}, {middle, b, c}};
}

inline Vec3d middle_of(const Triangle& t) {
    return (t[0] + t[1] + t[2]) / 3.0;
}

/// The faces of a mesh, each halved across its longest edge again and again until no edge is longer
/// than a limit. Both faces at an edge divide it at the same points, bit for bit. Pieces are
/// numbered face by face. Refers to the mesh, which must stay as it is.
///
/// 8 bytes a face and 4 a piece; linear time.
class SubTriangles {
public:
    SubTriangles() = default;

    /// @param faces  those to divide, in the order in which their pieces are numbered; their
    ///               corners are finite
    /// @param wanted  greatest length of an edge, above 0
    /// @param most  of pieces, or of `faces` if there are more; edges are longer where it takes
    ///          that
    SubTriangles(const TriMesh& mesh, std::span<const std::uint32_t> faces, double wanted,
                 std::size_t most);

    double limit() const { return limit_; }
    std::size_t size() const { return left_counts_.size(); }

    std::size_t count(std::uint32_t face) const { return counts_[face]; }  // 0: not divided
    std::size_t first(std::uint32_t face) const { return firsts_[face]; }

    /// Calls visit(number, triangle) for the pieces of a face.
    template <typename Visit>
    void visit(std::uint32_t face, const Visit& visit) const {
        std::size_t number = first(face);
        visit_pieces(triangle_of(*mesh_, mesh_->faces[face]),
                     [&](const Triangle& piece) { visit(number++, piece); });
    }

    /// The piece of a divided face that a point of the face lies in.
    std::size_t locate(std::uint32_t face, Vec3d point) const;

private:
    template <typename Visit>
    void visit_pieces(const Triangle& t, const Visit& visit) const {
        const LongestEdge longest = longest_edge(t);
        if (!(longest.squared > limit_ * limit_)) return visit(t);
        const auto [first, second] = halves(t, longest.corner);
        visit_pieces(first, visit);
        visit_pieces(second, visit);
    }

    std::size_t count_pieces(const Triangle& t, std::size_t most) const;
    std::size_t record(const Triangle& t, std::size_t& inner_node);

    const TriMesh* mesh_ = nullptr;
    double limit_ = 0;
    Array<std::uint32_t> firsts_;  // by face
    Array<std::uint32_t> counts_;  // by face
    // From the first piece of a face on, one for each halving, a triangle before its halves: how
    // many pieces the first half has.
    Array<std::uint32_t> left_counts_;
};

}  // namespace povmesh
