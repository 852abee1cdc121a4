// Wraps those bodies of a model that are not solid, and leaves the others alone.
#pragma once

#include <cstddef>

#include "base/status.h"
#include "field/wrap.h"
#include "mesh/tri_mesh.h"
#include "run/run_context.h"

namespace povmesh {

struct SolidReport {
    std::size_t bodies = 0;
    std::size_t wrapped = 0;  // of these
    WrapReport wrap;          // when some were
};

/// Makes every body of a mesh closed, manifold, outward and free of crossings. Bodies that are so
/// keep their triangles and attributes; the others are wrapped together. When what is wrapped then
/// crosses what is not, all is wrapped.
///
/// @return  as wrap; the mesh is unchanged unless it is Ok. It is compact then.
Status make_solid(TriMesh& mesh, const WrapOptions& options, RunContext& run, SolidReport& report);

}  // namespace povmesh
