// Looks for what a remeshed surface has lost or spoiled.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/array.h"
#include "base/vec.h"
#include "mesh/tri_mesh.h"
#include "remesh/sizing_field.h"
#include "spatial/nearest_face.h"

namespace povmesh {

/// A place that is wrong, and how far its faces reach.
struct SpoiledPlace {
    Vec3d point;
    double reach = 0;
    Box3d box;  // where two faces can meet; of one face, its middle
};

class RemeshReview {
public:
    /// Of what is made from `original`, with a tree over it and the lengths that are wanted, now as
    /// they were asked for; all three must outlive this.
    RemeshReview(const TriMesh& original, const NearestFace& tree, const SizingField& field);

    /// Crossings, and faces without a direction, that the original has not near there.
    ///
    /// @param changed  by face of `made`: not 0 where it is not as it was when `before` was found,
    ///                 which is what there was then; empty: all is new
    std::vector<SpoiledPlace> spoiled_places(const TriMesh& made,
                                             std::span<const std::uint8_t> changed = {},
                                             std::span<const SpoiledPlace> before = {}) const;

    /// Lowers the length at each vertex of the original from which the made surface is too far off:
    /// a third of the length that was asked for, or a good part of the thickness of a wall or a
    /// gap. False, and as good as none lowered, where those are less than a share of all.
    bool shorten_where_lost(const TriMesh& made, double tolerance, double least_share,
                            Array<double>& lengths) const;

    /// Marks the vertices of the original within `factor` times the reach of the places, and those
    /// of the face nearest to each.
    Array<std::uint8_t> vertices_near(const std::vector<SpoiledPlace>& places, double factor) const;

private:
    std::vector<SpoiledPlace> new_slivers(const TriMesh& made,
                                          std::span<const std::uint8_t> changed) const;

    const TriMesh& original_;
    const NearestFace& tree_;
    const SizingField& field_;
    Array<Vec3d> normals_;  // by vertex, of unit length, or 0
    Array<double> asked_;   // by vertex: lengths before any were lowered
};

}  // namespace povmesh
