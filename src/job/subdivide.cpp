#include "job/subdivide.h"

#include <cstddef>

#include "base/timer.h"
#include "job/new_faults.h"
#include "mesh/copy_mesh.h"

namespace povmesh::job {
namespace {

// Results of more faces are not searched for crossings: that would take longer than all else.
constexpr std::size_t kMostSearched = 2'000'000;

// Smoothing takes volume away, which is no fault; of a model with few triangles it is so much that
// parts no longer fit, which is told.
constexpr double kNotableVolume = 0.02;

}  // namespace

Status subdivide(TriMesh& mesh, const SubdivideJob& options, Progress progress,
                 SubdivideDone& done) {
    TriMesh source = copy_mesh(mesh);
    const Timer timer;
    for (std::uint32_t level = 0; level < options.levels; ++level) {
        povmesh::subdivide(mesh, options.mode);
        progress.set(50 + 30 * (level + 1) / options.levels);
    }
    done.seconds = timer.seconds();
    if (mesh.faces.size() <= kMostSearched) add_faults(source, mesh, kNotableVolume, done);
    return {};
}

}  // namespace povmesh::job
