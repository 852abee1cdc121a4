#include "design/cavity_core.h"

#include <algorithm>
#include <cmath>

#include "base/convert.h"
#include "voxel/distance.h"
#include "voxel/outside.h"
#include "voxel/passes.h"
#include "voxel/voxelise.h"
#include "voxel/wall.h"

namespace povmesh {
namespace {

// Voxels that a solid model gets. The exponent is not quite one third: hosts rely on the sizes.
constexpr double kVoxelsOfASolid = 1.2e6;
constexpr double kSizeExponent = 0.33;
constexpr double kSmallestVoxel = 0.4;
constexpr double kLargestVoxel = 2.0;

// About a gigabyte with distances, 3 bytes a cell.
constexpr std::int64_t kMostCellsOfASolid = std::int64_t{1} << 28;

// Walls of fewer layers get rid of spikes and ridges first.
constexpr std::int32_t kLayersOfAThickWall = 5;
constexpr std::int32_t kSpurs = 2;

// Squared distance to the outside, in voxels, below which a surface is the outer one. Beyond it,
// plain surfaces have no voxel; what it leaves out of narrow slits is found on the finished
// surface.
constexpr std::int64_t kOuterSurface = 13;

}  // namespace

float cavity_voxel_size(const TriMesh& mesh, double model_volume, RunContext& run) {
    const double size = std::pow(model_volume / kVoxelsOfASolid, kSizeExponent);
    const auto edge = static_cast<float>(std::clamp(size, kSmallestVoxel, kLargestVoxel));
    return affordable_size(mesh, {edge, edge, edge}, kMostCellsOfASolid, run).x;
}

std::int32_t wall_layers(double thickness, double voxel_size) {
    return saturate_to<std::int32_t>((thickness - 0.5) / voxel_size + 1.0);
}

VoxelGrid cavity_core(const TriMesh& mesh, float voxel_size, double thickness, std::int32_t layers,
                      RunContext& run) {
    VoxelGrid::Words surface;
    VoxelGrid grid = voxelise(mesh, {{voxel_size, voxel_size, voxel_size}}, run, &surface);
    run.progress.set(30);
    fill_rows(grid, FillColour::White);
    refresh_outside(grid);
    VoxelGrid::Words outside = grid.outside();
    if (layers >= 1 && !grid.is_empty()) {
        const VoxelGrid::Words inner = inner_surface(grid, surface, kOuterSurface);
        for (std::size_t w = 0; w < outside.size(); ++w) outside[w] |= inner[w];
    }
    run.progress.set(40);
    if (layers < kLayersOfAThickWall) remove_spurs(grid, kSpurs);
    run.progress.set(50);
    erode(grid, layers);
    if (layers >= 1) {
        drop_cells(grid, cells_within(grid, outside, wall_limit(thickness, double{voxel_size})));
        drop_edge_contacts(grid);
    }
    run.progress.set(60);
    mark_exposed_sides(grid, kSurfaceLine, run);
    return grid;
}

}  // namespace povmesh
