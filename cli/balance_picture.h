// Shows why a model falls or stands.
#pragma once

#include "design/standing.h"
#include "job/picture/picture.h"
#include "mesh/tri_mesh.h"

namespace povmesh::cli {

/// A model and how it stands.
struct Stand {
    const TriMesh* mesh;
    Base base;
    Standing standing;
};

/// The model cut open along the direction in which it falls first, which points to the right, seen
/// from the side: its base on the plate in green, and a plumb line from the centre of mass down to
/// the plate, red where it meets the plate outside the base. With `after`, two pictures side by
/// side, of the same scale.
picture::Image draw_stands(const Stand& before, const Stand* after);

}  // namespace povmesh::cli
