// Recipes: lists of operations with their options, as JSON. Everything that may stand in one comes
// from the table of operations.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/findings_report.h"
#include "cli/operations.h"
#include "cli/recipe_gate.h"

namespace povmesh::cli {

/// What an operation does with the model in a recipe.
enum class StepRole : std::uint8_t {
    None,     // it cannot stand in one
    Change,   // it hands on another model
    Several,  // it makes several: only at the end of a recipe
    Look      // the model goes on as it is
};

struct RecipeStep {
    const OperationSpec* operation = nullptr;
    StepRole role = StepRole::Look;  // with these options
    Json options = Json::object();   // as they stand in the recipe
    Arguments arguments;             // the same with defaults, without models to read and write
    std::vector<Requirement> requirements;  // of a check; none when it is no gate
};

struct Recipe {
    std::string path;
    std::vector<RecipeStep> steps;
};

/// "step 2 (hollow)".
std::string step_name(const Recipe& recipe, std::size_t step);

/// Reads and checks a recipe whole. On failure returns one line: which step, which key, what would
/// be right.
std::string read_recipe(const std::string& path, Recipe& recipe);

/// What would be done, a line a step and one for each of its options.
std::string explain(const Recipe& recipe);

/// The JSON schema of recipes.
std::string recipe_schema();

/// The step that a command line stands for, options with their defaults left out. Returns why it is
/// none, or nothing.
std::string step_text(const OperationSpec& operation, const Arguments& arguments,
                      std::string& text);

}  // namespace povmesh::cli
