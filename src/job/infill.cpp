#include "job/infill.h"

#include <string>

#include "base/timer.h"
#include "design/cell_pieces.h"
#include "job/cavity.h"
#include "job/numbers.h"
#include "job/solid_surface.h"
#include "mesh/copy_mesh.h"
#include "mesh/volume.h"
#include "remesh/carry_attributes.h"

namespace povmesh::job {
namespace {

// Empty when there is a result.
std::string failure_of(const InfillReport& report, double skin, TriMesh& model) {
    const std::string size = human_number(report.voxel_size);
    const double least = kThinnestSkin * report.voxel_size;
    if (skin < least) {
        return "a skin of " + human_number(skin) + " is too thin for the cubes of " + size +
               " that cells of this model are made of; take at least " + human_number(least);
    }
    if (report.taken > 0) return "";
    return "no cell fits under a skin of " + human_number(skin) +
           ": one needs room for about eight cubes of " + size + " each way; " +
           cure_of(model, report.voxel_size, "take a thinner skin");
}

}  // namespace

Status infill(TriMesh& mesh, const InfillJob& options, Progress progress, InfillDone& done) {
    const Timer timer;
    const double model_volume = volume(mesh);
    if (!(model_volume > 0)) {
        return {StatusCode::Nothing,
                "the model encloses no volume, or is inside out; repair it first"};
    }
    RunLog log;
    // The values of the operation itself go from 30 to 70.
    ProgressObserver scaled = [&](std::uint32_t percent) { progress.set(40 + percent / 2); };
    RunContext run{Progress(nullptr, &scaled), log};
    TriMesh cells = copy_mesh(mesh);
    done.report = infill_to_density(cells, {.skin = options.skin, .density = options.density}, run);
    done.seconds = timer.seconds();
    const std::string failure = failure_of(done.report, options.skin, mesh);
    if (!failure.empty()) return {StatusCode::Nothing, failure};
    doubt_windings(mesh, done);
    done.saved_percent = done.report.cells_volume / model_volume * 100;
    done.smallest_skin = smallest_wall(mesh, cells);
    carry_colours(mesh, cells);
    if (options.cells_only) {
        warn_of_lost_textures(mesh, done);
        mesh = std::move(cells);
    } else {
        add_cavities(mesh, cells);
    }
    return {};
}

}  // namespace povmesh::job
