// What the tool asks of the system beyond files and signals.
#pragma once

#include <cstdio>

namespace povmesh::cli {

/// First of all: arguments become UTF-8, standard streams pass bytes as they are, and a terminal is
/// told to show UTF-8 and to obey control sequences until the program ends.
void prepare_process(int& argument_count, char**& arguments);

bool is_terminal(std::FILE* stream);

/// Bytes of memory that this process holds; where the system only knows the most it ever held,
/// that.
double held_bytes();

}  // namespace povmesh::cli
