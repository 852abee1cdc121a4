#include "cli/operations.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "cli/commands.h"
#include "cli/shared_options.h"
#include "job/numbers.h"

namespace povmesh::cli {
namespace {

std::string bound(double number) {
    return number == std::floor(number) ? std::to_string(static_cast<long long>(number))
                                        : human_number(number);
}

bool has_range(const OptionSpec& option) {
    return option.low < option.high && option.low != -kNoLimit;
}

// "16 to 8192", "at least 0".
std::string range(const OptionSpec& option) {
    if (option.high == kNoLimit) return "at least " + bound(option.low);
    return bound(option.low) + " to " + bound(option.high);
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
    static const std::array<OptionSpec, 5> options = {
        OptionSpec{.name = "--quiet",
                   .short_name = "-q",
                   .help = "Print results and errors only: no warnings, no progress"},
        OptionSpec{.name = "--format",
                   .type = ValueType::Choice,
                   .placeholder = "FORMAT",
                   .choices = model_formats(),
                   .help = "Format of a model that is - in the place of a file: standard input or "
                           "output"},
        OptionSpec{.name = "--threads",
                   .type = ValueType::Number,
                   .placeholder = "COUNT",
                   .low = 1,
                   .high = 1024,
                   .help = "How many threads work, by default OMP_NUM_THREADS or one for each "
                           "processor; results are the same for any number"},
        OptionSpec{.name = "--memory",
                   .type = ValueType::Bytes,
                   .placeholder = "SIZE",
                   .help = "Give up, and write nothing, when it takes more memory, such as 500M "
                           "or 2G; 0 is all there is"},
        OptionSpec{.name = "--as-recipe",
                   .help = "Do nothing; print the command as a step of a recipe (see 'povmesh "
                           "run')"}};
    return options;
}

std::span<const ExitStatusSpec> exit_statuses() {
    static constexpr std::array<ExitStatusSpec, 6> kStatuses = {{
        {Clean, "done, and nothing is wrong"},
        {Flawed, "a model has flaws, or nothing would be left of it"},
        {Usage, "the command line is wrong"},
        {CannotRead, "a file cannot be read, or is not a model"},
        {CannotWrite, "a result cannot be written"},
        {OverLimit, "a limit of time or memory was reached; nothing is written"},
    }};
    return kStatuses;
}

std::span<const OperationSpec> operations() {
    static const std::array<OperationSpec, 24> table = {
        check_operation(),     repair_operation(),  split_operation(),     cut_operation(),
        decompose_operation(), reduce_operation(),  remesh_operation(),    revise_operation(),
        subdivide_operation(), hollow_operation(),  balance_operation(),   offset_operation(),
        wrap_operation(),      infill_operation(),  lampshade_operation(), voxelize_operation(),
        orient_operation(),    support_operation(), strength_operation(),  thickness_operation(),
        convert_operation(),   render_operation(),  run_operation(),       version_operation(),
    };
    return table;
}

std::string full_help(const OptionSpec& option) {
    std::string notes;
    const auto note = [&](const std::string& text) { notes += (notes.empty() ? "" : ", ") + text; };
    if (!option.unit.empty()) note(std::string(option.unit));
    if (!option.choices.empty()) note("one of " + join(option.choices, " "));
    if (has_range(option)) note(range(option));
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
                   bound(option.low) + " to " + bound(option.high) + " " +
                   std::string(option.unit) + " each";
        }
    }
    if (option.type == ValueType::Vector && std::isnan(parse_vector(value).x)) {
        return "'" + value + "' is not three numbers with commas between them, such as 0,0,1";
    }
    if (option.type == ValueType::Circle && !(parse_circle(value).radius > 0)) {
        return "'" + value +
               "' is not a place and a radius above 0, four numbers with commas between " +
               "them, such as 0,0,-10,1.5";
    }
    if (option.type == ValueType::Number) {
        const double number = parse_number(value);
        if (!(number >= option.low && number <= option.high)) {
            return "'" + value + "' is not a number" +
                   (has_range(option) ? " of " + range(option) : std::string());
        }
    }
    if (option.type == ValueType::Bytes && !(parse_bytes(value) >= 0)) {
        return "'" + value + "' is not a number of bytes, such as 500M or 2G";
    }
    return {};
}

}  // namespace povmesh::cli
