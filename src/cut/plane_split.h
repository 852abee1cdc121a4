// Divides the faces of a model at a plane and traces the edges along it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>

#include "base/array.h"
#include "cut/cut_points.h"
#include "cut/plane_frame.h"
#include "mesh/edge_mates.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// A directed edge of the plane along the opening of the front side, as the cap that closes it
/// runs: seen from the back, the cap lies to its left. The cap of the back side has it the other
/// way round.
struct RimEdge {
    std::int32_t from, to;                // points
    std::uint32_t group;                  // of the face in front of the rim here
    std::array<std::uint16_t, 3> colour;  // R, G, B of its two corners added up
};

/// How many faces of one side at most hold an edge of the plane.
struct PlaneWall {
    std::uint64_t key;  // of the edge
    std::uint32_t count;
};

/// Key of an undirected edge.
inline std::uint64_t edge_key(std::int32_t a, std::int32_t b) {
    const auto low = static_cast<std::uint32_t>(a < b ? a : b);
    const auto high = static_cast<std::uint32_t>(a < b ? b : a);
    return (static_cast<std::uint64_t>(low) << 32) | high;
}

/// How the faces of a model lie to a plane.
///
/// A vertex counts as lying on the plane when it is nearer than 1e-5 of the largest extent of the
/// model, or than `on_level` where that is less, or than two units in the last place of its largest
/// coordinate; no point is made next to
/// it then. A face with vertices on both sides is split; one with none at the back, or none in
/// front, belongs to the other side; one with all three on the plane goes with its solid: to the
/// front when it looks to the back, and the other way round. Faces with a vertex that is not finite
/// are never split.
///
/// Linear in faces and vertices; n log n in those at the plane.
class PlaneSplit {
public:
    /// @param on_level  model units
    PlaneSplit(const TriMesh& model, const PlaneFrame& frame,
               double on_level = std::numeric_limits<double>::infinity());

    /// True when faces lie on both sides.
    bool divides() const { return face_count_[0] != 0 && face_count_[1] != 0; }
    std::size_t face_count(PlaneSide side) const {
        return face_count_[static_cast<std::size_t>(side)];
    }
    /// Of the faces that are split.
    std::size_t split_count() const { return splits_.size(); }
    /// True when an edge or vertex of the model lies on the plane.
    bool touches() const { return touches_; }

    /// True when the faces of a side hang together over edges on that side. False also where edges
    /// of more than two faces would have to be looked at for it.
    bool is_connected(PlaneSide side, const EdgeMates& mates) const;

    /// True when a face lies in front of the plane, at least in part.
    bool reaches_front(std::size_t face) const {
        return kinds_[face] == Kind::Front || kinds_[face] == Kind::Split;
    }

    bool is_on_plane(std::int32_t point) const {
        const auto i = static_cast<std::size_t>(point);
        return i >= signs_.size() || signs_[i] == 0;
    }

    CutPoints& points() { return points_; }
    const CutPoints& points() const { return points_; }

    /// The edges where the sides come apart: by group of faces, then by key. Each group is looked
    /// at by itself; without groups all faces are of group 0. To be called when the plane divides
    /// the model.
    Array<RimEdge> trace_rim(std::span<const std::uint32_t> group_of_face);

    /// The edges of the model and its pieces that lie on the plane, ordered by key; filled by
    /// `trace_rim`.
    const Array<PlaneWall>& walls() const { return walls_; }

    /// The part of the model on one side, made of its faces in their order. Appends the caps, which
    /// are triangles of points, wound as the front side has them.
    struct CapFace {
        std::array<std::int32_t, 3> point;
        std::array<std::uint8_t, 3> colour;
    };
    struct SideMesh {
        TriMesh mesh;
        Array<std::int32_t> points;  // by vertex of the mesh
    };
    SideMesh side_mesh(PlaneSide side, const Array<CapFace>& caps) const;

private:
    enum class Kind : std::uint8_t { Front, Back, Split, Left };

    struct SplitFace {
        std::uint32_t face;
        std::array<std::int32_t, 3> on_side;  // the point made on its side i to i + 1, or -1
    };
    struct Crossing {
        std::uint64_t key;
        std::uint32_t slot;  // split face * 3 + side
    };
    // A wall's edge on the plane; runs towards the point of the higher number or away from it.
    struct WallEdge {
        std::uint64_t key;
        std::uint32_t group;
        bool is_front;
        bool is_rising;
        std::array<std::uint16_t, 3> colour;
    };
    // A corner of a piece of a face: one of the face's own or a point on its side.
    struct PieceCorner {
        std::uint8_t index;
        bool is_made;
    };
    struct Pieces {
        std::array<std::array<PieceCorner, 3>, 3> corners;
        std::array<PlaneSide, 3> side;
        std::size_t count = 0;
        std::array<PieceCorner, 2> rim;  // as the piece in front runs along the plane

        void add(PlaneSide where, PieceCorner a, PieceCorner b, PieceCorner c) {
            corners[count] = {a, b, c};
            side[count++] = where;
        }
    };

    void find_signs(const PlaneFrame& frame, double on_level);
    void sort_faces(const PlaneFrame& frame);
    Kind kind_of(const Face& face, const PlaneFrame& frame) const;
    void make_points(const PlaneFrame& frame);
    void merge_points();
    Array<WallEdge> wall_edges(std::span<const std::uint32_t> group_of_face) const;
    void count_walls(Array<WallEdge>& edges);
    std::size_t most_points(PlaneSide side) const;
    int sign(std::int32_t vertex) const { return signs_[static_cast<std::size_t>(vertex)]; }
    Pieces pieces_of(const SplitFace& split) const;
    std::int32_t point_of(const SplitFace& split, PieceCorner corner) const;
    std::array<std::uint8_t, 3> colour_of(const SplitFace& split, PieceCorner corner) const;
    std::array<double, 2> texture_of(const SplitFace& split, PieceCorner corner) const;
    double share_of(const SplitFace& split, std::size_t side) const;

    const TriMesh& model_;
    CutPoints points_;
    Array<std::int8_t> signs_;  // by vertex
    Array<Kind> kinds_;         // by face
    Array<SplitFace> splits_;
    Array<double> shares_;        // by made point: along its edge, from the lower vertex number
    Array<std::int32_t> merged_;  // by made point: what stands for it
    Array<PlaneWall> walls_;
    std::array<std::size_t, 2> face_count_{};
    bool touches_ = false;
};

}  // namespace povmesh
