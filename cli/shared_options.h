// Arguments and options that most operations take.
#pragma once

#include "cli/operations.h"

namespace povmesh::cli {

inline constexpr PositionalSpec kModelFile = {"IN", false,
                                              "STL file, binary or ASCII, or OBJ file"};

/// The file or folder to write to.
inline OptionSpec output(std::string_view placeholder, std::string_view help) {
    return {.name = "--output",
            .short_name = "-o",
            .type = ValueType::Text,
            .placeholder = placeholder,
            .is_required = true,
            .help = help};
}

inline OptionSpec model_output() {
    return output("OUT", "File to write; its name ends in .stl or .obj");
}

inline OptionSpec json_object() {
    return {.name = "--json", .help = "Print one JSON object"};
}

}  // namespace povmesh::cli
