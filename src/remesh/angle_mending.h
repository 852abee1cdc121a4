// Mends the few triangles with small angles that even a well relaxed surface keeps.
#pragma once

#include <functional>
#include <span>

#include "base/vec.h"
#include "remesh/half_edge_mesh.h"

namespace povmesh {

struct AngleMending {
    double least_angle = 30;  // degrees; triangles with a smaller angle are worked on
    int passes = 10;

    /// Not 0 for the vertices whose triangles are worked on; empty: all are.
    std::span<const std::uint8_t> is_active;

    /// Longest edge that a collapse may make at a vertex, model units.
    std::function<double(std::int32_t vertex)> longest_edge;

    /// True when the target of a feature edge may go into its origin, which stays where it is.
    std::function<bool(std::uint32_t half_edge)> keeps_line;

    /// Where a vertex that is wanted at a place may go: a point of the original surface.
    std::function<Vec3d(std::int32_t vertex, Vec3d place)> project;
};

/// Flips an edge, collapses one, or moves a vertex at each triangle with a small angle, where that
/// makes the smallest angle among the triangles concerned larger and turns none of them. Features
/// stay. What was closed and manifold stays so.
void mend_angles(HalfEdgeMesh& surface, const AngleMending& options);

}  // namespace povmesh
