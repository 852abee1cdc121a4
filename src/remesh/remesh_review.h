// Looks for what a remeshed surface has lost or spoiled.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
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
};

class RemeshReview {
public:
    /// Of what is made from `original`, with a tree over it and the lengths that are wanted, now as
    /// they were asked for; all three must outlive this.
    RemeshReview(const TriMesh& original, const NearestFace& tree, const SizingField& field);

    /// Crossings, and faces without a direction, that the original has not near there.
    std::vector<SpoiledPlace> spoiled_places(const TriMesh& made);

    /// Lowers the length at each vertex of the original from which the made surface is too far off:
    /// a quarter of the length that was asked for, or a good part of the thickness of a wall or a
    /// gap. Returns how many were.
    std::size_t shorten_where_lost(const TriMesh& made, double tolerance,
                                   Array<double>& lengths) const;

    /// Marks the vertices of the original within `factor` times the reach of the places, and those
    /// of the face nearest to each.
    Array<std::uint8_t> vertices_near(const std::vector<SpoiledPlace>& places, double factor) const;

private:
    template <typename Find>
    void leave_out_known(std::vector<SpoiledPlace>& places,
                         std::optional<std::vector<SpoiledPlace>>& known, Find&& find) const;

    const TriMesh& original_;
    const NearestFace& tree_;
    const SizingField& field_;
    Array<Vec3d> normals_;  // by vertex, of unit length, or 0
    Array<double> asked_;   // by vertex: lengths before any were lowered
    std::optional<std::vector<SpoiledPlace>> known_crossings_;  // of the original, when needed
    std::optional<std::vector<SpoiledPlace>> known_slivers_;
};

}  // namespace povmesh
