// The help texts, made from the table of operations.
#pragma once

#include <string>

#include "cli/operations.h"

namespace povmesh::cli {

/// What `povmesh --help` prints.
std::string help_text();

/// What `povmesh OPERATION --help` prints.
std::string help_text(const OperationSpec& operation);

}  // namespace povmesh::cli
