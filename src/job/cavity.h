// What operations share that put cavities into a model.
#pragma once

#include <string>

#include "mesh/tri_mesh.h"

namespace povmesh {

/// The least distance between the two surfaces.
double smallest_wall(const TriMesh& model, const TriMesh& cavity);

/// Adds cavities to a model, their inside out. The model is compact afterwards.
void add_cavities(TriMesh& model, const TriMesh& cavities);

/// True when an edge of the model has one face only. Builds its uses.
bool has_holes(TriMesh& model);

/// What a person can do about a model that has no room for a cavity of cubes of that size: repair
/// it, scale it to millimetres when it is tiny, or else `otherwise`.
std::string cure_of(TriMesh& model, double cube, const std::string& otherwise);

}  // namespace povmesh
