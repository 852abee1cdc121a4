// What repair did to a mesh, as rows and as JSON.
#pragma once

#include <vector>

#include "cli/findings_report.h"
#include "job/mending.h"

namespace povmesh::cli {

/// What was done, a row each; only what there was to do.
std::vector<Row> mending_rows(const Mending& mending);
Json mending_json(const Mending& mending);

}  // namespace povmesh::cli
