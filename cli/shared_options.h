// Arguments and options that most operations take.
#pragma once

#include "cli/operations.h"

namespace povmesh::cli {

/// The ends of names of models, for messages and help.
inline constexpr std::string_view kModelEndings = ".stl, .obj, .ply or .3mf";

inline std::vector<std::string_view> model_formats() {
    return {"stl", "obj", "ply", "3mf"};
}

inline constexpr PositionalSpec kModelFile = {"IN", false, "STL, OBJ, PLY or 3MF file"};

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
    return output("OUT", "File to write; its name ends in .stl, .obj, .ply or .3mf");
}

/// The format of pieces.
inline OptionSpec piece_format() {
    return {.name = "--format",
            .type = ValueType::Choice,
            .placeholder = "FORMAT",
            .choices = model_formats(),
            .help = "Format to write, by default that of IN, and that of IN when it is -"};
}

inline OptionSpec peg_radius() {
    return {.name = "--peg-radius",
            .type = ValueType::Number,
            .placeholder = "RADIUS",
            .unit = "units of the file",
            .default_value = "2",
            .low = 0,
            .high = kNoLimit,
            .help = "Radius of the pegs, which are up to twice as long"};
}

inline OptionSpec json_object() {
    return {.name = "--json", .help = "Print one JSON object"};
}

}  // namespace povmesh::cli
