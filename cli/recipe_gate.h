// What a check in a recipe can require of the model before the recipe goes on.
#pragma once

#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <string_view>

#include "cli/findings_report.h"

namespace povmesh::cli {

enum class RequirementType : std::uint8_t { Truth, Number, Size };

struct RequirementSpec {
    std::string_view name;  // "min_wall"
    RequirementType type;
    std::string_view help;
    /// What the report of a check, as its JSON object, says about it: the text for people.
    std::string (*found)(const Json& report);
    bool (*is_met)(const Json& report, const Json& asked);
};

struct Requirement {
    const RequirementSpec* spec;
    Json asked;  // of the type that the spec says
};

std::span<const RequirementSpec> requirement_specs();

/// Empty when the value is of the type, else what would be right: "a number of at least 0".
std::string requirement_error(const RequirementSpec& spec, const Json& value);

}  // namespace povmesh::cli
