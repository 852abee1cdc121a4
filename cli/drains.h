// Drain holes of the operations that put cavities into a model.
#pragma once

#include <cstddef>
#include <vector>

#include "cli/change.h"
#include "cli/operations.h"
#include "design/drain.h"
#include "job/hollow.h"
#include "mesh/tri_mesh.h"

namespace povmesh::cli {

/// --drain.
OptionSpec drain_option();

/// Those that were asked for.
std::vector<Drain> drains_of(const Arguments& arguments);

using job::sealed_text;

/// What drain holes came to.
void add_drain_rows(std::size_t holes, std::size_t closed, std::size_t cavities,
                    ChangeReport& report);

/// Cuts the holes that were asked for, if any; leaves the mesh compact. Adds rows and a warning to
/// the report, or why a hole cannot be cut as its failure.
///
/// @param model_faces  how many faces are the model's; those of its cavities follow
/// @param thickness    of the wall
void cut_drains(const Arguments& arguments, TriMesh& mesh, std::size_t model_faces,
                double thickness, ChangeReport& report);

}  // namespace povmesh::cli
