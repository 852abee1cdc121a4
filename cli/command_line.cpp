#include "cli/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "cli/help.h"

namespace povmesh::cli {
namespace {

CLI::callback_t keep_values(Arguments& arguments, std::string_view name) {
    return [&arguments, name](const CLI::results_t& values) {
        for (const std::string& value : values) arguments.add(name, value);
        return true;
    };
}

void add_option(CLI::App& app, const OptionSpec& spec, Arguments& arguments) {
    std::string names(spec.name);
    if (!spec.short_name.empty()) names = std::string(spec.short_name) + "," + names;
    if (spec.type == ValueType::Flag) {
        const std::string_view name = spec.name;
        app.add_flag_function(
            names, [&arguments, name](std::int64_t /*times*/) { arguments.add(name, "true"); });
        return;
    }
    CLI::Option* option =
        app.add_option(names, keep_values(arguments, spec.name))
            ->required(spec.is_required)
            ->check([&spec](const std::string& value) { return value_error(spec, value); });
    if (spec.takes_several) option->take_all();
}

void add_positional(CLI::App& app, const PositionalSpec& spec, Arguments& arguments) {
    CLI::Option* option = app.add_option(std::string(spec.name), keep_values(arguments, spec.name))
                              ->required(spec.is_required);
    if (spec.takes_several) option->expected(1, -1)->allow_extra_args();
}

void add_operation(CLI::App& app, const OperationSpec& spec, CommandLine& result) {
    CLI::App* sub = app.add_subcommand(std::string(spec.name));
    for (const PositionalSpec& positional : spec.positionals) {
        add_positional(*sub, positional, result.arguments);
    }
    for (const OptionSpec& option : spec.options) add_option(*sub, option, result.arguments);
    for (const OptionSpec& option : common_options()) {
        const bool is_own =
            std::any_of(spec.options.begin(), spec.options.end(),
                        [&](const OptionSpec& own) { return own.name == option.name; });
        if (!is_own) add_option(*sub, option, result.arguments);
    }
    sub->callback([&spec, &result] { result.operation = &spec; });
}

// What is wrong, and where to look it up.
std::string usage_error(const CLI::App& app, const CLI::ParseError& error) {
    const auto parsed = app.get_subcommands();
    if (!parsed.empty()) {
        const std::string& name = parsed.front()->get_name();
        return name + ": " + error.what() + "; see 'povmesh " + name + " --help'";
    }
    const std::vector<std::string> rest = app.remaining();
    const std::string what = rest.empty() ? "no operation is given" : "unknown: " + rest.front();
    return what + "; 'povmesh --help' lists the operations";
}

// The operation named on the command line, whatever is wrong behind its name.
const OperationSpec* chosen_operation(const CLI::App& app) {
    const auto parsed = app.get_subcommands();
    for (const OperationSpec& operation : operations()) {
        if (!parsed.empty() && parsed.front()->get_name() == operation.name) return &operation;
    }
    return nullptr;
}

}  // namespace

void fill_in_defaults(const OperationSpec& operation, Arguments& arguments) {
    for (const OptionSpec& option : operation.options) {
        if (!option.default_value.empty() && !arguments.has(option.name)) {
            arguments.add(option.name, std::string(option.default_value));
        }
    }
}

CommandLine read_command_line(int argument_count, const char* const* arguments) {
    CommandLine result;
    CLI::App app("", "povmesh");
    app.allow_windows_style_options(false);  // "/tmp/part.stl" is a path, there, too
    app.set_version_flag("--version", "povmesh " POVMESH_BUILD_VERSION);
    app.require_subcommand(1);
    for (const OptionSpec& option : common_options()) add_option(app, option, result.arguments);
    for (const OperationSpec& operation : operations()) add_operation(app, operation, result);

    try {
        app.parse(argument_count, arguments);
        fill_in_defaults(*result.operation, result.arguments);
    } catch (const CLI::CallForHelp&) {
        const OperationSpec* operation = chosen_operation(app);
        result.text = operation == nullptr ? help_text() : help_text(*operation);
    } catch (const CLI::CallForVersion& version) {
        result.text = std::string(version.what()) + "\n";
    } catch (const CLI::ParseError& error) {
        result.error = usage_error(app, error);
    }
    return result;
}

}  // namespace povmesh::cli
