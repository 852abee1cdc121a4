// Calls of the second interface, one for each operation, as the benchmarks measure them.
#pragma once

#include <string>
#include <vector>

#include "povmesh/context.h"

namespace povmesh::bench {

/// Calls an operation and lets go of its result.
struct ContextCall {
    const char* name;
    povmesh_status (*run)(povmesh_context* context, const povmesh_mesh* mesh);
};

/// Those that this library has. Sizes are fit for a rock, 100 across.
std::vector<ContextCall> context_calls();

const ContextCall& context_call(const std::string& name);

struct ContextCloser {
    void operator()(povmesh_context* context) const { povmesh_context_destroy(context); }
    void operator()(const povmesh_mesh* mesh) const { povmesh_mesh_release(mesh); }
};

}  // namespace povmesh::bench
