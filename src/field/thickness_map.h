// Paints a model by the thickness of its walls.
#pragma once

#include <array>
#include <cstdint>

#include "field/thickness.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

using Rgb = std::array<std::uint8_t, 3>;

/// Of a level as `thickness_level` gives it: red from half of what was asked for down, over yellow
/// where it is just that, to green and blue from twice that on.
Rgb wall_colour(double level);

/// The same in greys, the narrower the darker.
Rgb gap_colour(double level);

/// The faces of a mesh, each in the colour of what was measured on it; those that are below twice
/// of what was asked for somewhere are divided into the pieces measured, the faces beside them as
/// far as it takes to meet these edge to edge. Faces that were left out are grey. A closed mesh
/// stays closed, and no point moves.
///
/// @param places  the walls or the gaps of this mesh
TriMesh thickness_map(const TriMesh& mesh, const ThinPlaces& places, Rgb (*colour)(double level));

}  // namespace povmesh
