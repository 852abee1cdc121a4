// What every surface made of a field has to be, whatever it was made of.
#pragma once

#include <algorithm>
#include <string>

#include "mesh/volume.h"
#include "remesh/collapse_mesh.h"
#include "spatial/self_intersection.h"

namespace povmesh {

/// Empty when a mesh is closed, manifold at edges and vertices, outward and free of crossings, else
/// what it is not.
inline std::string unsoundness(TriMesh mesh) {
    if (mesh.faces.empty()) return "empty";
    if (!(signed_volume(mesh) > 0)) return "not outward";
    const std::uint64_t crossings = find_self_intersections(mesh, 0).count;
    if (crossings != 0) return std::to_string(crossings) + " crossings";
    const CollapseMesh links = make_collapse_mesh(mesh, OpenBorders::Fixed);
    const auto end = links.opposites.end();
    if (std::find(links.opposites.begin(), end, CollapseMesh::kNone) != end) return "not closed";
    const bool has_fans = std::any_of(links.is_fixed.begin(), links.is_fixed.end(),
                                      [](std::uint8_t fixed) { return fixed != 0; });
    return has_fans ? "a vertex of several fans" : "";
}

}  // namespace povmesh
