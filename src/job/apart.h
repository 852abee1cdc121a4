// Pictures of bodies pulled apart.
#pragma once

#include <span>

#include "base/vec.h"
#include "job/picture/picture.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// Draws the bodies moved away from the middle of the whole, in two colours by turns, or their own
/// where they have any. The bodies are the same afterwards.
picture::Image draw_apart(std::span<TriMesh> bodies, const Box3d& whole,
                          const picture::RenderOptions& options);

/// The box of a mesh; empty when it has no vertex.
Box3d scene_box_of(const TriMesh& mesh);

}  // namespace povmesh
