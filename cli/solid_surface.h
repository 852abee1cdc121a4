// What the operations tell that make a new surface around a solid.
#pragma once

#include <string_view>

#include "cli/change.h"
#include "cli/operations.h"
#include "field/distance_field.h"
#include "job/solid_surface.h"

namespace povmesh::cli {

/// Tells what was made of a flawed model, a row each; only what there was.
void add_labels(const LabelReport& labels, ChangeReport& report);

OptionSpec cell_option(std::string_view default_value);
OptionSpec all_triangles_option();

/// True when each option is above 0 or not given; else the first that is not is told.
bool are_above_zero(const Arguments& arguments, std::initializer_list<std::string_view> names,
                    std::string_view operation, Console& console);

}  // namespace povmesh::cli
