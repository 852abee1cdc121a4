// What operations share that put cavities into a model.
#pragma once

#include "mesh/tri_mesh.h"

namespace povmesh::cli {

/// The least distance of the one surface's corners and face centres from the other, both ways.
double smallest_wall(const TriMesh& model, const TriMesh& cavity);

/// Adds cavities to a model, their inside out. The model is compact afterwards.
void add_cavities(TriMesh& model, const TriMesh& cavities);

}  // namespace povmesh::cli
