// Finds the largest ball that touches a surface at a point and stays clear of the surface opposite.
#pragma once

#include <array>
#include <cstdint>
#include <limits>

#include "base/array.h"
#include "base/vec.h"
#include "mesh/tri_mesh.h"
#include "spatial/face_tree.h"

namespace povmesh {

enum class BallSide : std::uint8_t {
    Inside,   // behind the surface: the ball tells the thickness of the wall
    Outside,  // in front of it: the ball tells the width of the gap
};

/// Where a ball that touches the surface at a point meets the surface opposite.
struct BallContact {
    static constexpr std::uint32_t kNone = std::numeric_limits<std::uint32_t>::max();

    double diameter = std::numeric_limits<double>::infinity();
    Vec3d point;
    std::uint32_t entry = kNone;  // of the tree: the face that is met

    bool is_found() const { return entry != kNone; }
};

/// The faces of a mesh, arranged for that search. Deleted faces take no part, nor do those with a
/// corner that is not finite or so narrow that the rounding of their corners decides where they
/// look. Holds copies: the mesh may change or go.
///
/// Building takes O(n log n); about 120 bytes a face. Searches allocate nothing and may run at the
/// same time; each takes about a microsecond.
class TangentBalls {
public:
    explicit TangentBalls(const TriMesh& mesh);

    /// The largest ball on that side of a point of the surface with that normal (of length 1, out
    /// of the model) that no *opposing* face reaches into, if its diameter is below the limit. A
    /// face opposes when its normal is turned from that of the point by 120 degrees or more, and
    /// the point lies on the side of it that the ball is on: so neither the side walls beside an
    /// edge nor a body across a gap limit the balls in a wall.
    ///
    /// @param least  diameter below which a face is passed over: folds in the grain of a surface
    /// @param near  an entry that may be the one, such as that found from a point beside this one:
    ///              it saves time and changes nothing beyond rounding
    BallContact find(Vec3d point, Vec3d normal, BallSide side, double limit, double least = 0,
                     std::uint32_t near = BallContact::kNone) const;

    /// Its entries are the faces that take part; numbers are those of the faces.
    const FaceTree& tree() const { return tree_; }
    Vec3d normal(std::uint32_t entry) const { return to_double(facets_[entry].normal); }

private:
    struct Facet {
        std::array<Vec3f, 3> corners;
        Vec3f normal;  // of length 1
    };
    /// The normals of a node's faces lie around `axis`. None of them opposes a direction whose
    /// product with it is not above `least`.
    struct Cone {
        Vec3f axis;
        float least;
    };
    /// A node of the tree with its cone, side by side.
    struct Node {
        FaceTree::Node node;
        Cone cone;
    };
    class Search;

    void find_cones();
    Cone cone_of(std::uint32_t first, std::uint32_t end) const;

    FaceTree tree_;
    Array<Facet> facets_;  // by entry
    Array<Node> nodes_;
};

}  // namespace povmesh
