// How many parts a model needs at least.
#pragma once

#include <cstddef>

#include "decompose/part_size.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// A number of parts that no division along the axes gets below: that of points of the model of
/// which no two fit into one part, as many as a greedy search from seven directions finds. At least
/// 1; vertices that are not finite are passed over.
///
/// @param effort  what all searches may take, lessened by this one; 2 is the answer when none is
/// left
///
/// Time: linear in the faces; a tenth of a second at most for the search, which looks at some ten
/// thousand points.
std::size_t least_parts(const TriMesh& model, const PartSize& size, std::size_t& effort);

/// Half a second.
constexpr std::size_t kLeastPartsEffort = 100'000'000;

}  // namespace povmesh
