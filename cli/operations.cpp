#include "cli/operations.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "cli/commands.h"

namespace povmesh::cli {
namespace {

bool parse_positive(std::string_view text, int& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() && number > 0;
}

std::string whole(double number) {
    return std::to_string(static_cast<long long>(number));
}

std::string join(std::span<const std::string_view> words, std::string_view between) {
    std::string text;
    for (const std::string_view word : words) {
        if (!text.empty()) text += between;
        text += word;
    }
    return text;
}

}  // namespace

std::span<const OptionSpec> common_options() {
    static const std::array<OptionSpec, 1> options = {
        OptionSpec{.name = "--quiet",
                   .short_name = "-q",
                   .help = "Print results and errors only: no warnings, no progress"}};
    return options;
}

std::span<const ExitStatusSpec> exit_statuses() {
    static constexpr std::array<ExitStatusSpec, 5> kStatuses = {{
        {Clean, "done, and nothing is wrong"},
        {Flawed, "a model has flaws"},
        {Usage, "the command line is wrong"},
        {CannotRead, "a file cannot be read, or is not a model"},
        {CannotWrite, "a result cannot be written"},
    }};
    return kStatuses;
}

std::span<const OperationSpec> operations() {
    static const std::array<OperationSpec, 4> table = {
        OperationSpec{
            .name = "check",
            .summary = "Tell whether models are fit to print",
            .description =
                "Reads each STL file and prints its size, its volume and the flaws that a printer "
                "trips over.",
            .positionals = {{"FILE", true, "STL files, binary or ASCII"}},
            .options = {{.name = "--json",
                         .help = "Print one JSON array with an object for each file"}},
            .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
            .run = run_check},
        OperationSpec{
            .name = "convert",
            .summary = "Write a model as binary STL",
            .description =
                "Reads binary or ASCII STL and writes binary STL. IN and OUT may be the same file; "
                "OUT is replaced only when the new content is complete.",
            .positionals = {{"IN", false, "STL file, binary or ASCII"},
                            {"OUT", false, "File to write; its name ends in .stl"}},
            .statuses = {Clean, Usage, CannotRead, CannotWrite},
            .run = run_convert},
        OperationSpec{
            .name = "render",
            .summary = "Draw a picture of a model",
            .description = "Draws the model in parallel projection and writes a PNG file.",
            .positionals = {{"FILE", false, "STL file, binary or ASCII"}},
            .options = {{.name = "--output",
                         .short_name = "-o",
                         .type = ValueType::Text,
                         .placeholder = "PNG",
                         .is_required = true,
                         .help = "File to write; its name ends in .png"},
                        {.name = "--size",
                         .type = ValueType::PixelSize,
                         .placeholder = "WIDTHxHEIGHT",
                         .unit = "pixels",
                         .default_value = "800x600",
                         .low = 16,
                         .high = 8192,
                         .help = "Size of the picture"},
                        {.name = "--view",
                         .type = ValueType::Choice,
                         .placeholder = "VIEW",
                         .default_value = "iso",
                         .choices = {"iso", "front", "back", "left", "right", "top", "bottom"},
                         .help = "Side to look from; z is up, front looks along y"},
                        {.name = "--flaws", .help = "Draw the flaws in colour, print the legend"}},
            .statuses = {Clean, Usage, CannotRead, CannotWrite},
            .run = run_render},
        OperationSpec{.name = "version",
                      .summary = "Print the version and how the tool was built",
                      .statuses = {Clean, Usage, CannotWrite},
                      .run = run_version},
    };
    return table;
}

std::string full_help(const OptionSpec& option) {
    std::string notes;
    const auto note = [&](const std::string& text) { notes += (notes.empty() ? "" : ", ") + text; };
    if (!option.unit.empty()) note(std::string(option.unit));
    if (!option.choices.empty()) note("one of " + join(option.choices, " "));
    if (option.low < option.high) note(whole(option.low) + " to " + whole(option.high));
    if (!option.default_value.empty()) note("default " + std::string(option.default_value));
    if (option.is_required) note("must be given");
    return std::string(option.help) + (notes.empty() ? "" : " (" + notes + ")");
}

std::string value_error(const OptionSpec& option, const std::string& value) {
    if (option.type == ValueType::Choice &&
        std::find(option.choices.begin(), option.choices.end(), value) == option.choices.end()) {
        return "'" + value + "' is not one of " + join(option.choices, ", ");
    }
    if (option.type == ValueType::PixelSize) {
        const auto in_range = [&](int n) { return n >= option.low && n <= option.high; };
        const PixelSize size = parse_pixel_size(value);
        if (!in_range(size.width) || !in_range(size.height)) {
            return "'" + value + "' is not " + std::string(option.placeholder) + " with " +
                   whole(option.low) + " to " + whole(option.high) + " " +
                   std::string(option.unit) + " each";
        }
    }
    return {};
}

PixelSize parse_pixel_size(std::string_view text) {
    const std::size_t cross = text.find('x');
    PixelSize size;
    if (cross == std::string_view::npos || !parse_positive(text.substr(0, cross), size.width) ||
        !parse_positive(text.substr(cross + 1), size.height)) {
        return {};
    }
    return size;
}

}  // namespace povmesh::cli
