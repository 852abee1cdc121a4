// Drain holes of the operations that put cavities into a model.
#pragma once

#include <cstddef>

#include "cli/change.h"
#include "cli/operations.h"
#include "design/drain.h"
#include "mesh/tri_mesh.h"

namespace povmesh::cli {

/// --drain.
OptionSpec drain_option();

/// Empty unless holes leave some of so many cavities closed.
std::string sealed_text(const SealedCavities& sealed, std::size_t cavities);

/// Cuts the holes that were asked for, if any; leaves the mesh compact. Adds rows and a warning to
/// the report, or why a hole cannot be cut as its failure.
///
/// @param model_faces  how many faces are the model's; those of its cavities follow
/// @param thickness    of the wall
void cut_drains(const Arguments& arguments, TriMesh& mesh, std::size_t model_faces,
                double thickness, ChangeReport& report);

}  // namespace povmesh::cli
