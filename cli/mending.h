// What repair does to a mesh, in words.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/findings_report.h"
#include "repair/repair.h"

namespace povmesh::cli {

/// The options of the tool: nothing is dropped for being small, duplicates go from meshes of any
/// size, cavities stay.
RepairOptions tool_repair_options();

struct Mending {
    RepairReport report;
    std::vector<std::string> given_up;  // what would have made something worse, and where
    std::optional<Findings> after;      // of the result, when it had to be examined
};

/// Repairs a mesh so that it has no more open edges, inverted faces, edges of several faces or of
/// opposite windings and crossings than before: a step that would bring more is left out.
///
/// @param search  for crossings in a result without new faces, which has none that are new
/// @param before  what was found in the mesh; when it tells no crossings they are not compared
Mending mend(TriMesh& mesh, RepairOptions options, const Findings& before,
             SelfIntersectionSearch search);

/// A line for the user when walls of faces back to back were taken out whole; else empty.
std::string wall_warning(const RepairReport& report);

/// What was done, a row each; only what there was to do.
std::vector<Row> mending_rows(const Mending& mending);
Json mending_json(const Mending& mending);

/// What repair would do about the flaws found, a line each, by trying it on a copy of the mesh.
/// Empty when there is nothing for it, or more than kMaxQuickFaces.
std::vector<std::string> suggestions(const TriMesh& mesh, const Findings& findings);

}  // namespace povmesh::cli
