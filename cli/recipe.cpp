#include "cli/recipe.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <optional>
#include <set>
#include <string_view>

#include "cli/command_line.h"
#include "cli/console.h"
#include "cli/shared_options.h"
#include "io/file.h"
#include "job/numbers.h"

namespace povmesh::cli {
namespace {

constexpr std::uint64_t kMostBytes = std::uint64_t{1} << 20;
constexpr std::size_t kMostSteps = 1000;
constexpr std::string_view kOperation = "operation";
constexpr std::string_view kRequire = "require";

StepRole role_of(const OperationSpec& operation) {
    if (operation.positionals.size() != 1) return StepRole::None;
    for (const OptionSpec& option : operation.options) {
        if (option.name != "--output") continue;
        if (option.help == model_output().help) return StepRole::Change;
        if (option.placeholder == "DIR") return StepRole::Several;
    }
    return StepRole::Look;
}

bool is_check(const OperationSpec& operation) {
    return operation.name == "check";
}

// Whether a recipe says it: what the model is read from and written to is not for the steps.
bool is_for_steps(const OperationSpec& operation, const OptionSpec& option) {
    if (option.name == "--json") return false;
    return option.name != "--output" || role_of(operation) == StepRole::Look;
}

// That of an operation which is asked to look only.
StepRole role_with(const OperationSpec& operation, const Arguments& arguments) {
    const StepRole role = role_of(operation);
    const bool only_looks = (role == StepRole::Change && arguments.has("--check")) ||
                            (role == StepRole::Several && arguments.has("--preview"));
    return only_looks ? StepRole::Look : role;
}

// "--drop-tiny" as a key: "drop_tiny".
std::string key_of(const OptionSpec& option) {
    std::string key(option.name.substr(2));
    std::replace(key.begin(), key.end(), '-', '_');
    return key;
}

template <typename Take>
void for_each_option(const OperationSpec& operation, Take&& take) {
    for (const OptionSpec& option : operation.options) {
        if (is_for_steps(operation, option)) take(option);
    }
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
    return text;
}

std::string keys_text(const OperationSpec& operation) {
    std::vector<std::string> keys;
    for_each_option(operation, [&](const OptionSpec& option) { keys.push_back(key_of(option)); });
    if (is_check(operation)) keys.emplace_back(kRequire);
    return keys.empty() ? "it takes none" : "it takes " + joined(keys);
}

std::string operations_text() {
    std::vector<std::string> names;
    for (const OperationSpec& operation : operations()) {
        if (role_of(operation) != StepRole::None) names.emplace_back(operation.name);
    }
    return joined(names);
}

std::size_t numbers_of(ValueType type) {
    if (type == ValueType::Vector) return 3;
    return type == ValueType::Circle ? 4 : 1;
}

// A number of which only some values are allowed.
bool is_number(const OptionSpec& option) {
    if (option.type == ValueType::Number) return true;
    return option.type == ValueType::Choice &&
           std::none_of(option.choices.begin(), option.choices.end(),
                        [](std::string_view choice) { return std::isnan(parse_number(choice)); });
}

std::string shown(const Json& value) {
    const std::string text = value.dump(-1, ' ', false, Json::error_handler_t::replace);
    return text.size() > 40 ? text.substr(0, 37) + "..." : text;
}

std::string digits_of(double number) {
    std::array<char, 32> text;
    return {text.data(), std::to_chars(text.data(), text.data() + text.size(), number).ptr};
}

// Numbers as a command line has them, with commas between them; nothing when one is none.
std::optional<std::string> numbers_text(const Json& value, std::size_t count) {
    if (!value.is_array() || value.size() != count) return std::nullopt;
    std::string text;
    for (const Json& number : value) {
        if (!number.is_number()) return std::nullopt;
        text += (text.empty() ? "" : ",") + digits_of(number.get<double>());
    }
    return text;
}

// One value as the command line has it; nothing when it is of another type.
std::optional<std::string> argument_of(const OptionSpec& option, const Json& value) {
    if (is_number(option)) {
        if (!value.is_number()) return std::nullopt;
        return digits_of(value.get<double>());
    }
    const std::size_t count = numbers_of(option.type);
    if (count > 1) return numbers_text(value, count);
    if (!value.is_string()) return std::nullopt;
    return value.get<std::string>();
}

std::string wanted_text(const OptionSpec& option) {
    if (is_number(option)) return "a number";
    switch (option.type) {
        case ValueType::Flag:
            return "true or false";
        case ValueType::Vector:
            return "three numbers, such as [0, 0, 1]";
        case ValueType::Circle:
            return "four numbers, such as [0, 0, -10, 1.5]";
        default:
            return "a text";
    }
}

// Takes the value of a key; returns what is wrong with it.
std::string take_value(const OptionSpec& option, const Json& value, Arguments& arguments) {
    if (option.type == ValueType::Flag) {
        if (!value.is_boolean()) return " is " + shown(value) + "; it takes true or false";
        if (value.get<bool>()) arguments.add(option.name, "true");
        return {};
    }
    const bool is_list =
        option.takes_several && value.is_array() &&
        (numbers_of(option.type) == 1 || value.empty() || !value.front().is_number());
    const Json values = is_list ? value : Json::array({value});
    for (const Json& one : values) {
        const std::optional<std::string> text = argument_of(option, one);
        if (!text) return " is " + shown(one) + "; it takes " + wanted_text(option);
        if (const std::string error = value_error(option, *text); !error.empty())
            return ": " + error;
        arguments.add(option.name, *text);
    }
    return {};
}

const OptionSpec* option_of(const OperationSpec& operation, std::string_view key) {
    const OptionSpec* found = nullptr;
    for_each_option(operation, [&](const OptionSpec& option) {
        if (key_of(option) == key) found = &option;
    });
    return found;
}

// Keys that are asked of a gate; returns what is wrong.
std::string take_requirements(const Json& require, RecipeStep& step) {
    std::vector<std::string> names;
    for (const RequirementSpec& spec : requirement_specs()) names.emplace_back(spec.name);
    if (!require.is_object() || require.empty()) {
        return "\"require\" is " + shown(require) + "; it takes an object with some of " +
               joined(names);
    }
    for (const auto& item : require.items()) {
        const std::string& key = item.key();
        const Json& value = item.value();
        const auto specs = requirement_specs();
        const auto spec = std::find_if(specs.begin(), specs.end(),
                                       [&](const RequirementSpec& s) { return s.name == key; });
        if (spec == specs.end()) {
            return "\"require\": unknown key \"" + key + "\"; it takes " + joined(names);
        }
        const std::string wanted = requirement_error(*spec, value);
        if (!wanted.empty()) {
            std::string text = "\"require\": \"";
            return text.append(key).append("\" is ").append(shown(value)).append("; it takes ") +
                   wanted;
        }
        step.requirements.push_back({&*spec, value});
        if (key == "min_wall") {
            if (step.arguments.has("--min-wall")) {
                return "\"min_wall\" stands beside \"require\" and in it; once is enough";
            }
            step.arguments.add("--min-wall", digits_of(value.get<double>()));
        }
        // Not counted, they would be no reason to go on.
        const bool asks_all = key == "clean" || key == "max_self_intersections";
        if (asks_all && !step.arguments.has("--self-intersections")) {
            step.arguments.add("--self-intersections", "true");
        }
    }
    return {};
}

std::string take_keys(const Json& json, RecipeStep& step) {
    const OperationSpec& operation = *step.operation;
    for (const auto& [key, value] : json.items()) {
        if (key == kOperation || (key == kRequire && is_check(operation))) continue;
        const OptionSpec* const option = option_of(operation, key);
        if (option == nullptr) return "unknown key \"" + key + "\"; " + keys_text(operation);
        const std::string error = take_value(*option, value, step.arguments);
        if (!error.empty()) {
            std::string text = "\"";
            return text.append(key).append("\"").append(error).append(": ") + full_help(*option);
        }
        step.options[key] = value;
    }
    // After the options: it may add some.
    if (is_check(operation) && json.contains(kRequire)) {
        step.options[std::string(kRequire)] = json.at(kRequire);
        if (std::string error = take_requirements(json.at(kRequire), step); !error.empty()) {
            return error;
        }
    }
    std::string missing;
    for_each_option(operation, [&](const OptionSpec& option) {
        if (option.is_required && missing.empty() && !step.arguments.has(option.name)) {
            missing = "\"" + key_of(option) + "\" is missing: " + full_help(option);
        }
    });
    return missing;
}

// Returns what is wrong, with the number of the step and, when it has one, its operation.
std::string take_step(const Json& json, std::size_t number, bool is_last, RecipeStep& step) {
    const std::string place = "step " + std::to_string(number);
    if (!json.is_object()) {
        return place + ": is " + shown(json) +
               "; a step is an object such as {\"operation\": " + "\"repair\"}";
    }
    if (!json.contains(kOperation) || !json.at(kOperation).is_string()) {
        return place + ": \"operation\" is missing or no text; it is one of " + operations_text();
    }
    const auto name = json.at(kOperation).get<std::string>();
    for (const OperationSpec& operation : operations()) {
        if (operation.name == name) step.operation = &operation;
    }
    if (step.operation == nullptr) {
        return place + ": there is no operation \"" + name + "\"; it is one of " +
               operations_text();
    }
    if (role_of(*step.operation) == StepRole::None) {
        return place + " (" + name +
               "): makes no model that could go on, so it cannot stand in a " +
               "recipe; it is one of " + operations_text();
    }
    const std::string error = take_keys(json, step);
    if (!error.empty()) return place + " (" + name + "): " + error;
    step.role = role_with(*step.operation, step.arguments);
    if (step.role == StepRole::Several && !is_last) {
        return place + " (" + name +
               "): makes several models, so it can only be the last step of a recipe";
    }
    fill_in_defaults(*step.operation, step.arguments);
    return {};
}

// Without the name of the parser: "line 3, column 5: syntax error ...".
std::string parse_failure(const Json::exception& error) {
    std::string text = error.what();
    if (const std::size_t end = text.find("] "); text.starts_with('[') && end != text.npos) {
        text.erase(0, end + 2);
    }
    constexpr std::string_view kBegin = "parse error at ";
    if (text.starts_with(kBegin)) text.erase(0, kBegin.size());
    return text;
}

// Reads JSON in which no object has a key twice: the second would silently replace the first.
std::string parse_json(std::string_view text, Json& json) {
    std::vector<std::set<std::string>> keys;
    std::string twice;
    const auto look = [&](int /*depth*/, Json::parse_event_t event, Json& parsed) {
        if (event == Json::parse_event_t::object_start) keys.emplace_back();
        if (event == Json::parse_event_t::object_end) keys.pop_back();
        if (event == Json::parse_event_t::key) {
            const auto key = parsed.get<std::string>();
            if (!keys.back().insert(key).second && twice.empty()) twice = key;
        }
        return true;
    };
    try {
        json = Json::parse(text, look);
    } catch (const Json::exception& error) {
        return "is no JSON: " + parse_failure(error);
    }
    return twice.empty() ? "" : "has the key \"" + twice + "\" twice in one object";
}

}  // namespace

std::string step_name(const Recipe& recipe, std::size_t step) {
    return "step " + std::to_string(step + 1) + " (" +
           std::string(recipe.steps[step].operation->name) + ")";
}

std::string read_recipe(const std::string& path, Recipe& recipe) {
    recipe.path = path;
    InputFile file;
    if (const Status status = file.open(path); !status.ok()) return status.text();
    if (file.size() > kMostBytes) return path + ": no recipe is larger than 1 MB";
    const Array<char> bytes = file.read_all();
    Json json;
    std::string error = parse_json({bytes.data(), bytes.size()}, json);
    if (!error.empty()) return path + ": " + error;
    if (!json.is_array() || json.empty() || json.size() > kMostSteps) {
        return path + ": a recipe is a list of 1 to " + std::to_string(kMostSteps) +
               " steps: [{\"operation\": \"repair\"}, ...]";
    }
    for (std::size_t i = 0; i < json.size() && error.empty(); ++i) {
        error = take_step(json[i], i + 1, i + 1 == json.size(), recipe.steps.emplace_back());
    }
    return error.empty() ? "" : path + ": " + error;
}

std::string explain(const Recipe& recipe) {
    std::string text =
        on_one_line(recipe.path) + ": " + counted(recipe.steps.size(), "step") + "\n";
    for (std::size_t i = 0; i < recipe.steps.size(); ++i) {
        const RecipeStep& step = recipe.steps[i];
        text += std::to_string(i + 1) + "  " + std::string(step.operation->name) + ": " +
                std::string(step.operation->summary) + "\n";
        std::vector<Row> rows;
        for (const auto& [key, value] : step.options.items()) {
            if (key == kRequire) continue;
            const OptionSpec& option = *option_of(*step.operation, key);
            rows.emplace_back(key + " " + shown(value), option.help);
        }
        for (const Requirement& requirement : step.requirements) {
            rows.emplace_back("goes on only if " + std::string(requirement.spec->name) + " " +
                                  shown(requirement.asked),
                              requirement.spec->help);
        }
        text += table_text(rows);
    }
    return text;
}

namespace {

// 2 rather than 2.0.
Json whole_if_it_is(double number) {
    constexpr double kLargest = 1e15;
    const bool is_whole = std::abs(number) < kLargest && number == std::floor(number);
    return is_whole ? Json(static_cast<std::int64_t>(number)) : Json(number);
}

// A text of the command line as JSON has it.
Json json_value(const OptionSpec& option, const std::string& text) {
    if (option.type == ValueType::Flag) return true;
    if (is_number(option)) return whole_if_it_is(parse_number(text));
    if (option.type != ValueType::Vector && option.type != ValueType::Circle) return text;
    Json numbers = Json::array();
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t comma = std::min(text.find(',', begin), text.size());
        numbers.push_back(
            whole_if_it_is(parse_number(std::string_view(text).substr(begin, comma - begin))));
        begin = comma + 1;
    }
    return numbers;
}

Json value_schema(const OptionSpec& option) {
    switch (option.type) {
        case ValueType::Flag:
            return {{"type", "boolean"}};
        case ValueType::Number: {
            Json schema = {{"type", "number"}};
            if (option.low < option.high && option.low != -kNoLimit) {
                schema["minimum"] = whole_if_it_is(option.low);
            }
            if (option.low < option.high && option.high != kNoLimit) {
                schema["maximum"] = whole_if_it_is(option.high);
            }
            return schema;
        }
        case ValueType::Bytes:
            return {{"type", "string"}};
        case ValueType::Choice: {
            Json values = Json::array();
            for (const std::string_view choice : option.choices) {
                values.push_back(json_value(option, std::string(choice)));
            }
            return {{"enum", std::move(values)}};
        }
        case ValueType::Vector:
        case ValueType::Circle: {
            const std::size_t count = numbers_of(option.type);
            return {{"type", "array"},
                    {"items", {{"type", "number"}}},
                    {"minItems", count},
                    {"maxItems", count}};
        }
        default:
            return {{"type", "string"}};
    }
}

Json option_schema(const OptionSpec& option) {
    Json schema = value_schema(option);
    if (option.takes_several) {
        const Json one = schema;
        schema = {{"anyOf", {one, {{"type", "array"}, {"items", one}}}}};
    }
    schema["description"] = full_help(option);
    return schema;
}

Json requirement_schema() {
    Json properties = Json::object();
    for (const RequirementSpec& spec : requirement_specs()) {
        Json schema = {{"type", "boolean"}};
        if (spec.type == RequirementType::Number) schema = {{"type", "number"}, {"minimum", 0}};
        if (spec.type == RequirementType::Size) {
            schema = {{"type", "array"},
                      {"items", {{"type", "number"}, {"minimum", 0}}},
                      {"minItems", 3},
                      {"maxItems", 3}};
        }
        schema["description"] = spec.help;
        properties[std::string(spec.name)] = std::move(schema);
    }
    return {{"type", "object"},
            {"description", "The recipe goes on only if all of these hold"},
            {"properties", std::move(properties)},
            {"minProperties", 1},
            {"additionalProperties", false}};
}

Json step_schema(const OperationSpec& operation) {
    Json properties = {{kOperation, {{"const", operation.name}}}};
    Json required = Json::array({kOperation});
    for_each_option(operation, [&](const OptionSpec& option) {
        properties[key_of(option)] = option_schema(option);
        if (option.is_required) required.push_back(key_of(option));
    });
    if (is_check(operation)) properties[std::string(kRequire)] = requirement_schema();
    return {{"type", "object"},
            {"description", operation.summary},
            {"properties", std::move(properties)},
            {"required", std::move(required)},
            {"additionalProperties", false}};
}

}  // namespace

std::string recipe_schema() {
    Json steps = Json::array();
    for (const OperationSpec& operation : operations()) {
        if (role_of(operation) != StepRole::None) steps.push_back(step_schema(operation));
    }
    return json_text({{"$schema", "https://json-schema.org/draft/2020-12/schema"},
                      {"title", "Recipe for povmesh run"},
                      {"type", "array"},
                      {"minItems", 1},
                      {"maxItems", kMostSteps},
                      {"items", {{"oneOf", std::move(steps)}}}});
}

std::string step_text(const OperationSpec& operation, const Arguments& arguments,
                      std::string& text) {
    if (role_of(operation) == StepRole::None) {
        return std::string(operation.name) +
               ": makes no model that could go on, so it cannot stand in a recipe";
    }
    Json step = {{kOperation, operation.name}};
    for_each_option(operation, [&](const OptionSpec& option) {
        if (!arguments.has(option.name)) return;
        const std::vector<std::string>& given = arguments.all(option.name);
        if (given.size() == 1 && given.front() == option.default_value) return;
        Json values = Json::array();
        for (const std::string& value : given) values.push_back(json_value(option, value));
        step[key_of(option)] =
            option.takes_several && given.size() > 1 ? values : Json(values.back());
    });
    text = json_text(step);
    return {};
}

}  // namespace povmesh::cli
