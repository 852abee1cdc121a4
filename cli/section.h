// How a picture's section is written.
#pragma once

#include <optional>
#include <string_view>

#include "job/section.h"

namespace povmesh::cli {

/// Reads "x", "y=12.5"; nothing when it is none.
std::optional<Section> parse_section(std::string_view text);

}  // namespace povmesh::cli
