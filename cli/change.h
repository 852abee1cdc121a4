// The frame of the operations that make another model of a model: reading, the table of before and
// after, writing, reading back.
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/findings_report.h"
#include "cli/model.h"
#include "cli/outcome.h"
#include "job/remarks.h"
#include "mesh/tri_mesh.h"
#include "run/progress.h"

namespace povmesh::cli {

/// What an operation tells beyond the measures of the model before and after.
/// Its doubts are warnings that make the status Flawed.
struct ChangeReport : Remarks {
    std::string failure;  // why there is no result, without the file; nothing is written then
    ExitStatus failed_with = Flawed;  // then: Usage where another argument would do
    double seconds = 0;               // that it took, without reading and writing
    std::string new_body;             // of a 3MF file: the name of an object that the faces from
    std::size_t new_body_from = 0;    // this one on make; empty: they go to those of the model
    std::vector<Row> before, after;   // of the same labels, to stand beside each other
    std::vector<Row> rows;
    Json json_before = Json::object(), json_after = Json::object();
    Json json = Json::object();
};

/// Changes the mesh and leaves it compact. Progress goes from 50 to 80.
using Change = std::function<ChangeReport(TriMesh& mesh, Progress progress)>;

/// The steps of an operation between reading a model and telling what became of it.
struct RewriteSteps {
    /// Changes the mesh; returns why nothing is to be written, without the file, or nothing.
    std::function<std::string(LoadedModel& model)> change;
    /// Looks at what was read back; may be empty.
    std::function<void(LoadedModel& back)> inspect;
};

/// Reads IN, changes it, writes it as --output, reads that back and compares it. Failures, and
/// warnings of reading and of what the format loses, go into the outcome. Progress is 48 after
/// reading and 80 before writing.
void rewrite_model(const Arguments& arguments, Progress progress, const RewriteSteps& steps,
                   Outcome& outcome);

/// Changes the model IN and writes it as --output, with a table or, with --json, an object of what
/// changed. A result without faces is not written. Returns the exit status.
int run_change(const Arguments& arguments, Console& console, const Change& change);

}  // namespace povmesh::cli
