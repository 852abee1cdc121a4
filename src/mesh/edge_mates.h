// For every edge of every face: who lies on the other side.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/array.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// The faces beyond each edge of a mesh, deleted faces left out. Edge c of a face runs from corner
/// c to corner c + 1.
///
/// A face holds an edge when it has both of its end points, in either order.
class EdgeMates {
public:
    /// Builds the table in linear time (n log n in the number of faces around one vertex) and makes
    /// the uses of the mesh first if they are not there. 12 bytes a face.
    explicit EdgeMates(TriMesh& mesh);

    /// The same without the uses, for who has no other use for them: a third of the time less, and
    /// 26 bytes a face on the way in place of 38.
    static EdgeMates without_uses(const TriMesh& mesh);

    enum class Kind { Open, Manifold, NonManifold };

    /// Open: no other live face holds the edge; Manifold: exactly one does; NonManifold: several
    /// do. All edges of a deleted face are open.
    Kind kind(std::size_t face, std::size_t edge) const {
        const std::int32_t code = codes_[face * 3 + edge];
        return code >= 0 ? Kind::Manifold : code == kOpen ? Kind::Open : Kind::NonManifold;
    }

    /// The one other face at a manifold edge.
    std::uint32_t mate(std::size_t face, std::size_t edge) const {
        return static_cast<std::uint32_t>(codes_[face * 3 + edge]) >> 1;
    }

    /// True when the two faces of a manifold edge run along it in the same direction, so that their
    /// windings disagree.
    bool is_same_direction(std::size_t face, std::size_t edge) const {
        return (codes_[face * 3 + edge] & 1) != 0;
    }

    /// Number of edges that more than two live faces hold, and for one of them its faces in
    /// ascending order.
    std::size_t group_count() const { return group_offsets_.size() - 1; }
    std::span<const std::uint32_t> group(std::size_t group) const {
        return {group_faces_.data() + group_offsets_[group],
                group_faces_.data() + group_offsets_[group + 1]};
    }

    /// The group of a non-manifold edge.
    std::size_t group_of(std::size_t face, std::size_t edge) const {
        return static_cast<std::size_t>(kFirstGroup - codes_[face * 3 + edge]);
    }

private:
    friend class EdgeMatesBuilder;

    EdgeMates() = default;

    // A code is mate * 2 + same direction, or kOpen, or kFirstGroup - group.
    static constexpr std::int32_t kOpen = -1;
    static constexpr std::int32_t kFirstGroup = -2;

    Array<std::int32_t> codes_;
    Array<std::uint32_t> group_offsets_;
    Array<std::uint32_t> group_faces_;
};

}  // namespace povmesh
