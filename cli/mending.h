// What repair does to a mesh, in words.
#pragma once

#include <string>
#include <vector>

#include "cli/findings_report.h"
#include "repair/repair.h"

namespace povmesh::cli {

/// The options of the tool: nothing is dropped for being small, duplicates go from meshes of any
/// size, cavities stay.
RepairOptions tool_repair_options();

/// What was done, a row each; only what there was to do.
std::vector<Row> mending_rows(const RepairReport& report);
Json mending_json(const RepairReport& report);

/// What repair would do about the flaws found, a line each, by trying it on a copy of the mesh.
/// Empty when there is nothing for it, or more than kMaxQuickFaces.
std::vector<std::string> suggestions(const TriMesh& mesh, const Findings& findings);

}  // namespace povmesh::cli
