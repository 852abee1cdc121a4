// Stands a model up in a direction, and tells which of its faces rest then and which must be held.
#pragma once

#include <cstdint>

#include "base/array.h"
#include "base/vec.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// Turns the mesh by the shortest arc that takes a direction to +z, by half a turn about x when it
/// is -z, and moves it so that its lowest point has z 0 and the middle of its box keeps x and y.
/// The mesh is compact afterwards: faces that rounding left without area are gone. Attributes stay.
/// Vertices that are not finite stay where they are.
///
/// @param up  of unit length; what is within 1e-7 of an axis is that axis
///
/// Quarter and half turns about an axis are exact but for the rounding of the sums.
void turn_up(TriMesh& mesh, Vec3d up);

/// Indices of faces.
struct PoseFaces {
    Array<std::uint32_t> held;     // look down by 45 degrees or more
    Array<std::uint32_t> leaning;  // look down by less, but need some support
    Array<std::uint32_t> resting;  // on the plate with all corners
};

/// By the angle of each face alone: what is in the shadow of other parts, or inside of them, is
/// told, too.
///
/// @param up  of unit length
PoseFaces faces_of_pose(const TriMesh& mesh, Vec3d up);

}  // namespace povmesh
