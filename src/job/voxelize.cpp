#include "job/voxelize.h"

#include <bit>
#include <cstdint>

#include "base/timer.h"
#include "job/cavity.h"
#include "job/solid_surface.h"
#include "voxel/passes.h"
#include "voxel/surface.h"
#include "voxel/voxelise.h"

namespace povmesh::job {
namespace {

std::size_t count(const VoxelGrid::Words& cells) {
    std::size_t sum = 0;
    for (const std::uint64_t word : cells) sum += static_cast<std::size_t>(std::popcount(word));
    return sum;
}

}  // namespace

Status voxelize(TriMesh& mesh, const VoxelizeJob& options, Progress progress, VoxelizeDone& done) {
    warn_of_lost_textures(mesh, done);
    const Timer timer;
    RunLog log;
    RunContext run{progress, log};
    VoxelGrid::Words surface;
    VoxelGrid grid = voxelise(mesh, {{options.edge, options.edge, options.edge}}, run, &surface);
    progress.set(65);
    done.edge = grid.settings().size.x;
    fill_rows(grid, FillColour::MeanOfEnds);
    if (!grid.is_empty() && grid.size() <= count(surface) && has_holes(mesh)) {
        done.warnings.emplace_back(
            "the model is open: only its surface became cubes, and nothing inside; 'povmesh "
            "repair' closes holes");
    }
    export_voxels(mesh, grid, run);
    done.voxels = grid.size();
    done.seconds = timer.seconds();
    return {};
}

}  // namespace povmesh::job
