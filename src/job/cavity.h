// What operations share that put cavities into a model.
#pragma once

#include <string>
#include <string_view>

#include "job/remarks.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// The least distance between the two surfaces.
double smallest_wall(const TriMesh& model, const TriMesh& cavity);

/// Adds cavities to a model, their inside out. The model is compact afterwards.
void add_cavities(TriMesh& model, const TriMesh& cavities);

/// True when an edge of the model has one face only. Builds its uses.
bool has_holes(TriMesh& model);

/// Adds a doubt where neighbouring faces are wound against each other: volumes and centres of mass
/// are summed over signed faces, so that those of such a model are any number.
void doubt_windings(const TriMesh& model, Remarks& remarks);
/// The same as a warning, of operations whose result does not depend on the volume.
void warn_of_windings(const TriMesh& model, Remarks& remarks);

/// Of operations that cut an open model.
constexpr std::string_view kOpenCut =
    "the model is open: a cut stays open where it does not run around in a closed loop; 'povmesh "
    "repair' closes holes";

/// What a person can do about a model that has no room for a cavity of cubes of that size: repair
/// it, scale it to millimetres when it is tiny, or else `otherwise`.
std::string cure_of(TriMesh& model, double cube, const std::string& otherwise);

}  // namespace povmesh
