#include "cli/outcome.h"

#include <nlohmann/json.hpp>

#include "cli/model.h"

namespace povmesh::cli {

Json warnings_json(const Outcome& outcome) {
    std::vector<std::string> warnings = outcome.warnings;
    warnings.insert(warnings.end(), outcome.lost.begin(), outcome.lost.end());
    return warnings;
}

int tell(const Outcome& outcome, const Arguments& arguments, Console& console,
         const std::function<Json()>& object, const std::function<std::string()>& table) {
    if (!outcome.failure.empty()) console.error(outcome.failure);
    if (arguments.has("--json")) {
        console.print(json_text(object()));
    } else if (outcome.failure.empty()) {
        warn_of(arguments.text("IN"), outcome.warnings, console);
        if (arguments.has("--output")) warn_of(arguments.text("--output"), outcome.lost, console);
        console.print(table());
    }
    return outcome.status;
}

}  // namespace povmesh::cli
