// Reads the command line by the table of operations.
#pragma once

#include <string>

#include "cli/operations.h"

namespace povmesh::cli {

/// What the command line asks for: an operation, or else a text to print (help, version) or an
/// error.
struct CommandLine {
    const OperationSpec* operation = nullptr;
    Arguments arguments;
    std::string text;   // to standard output, whole
    std::string error;  // one line
};

/// Gives the options that were not given and have a default that.
void fill_in_defaults(const OperationSpec& operation, Arguments& arguments);

CommandLine read_command_line(int argument_count, const char* const* arguments);

}  // namespace povmesh::cli
