#include "job/wrap.h"

#include "base/timer.h"
#include "job/findings.h"
#include "job/numbers.h"
#include "job/solid_surface.h"
#include "mesh/compact.h"
#include "remesh/carry_attributes.h"
#include "spatial/nearest_face.h"

namespace povmesh::job {
namespace {

// The vertex of the result that is farthest from the model.
Vec3f farthest_vertex(const TriMesh& model, const TriMesh& result) {
    const NearestFace faces(model);
    Vec3f place{};
    double farthest = -1;
    for (const Vertex& vertex : result.vertices) {
        const NearestPoint nearest = faces.find(to_double(vertex.position()));
        if (nearest.is_found() && nearest.squared_distance > farthest) {
            farthest = nearest.squared_distance;
            place = vertex.position();
        }
    }
    return place;
}

// What is farther than the tolerance, unless it was to be.
void warn_of_distance(const TriMesh& model, const TriMesh& result, WrapDone& done) {
    const SurfaceDistance& distance = done.distance;
    const WrapReport& wrapped = done.report;
    const bool has_bridges = wrapped.label.bridge_edges > 0;
    if (distance.back.greatest > wrapped.tolerance && !has_bridges) {
        done.warnings.push_back("the result is " + human_number(distance.back.greatest) +
                                " from the model, farther than the tolerance, " +
                                place_text(farthest_vertex(model, result)));
    }
    const bool is_covered = wrapped.label.buried_area > 0 || has_bridges;
    if (distance.there.greatest > wrapped.tolerance && !is_covered) {
        done.warnings.push_back("parts of the model are " + human_number(distance.there.greatest) +
                                " from the result, farther than the tolerance: details narrower "
                                "than two cells; take a smaller --tolerance");
    }
}

}  // namespace

Status wrap(TriMesh& mesh, const WrapJob& job, Progress progress, WrapDone& done) {
    warn_of_lost_textures(mesh, done);
    TriMesh source = mesh;
    RunLog log;
    ProgressObserver scaled = [&](std::uint32_t percent) { progress.set(50 + percent / 4); };
    RunContext run{Progress(nullptr, &scaled), log};
    const Timer timer;
    Status status = povmesh::wrap(mesh, job.options, run, done.report);
    done.seconds = timer.seconds();
    if (!status.ok()) return status;
    compact(mesh);
    carry_colours(source, mesh);
    done.distance = surface_distance(source, mesh);
    warn_of_distance(source, mesh, done);
    check_solid(mesh, done);
    return status;
}

}  // namespace povmesh::job
