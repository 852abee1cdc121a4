// povmesh voxelize: a model as the cubes that it is made of.
#include <bit>
#include <string>

#include "base/timer.h"
#include "cli/cavity.h"
#include "cli/change.h"
#include "cli/commands.h"
#include "cli/numbers.h"
#include "cli/shared_options.h"
#include "voxel/passes.h"
#include "voxel/surface.h"
#include "voxel/voxelise.h"

namespace povmesh::cli {
namespace {

std::size_t count(const VoxelGrid::Words& cells) {
    std::size_t sum = 0;
    for (const std::uint64_t word : cells) sum += static_cast<std::size_t>(std::popcount(word));
    return sum;
}

int run_voxelize(const Arguments& arguments, Console& console) {
    const auto size = static_cast<float>(arguments.number("--size"));
    return run_change(arguments, console, [&](TriMesh& mesh, Progress progress) {
        const Timer timer;
        RunLog log;
        RunContext run{progress, log};
        ChangeReport report;
        VoxelGrid::Words surface;
        VoxelGrid grid = voxelise(mesh, {{size, size, size}}, run, &surface);
        progress.set(65);
        const float used = grid.settings().size.x;
        fill_rows(grid, FillColour::MeanOfEnds);
        if (!grid.is_empty() && grid.size() <= count(surface) && has_holes(mesh)) {
            report.warnings.emplace_back(
                "the model is open: only its surface became cubes, and nothing inside; 'povmesh "
                "repair' closes holes");
        }
        export_voxels(mesh, grid, run);
        report.seconds = timer.seconds();
        std::string size_text = human_number(shortest_double(used));
        if (used != size) size_text += ", raised from " + human_number(shortest_double(size));
        report.rows = {{"voxel size", size_text}, {"voxels", with_separators(grid.size())}};
        report.json["voxel_size"] = shortest_double(used);
        report.json["voxels"] = grid.size();
        return report;
    });
}

}  // namespace

OperationSpec voxelize_operation() {
    return {
        .name = "voxelize",
        .summary = "Make a model of cubes",
        .description =
            "Writes the surface of the cubes that the model fills. What the model encloses counts "
            "as filled, but for cavities; colours of OBJ files are kept.",
        .positionals = {kModelFile},
        .options = {model_output(),
                    {.name = "--size",
                     .type = ValueType::Number,
                     .placeholder = "SIZE",
                     .unit = "units of the file",
                     .low = 0,
                     .high = kNoLimit,
                     .is_required = true,
                     .help = "Edge of a cube; raised where more than 792 would lie along x or y"},
                    json_object()},
        .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
        .run = run_voxelize,
    };
}

}  // namespace povmesh::cli
