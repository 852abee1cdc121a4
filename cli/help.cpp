#include "cli/help.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

namespace povmesh::cli {
namespace {

constexpr std::size_t kLineWidth = 80;

using Entry = std::pair<std::string, std::string>;  // a term and what it means

// Appends words; a line that would pass the width is broken before the word and goes on at
// `indent`.
void append_wrapped(std::string& text, std::size_t indent, std::string_view words) {
    std::size_t column = indent;
    while (!words.empty()) {
        const std::size_t length = std::min(words.find(' '), words.size());
        if (column > indent && column + 1 + length > kLineWidth) {
            text += "\n" + std::string(indent, ' ');
            column = indent;
        } else if (column > indent) {
            text += ' ';
            ++column;
        }
        text += words.substr(0, length);
        column += length;
        words.remove_prefix(std::min(length + 1, words.size()));
    }
    text += '\n';
}

// A heading and a list in two columns.
void append_list(std::string& text, std::string_view heading, const std::vector<Entry>& entries) {
    if (entries.empty()) return;
    std::size_t width = 0;
    for (const Entry& entry : entries) width = std::max(width, entry.first.size());
    text += "\n" + std::string(heading) + ":\n";
    for (const auto& [term, meaning] : entries) {
        text += "  " + term + std::string(width - term.size() + 2, ' ');
        append_wrapped(text, width + 4, meaning);
    }
}

Entry entry(const OptionSpec& option) {
    std::string term = option.short_name.empty() ? "    " : std::string(option.short_name) + ", ";
    term += option.name;
    if (!option.placeholder.empty()) term += " " + std::string(option.placeholder);
    return {term, full_help(option)};
}

std::vector<Entry> option_entries(std::span<const OptionSpec> options) {
    std::vector<Entry> entries;
    for (const OptionSpec& option : options) entries.push_back(entry(option));
    for (const OptionSpec& option : common_options()) {
        const auto is_same = [&](const OptionSpec& own) { return own.name == option.name; };
        if (std::none_of(options.begin(), options.end(), is_same)) {
            entries.push_back(entry(option));
        }
    }
    entries.push_back(entry({.name = "--help", .short_name = "-h", .help = "Print this help"}));
    return entries;
}

std::string usage(const OperationSpec& operation) {
    std::string text = "Usage: povmesh " + std::string(operation.name) + " [OPTIONS]";
    for (const OptionSpec& option : operation.options) {
        if (!option.is_required) continue;
        text += " " + std::string(option.short_name.empty() ? option.name : option.short_name) +
                " " + std::string(option.placeholder);
    }
    for (const PositionalSpec& positional : operation.positionals) {
        const std::string name =
            std::string(positional.name) + (positional.takes_several ? "..." : "");
        text += positional.is_required ? " " + name : " [" + name + "]";
    }
    return text + "\n";
}

}  // namespace

std::string help_text() {
    std::string text =
        "Usage: povmesh OPERATION [OPTIONS] ...\n\n"
        "Checks, repairs, splits, converts and draws triangle models for 3D printing.\n";
    std::vector<Entry> entries;
    for (const OperationSpec& operation : operations()) {
        entries.emplace_back(operation.name, operation.summary);
    }
    append_list(text, "Operations", entries);
    std::vector<Entry> options = option_entries({});
    options.push_back(entry({.name = "--version", .help = "Print the version"}));
    append_list(text, "Options", options);
    return text + "\n'povmesh OPERATION --help' tells more about each.\n";
}

std::string help_text(const OperationSpec& operation) {
    std::string text = usage(operation) + "\n";
    append_wrapped(text, 0,
                   std::string(operation.summary) + ". " + std::string(operation.description));
    std::vector<Entry> entries;
    for (const PositionalSpec& positional : operation.positionals) {
        entries.emplace_back(positional.name, positional.help);
    }
    append_list(text, "Arguments", entries);
    append_list(text, "Options", option_entries(operation.options));
    entries.clear();
    for (const auto& [status, meaning] : exit_statuses()) {
        // Every operation takes --memory.
        if (status == OverLimit || std::find(operation.statuses.begin(), operation.statuses.end(),
                                             status) != operation.statuses.end()) {
            entries.emplace_back(std::to_string(status), meaning);
        }
    }
    append_list(text, "Exit status", entries);
    return text;
}

}  // namespace povmesh::cli
