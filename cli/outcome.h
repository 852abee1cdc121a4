// What comes of an operation that reads a model and writes others, and how it is told.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "cli/console.h"
#include "cli/findings_report.h"
#include "cli/operations.h"

namespace povmesh::cli {

struct Outcome {
    ExitStatus status = Clean;
    std::string failure;                // why there is no result, as one line with the file
    std::vector<std::string> warnings;  // of what was read, without the file
    std::vector<std::string> lost;      // of what was written: what its format does not keep

    void fail(ExitStatus with, const std::string& text) {
        status = with;
        failure = text;
    }
};

/// The warnings of both kinds.
Json warnings_json(const Outcome& outcome);

/// Prints the failure, and with --json the object, else warnings and the table of a result without
/// failure. Returns the exit status.
int tell(const Outcome& outcome, const Arguments& arguments, Console& console,
         const std::function<Json()>& object, const std::function<std::string()>& table);

}  // namespace povmesh::cli
