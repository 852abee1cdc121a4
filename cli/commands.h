// The operations of the tool, one a file: each file ends with the row that help, man page and
// completion are made from, and keeps the function that runs it to itself.
#pragma once

#include "cli/console.h"
#include "cli/operations.h"

namespace povmesh::cli {

OperationSpec check_operation();
OperationSpec repair_operation();
OperationSpec split_operation();
OperationSpec cut_operation();
OperationSpec decompose_operation();
OperationSpec reduce_operation();
OperationSpec remesh_operation();
OperationSpec revise_operation();
OperationSpec subdivide_operation();
OperationSpec hollow_operation();
OperationSpec balance_operation();
OperationSpec infill_operation();
OperationSpec lampshade_operation();
OperationSpec offset_operation();
OperationSpec wrap_operation();
OperationSpec voxelize_operation();
OperationSpec orient_operation();
OperationSpec support_operation();
OperationSpec strength_operation();
OperationSpec thickness_operation();
OperationSpec convert_operation();
OperationSpec render_operation();
OperationSpec run_operation();
OperationSpec version_operation();

}  // namespace povmesh::cli
