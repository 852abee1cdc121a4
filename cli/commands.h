// The operations of the tool, one a file. Each returns its exit status.
#pragma once

#include "cli/console.h"
#include "cli/operations.h"

namespace povmesh::cli {

int run_check(const Arguments& arguments, Console& console);
int run_convert(const Arguments& arguments, Console& console);
int run_reduce(const Arguments& arguments, Console& console);
int run_cut(const Arguments& arguments, Console& console);
int run_hollow(const Arguments& arguments, Console& console);
int run_infill(const Arguments& arguments, Console& console);
int run_remesh(const Arguments& arguments, Console& console);
int run_render(const Arguments& arguments, Console& console);
int run_repair(const Arguments& arguments, Console& console);
int run_revise(const Arguments& arguments, Console& console);
int run_split(const Arguments& arguments, Console& console);
int run_strength(const Arguments& arguments, Console& console);
int run_subdivide(const Arguments& arguments, Console& console);
int run_support(const Arguments& arguments, Console& console);
int run_version(const Arguments& arguments, Console& console);
int run_voxelize(const Arguments& arguments, Console& console);

}  // namespace povmesh::cli
