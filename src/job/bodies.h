// Which bodies of a 3MF file the faces belong to that an operation makes.
#pragma once

#include <cstddef>
#include <string>

#include "io/three_mf.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// Gives the live faces without a label of the package, which an operation made, to its bodies. New
/// faces that are joined to those of one body, over edges of two faces, belong to it: caps, walls
/// of holes, pegs. A new surface that is joined to nothing else belongs to the body whose faces lie
/// nearest to all of its own: a cavity. They get no texture.
///
/// @param source  the model before the operation, with its labels; may be empty, and then no such
///                surface finds a body
/// @return  false, and the labels stay, when one of the new surfaces belongs to no body alone
/// Time: linear; n log n of the model and one search for each face of new surfaces.
bool give_to_bodies(TriMesh& mesh, const TriMesh& source, const ThreeMfContent& package);

/// Makes the faces from `first` on a body of this name, the others one or what bodies they are. The
/// mesh loses labels that are not those of the package.
void add_body(TriMesh& mesh, std::size_t first, const std::string& name, ThreeMfContent& package);

}  // namespace povmesh
