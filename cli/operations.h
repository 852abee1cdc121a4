// The table of what the tool can do: help, man page and shell completion are all made from it.
#pragma once

#include <limits>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cli/values.h"

namespace povmesh::cli {

class Arguments;
class Console;

/// The exit statuses, in the order of their weight: when several apply, the highest wins.
enum ExitStatus : int {
    Clean = 0,
    Flawed = 1,
    Usage = 2,
    CannotRead = 3,
    CannotWrite = 6,
    OverLimit = 7,
};

struct ExitStatusSpec {
    ExitStatus status;
    std::string_view meaning;
};

enum class ValueType {
    Flag,       // no value
    Text,       // anything, such as a file name
    Choice,     // one of `choices`
    PixelSize,  // WIDTHxHEIGHT, each from `low` to `high`
    Number,     // decimal, from `low` to `high`
    Bytes,      // of memory, 0 or more: 500M
    Vector,     // X,Y,Z: three decimals
    Circle,     // X,Y,Z,R: a place and a radius above 0
};

constexpr double kNoLimit = std::numeric_limits<double>::max();

/// One option. A field that does not apply is empty.
struct OptionSpec {
    std::string_view name = {};        // "--size"
    std::string_view short_name = {};  // "-o"
    ValueType type = ValueType::Flag;
    std::string_view placeholder = {};    // what stands for the value in help: "WIDTHxHEIGHT"
    std::string_view unit = {};           // "pixels"
    std::string_view default_value = {};  // as the user would write it
    double low = 0;                       // range of a number, both ends included;
    double high = 0;                      // -kNoLimit and kNoLimit: any number
    std::vector<std::string_view> choices = {};
    bool is_required = false;
    bool takes_several = false;  // may be given more than once
    std::string_view help = {};
};

struct PositionalSpec {
    std::string_view name = {};  // in capitals, as help shows it
    bool takes_several = false;
    std::string_view help = {};
    bool is_required = true;
};

struct OperationSpec {
    std::string_view name = {};
    std::string_view summary = {};      // one line
    std::string_view description = {};  // what it does beyond the summary; may be empty
    std::vector<PositionalSpec> positionals = {};
    std::vector<OptionSpec> options = {};
    std::vector<ExitStatus> statuses = {};
    int (*run)(const Arguments& arguments, Console& console);
};

/// Every operation, in the order of the help.
std::span<const OperationSpec> operations();

/// The options that every operation takes, before or after its name.
std::span<const OptionSpec> common_options();

std::span<const ExitStatusSpec> exit_statuses();

/// The help text of an option with its unit, default and range: "Size of the picture (pixels,
/// default 800x600, 16 to 16384)".
std::string full_help(const OptionSpec& option);

/// Empty when the value fits the option, else what is wrong with it.
std::string value_error(const OptionSpec& option, const std::string& value);

/// What the user gave, defaults filled in. An option without a default that was not given has no
/// value.
class Arguments {
public:
    void add(std::string_view name, std::string value) {
        values_[std::string(name)].push_back(std::move(value));
    }

    bool has(std::string_view name) const { return values_.count(std::string(name)) != 0; }
    const std::vector<std::string>& all(std::string_view name) const {
        return values_.at(std::string(name));
    }
    const std::string& text(std::string_view name) const { return all(name).front(); }
    double number(std::string_view name) const { return parse_number(text(name)); }
    double bytes(std::string_view name) const { return parse_bytes(text(name)); }
    Vec3d vector(std::string_view name) const { return parse_vector(text(name)); }

private:
    std::map<std::string, std::vector<std::string>> values_;
};

}  // namespace povmesh::cli
