// What every surface made of a field has to be, whatever it was made of.
#pragma once

#include <string>
#include <utility>

#include "helpers/reference.h"
#include "mesh/volume.h"
#include "spatial/self_intersection.h"

namespace povmesh {

/// Empty when a mesh is closed, manifold, outward and free of crossings, else what it is not.
inline std::string unsoundness(const TriMesh& mesh) {
    if (mesh.faces.empty()) return "empty";
    if (!reference::is_closed_manifold(mesh)) return "not closed or not a manifold";
    if (!(signed_volume(mesh) > 0)) return "not outward";
    const std::uint64_t crossings = find_self_intersections(mesh, 0).count;
    return crossings == 0 ? "" : std::to_string(crossings) + " crossings";
}

}  // namespace povmesh
