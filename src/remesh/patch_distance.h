// How far a step moves a surface, as bounds that hold in both directions: no point of the old patch
// is farther from the new one, nor the other way round.
#pragma once

#include <cstddef>
#include <span>

#include "base/vec.h"

namespace povmesh {

/// Distance of two line segments. It bounds the move when the diagonal ab of a quadrilateral is
/// replaced by the diagonal cd.
double segment_distance(Vec3d a, Vec3d b, Vec3d c, Vec3d d);

/// The greatest move when the inner vertex `v` of a fan merges into its neighbour ring[kept]. The
/// ring holds the neighbours in their order; the fan's triangles are (v, ring[i], ring[i + 1]).
///
/// Where the fan is a height field, before and after, over a common plane, that is the greatest
/// difference of the heights; else the length of the edge.
double merge_distance(Vec3d v, std::span<const Vec3d> ring, std::size_t kept);

}  // namespace povmesh
