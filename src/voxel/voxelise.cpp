#include "voxel/voxelise.h"

#include <string>

#include "base/timer.h"
#include "voxel/passes.h"
#include "voxel/surface.h"

namespace povmesh {

VoxelGrid voxelise(const TriMesh& mesh, const VoxelSettings& settings, RunContext& run,
                   VoxelGrid::Words* surface) {
    run.log.append("\n\n[start voxelization]");
    const Timer timer;
    VoxelGrid grid = form_voxels(mesh, settings, run);
    if (surface != nullptr) *surface = grid.occupied();
    mark_exposed_sides(grid, kSurfaceLine, run);
    drop_enclosed(grid);
    dilate(grid, -3, 1);
    erode(grid, 2);
    run.log.value("time voxelize", six_decimals(timer.seconds()) + " sec.");
    run.log.value("voxel size", static_cast<double>(grid.settings().size.x));
    run.log.value("voxel num", std::to_string(grid.size()));
    return grid;
}

}  // namespace povmesh
