// Finds the point of a surface that is nearest to a given one.
#pragma once

#include <array>
#include <cstdint>
#include <limits>

#include "base/array.h"
#include "base/vec.h"
#include "mesh/tri_mesh.h"
#include "spatial/box_quads.h"
#include "spatial/face_tree.h"

namespace povmesh {

/// A point of a surface, and how far it is from the point that was asked about.
struct NearestPoint {
    static constexpr std::uint32_t kNoFace = std::numeric_limits<std::uint32_t>::max();

    std::uint32_t face = kNoFace;
    std::array<double, 3> weights{};  // of the face's corners; 0 to 1, their sum is 1
    Vec3d point;
    double squared_distance = std::numeric_limits<double>::infinity();

    bool is_found() const { return face != kNoFace; }
};

using Triangle3d = std::array<Vec3d, 3>;

/// The nearest point of a triangle with finite corners, which may be a line or a point; `face`
/// stays unset. Exact up to the rounding of doubles.
NearestPoint nearest_on_triangle(Vec3d p, const Triangle3d& triangle);

/// The live faces of a mesh, arranged for the search. Faces with a corner that is not finite are
/// left out. Holds copies: the mesh may change or go.
///
/// Building takes O(n log n); 180 bytes a face, up to twice that where long thin faces are many.
/// Searches allocate nothing and may run at the same time; each takes about a microsecond near a
/// surface of a million faces.
class NearestFace {
public:
    explicit NearestFace(const TriMesh& mesh);

    /// The nearest point closer than the square root of `limit`, if there is one; of equally near
    /// faces any, but always the same one. None is found from a point that is not finite.
    NearestPoint find(Vec3d p, double limit = std::numeric_limits<double>::infinity()) const;

    /// A point closer than that, whichever comes first: the same one for the same input.
    NearestPoint find_any(Vec3d p, double limit) const;

    /// The nearest among the faces whose normals lie within an angle of a direction. Gives up after
    /// some hundreds of nearer faces that look elsewhere.
    ///
    /// @param direction  of unit length
    NearestPoint find_facing(Vec3d p, Vec3d direction, double least_cosine, double limit) const;

    bool is_empty() const { return tree_.nodes().empty(); }

    /// The tree that the search goes through; its numbers are those of the faces.
    const FaceTree& tree() const { return tree_; }

private:
    /// The points within a distance of a line segment. The boxes of long thin triangles that do not
    /// lie along the axes are wide, and those around a vertex of high valence all overlap; capsules
    /// fit.
    struct Capsule {
        Vec3d a, b;
        double radius = 0;
    };

    /// The points as near to a disc as `height`: a triangle, and little more. From deep inside a
    /// model the boxes of fifty faces are nearer than any face, but hardly ten of these.
    struct Disc {
        Vec3f centre;
        float radius;
        Vec3f normal;  // about of unit length, or 0
        float height;
    };

    static Disc disc_around(const std::array<Vec3f, 3>& triangle);
    static bool is_beyond_disc(Vec3d p, const Disc& disc, double squared_distance);
    static Capsule joined(const Capsule& first, const Capsule& second);
    Capsule capsule_of_entry(std::size_t entry) const;
    static bool is_thin(const Capsule& capsule, const Box3f& box);
    std::size_t find_branch(std::size_t first, std::size_t end, Array<Capsule>& capsules) const;
    bool may_have_capsules() const;
    void find_capsules();
    bool is_beyond_capsule(Vec3d p, std::size_t lane, double squared_distance) const;
    template <typename Accepts, typename GivesUp>
    NearestPoint search(Vec3d p, double limit, Accepts&& accepts, GivesUp&& gives_up) const;

    FaceTree tree_;
    BoxQuads quads_;
    Array<std::array<Vec3f, 3>> triangles_;  // in the order of the tree's entries
    Array<Disc> discs_;                      // in the same order
    Array<Capsule> capsules_;                // of nodes that are much thinner than their boxes
    Array<std::uint32_t> capsule_of_;        // by child of the quads, or kNoFace; empty if few
};

}  // namespace povmesh
