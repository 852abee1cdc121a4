// Joins one side of a cut with its mirror image.
#pragma once

#include "cut/level_frame.h"
#include "cut/level_split.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// The side of a split model and its image in the level, turned over so that it is wound like the
/// side itself. The two have the vertices on the level in common; faces that lie on the level are
/// left out. Empty when there is no other face.
TriMesh mirrored(const LevelSplit& split, const LevelFrame& frame, LevelSide side);

}  // namespace povmesh
