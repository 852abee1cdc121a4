// Takes a straight hole out of a solid.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/vec.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// A prism around a line, with corners on the circle of the radius.
struct Bore {
    static constexpr std::size_t kMostSides = 60;

    Vec3d from;         // centre of one end; that end must lie outside the material
    Vec3d to;           // centre of the other end
    double radius = 0;  // model units
    std::size_t sides = 32;
};

enum class BoreOutcome : std::uint8_t {
    Done,
    Missed,    // no face of the model reaches into the bore
    NotSolid,  // the model is open there, or `from` lies within it
    Invalid,   // not finite, without length or radius, or the sides number less than 3 or too many
};

/// Takes the bore out of the solid that the mesh encloses. A closed mesh stays closed and manifold:
/// faces at the bore are split where they enter it, and its walls are filled with triangles on
/// exactly the edges that come about. Where `to` lies within the material, the hole has a floor.
///
/// Faces away from the bore keep their records, vertices theirs; new vertices follow. Parts of
/// faces get colours and texture coordinates in proportion; walls have the mean colour of what was
/// taken and the label -1. Unless the outcome is Done the mesh stays as it is.
///
/// A vertex counts as lying on a side of the bore when it is nearer than 1/500 of the radius, so
/// that no slivers arise there.
///
/// Time: linear in the faces; n log n in those at the bore, for each of its sides.
BoreOutcome bore(TriMesh& mesh, const Bore& bore);

}  // namespace povmesh
