// Drain holes of the operations that put cavities into a model.
#pragma once

#include <cstddef>
#include <vector>

#include "cli/change.h"
#include "cli/operations.h"
#include "design/drain.h"

namespace povmesh::cli {

/// --drain.
OptionSpec drain_option();

/// Those that were asked for.
std::vector<Drain> drains_of(const Arguments& arguments);

/// What drain holes came to.
void add_drain_rows(std::size_t holes, std::size_t closed, std::size_t cavities,
                    ChangeReport& report);

}  // namespace povmesh::cli
