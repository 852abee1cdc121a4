#include "field/make_solid.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "base/poll.h"
#include "mesh/append_mesh.h"
#include "mesh/compact.h"
#include "mesh/edge_mates.h"
#include "mesh/volume.h"
#include "remesh/carry_attributes.h"
#include "spatial/self_intersection.h"
#include "spatial/separation.h"
#include "spatial/triangle_intersection.h"

namespace povmesh {
namespace {

bool is_solid(TriMesh& body) {
    Poller poller;
    for (const Face& face : body.faces) {
        poller();
        const Triangle t = triangle_of(body, face);
        if (!is_finite(t) || !has_area(t)) return false;
    }
    const EdgeMates mates(body);
    for (std::size_t f = 0; f < body.faces.size(); ++f) {
        for (std::size_t e = 0; e < 3; ++e) {
            if (mates.kind(f, e) != EdgeMates::Kind::Manifold || mates.is_same_direction(f, e)) {
                return false;
            }
        }
    }
    return signed_volume(body) > 0 && find_self_intersections(body, 0).count == 0;
}

}  // namespace

Status make_solid(TriMesh& mesh, const WrapOptions& options, RunContext& run, SolidReport& report) {
    TriMesh bodies = mesh;
    separate_bodies(bodies, {.keep_cavities = true, .all_faces = true});
    report.bodies = bodies.parts.size();
    TriMesh solid;
    TriMesh flawed;
    for (TriMesh& body : bodies.parts) {
        const bool is_fine = is_solid(body);
        append_mesh(is_fine ? solid : flawed, body);
        report.wrapped += is_fine ? 0 : 1;
    }
    if (report.wrapped == 0) return {};
    const TriMesh model = flawed;
    Status wrapped = wrap(flawed, options, run, report.wrap);
    if (!wrapped.ok()) return wrapped;
    carry_colours(model, flawed);
    append_mesh(solid, flawed);
    compact(solid);
    if (report.wrapped < report.bodies && find_self_intersections(solid, 0).count != 0) {
        report.wrapped = report.bodies;
        solid = mesh;
        Status all = wrap(solid, options, run, report.wrap);
        if (!all.ok()) return all;
        compact(solid);
        carry_colours(mesh, solid);
    }
    mesh = std::move(solid);
    return {};
}

}  // namespace povmesh
