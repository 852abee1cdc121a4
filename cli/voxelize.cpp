// povmesh voxelize: a model as the cubes that it is made of.
#include <string>

#include "base/timer.h"
#include "cli/change.h"
#include "cli/commands.h"
#include "cli/numbers.h"
#include "cli/shared_options.h"
#include "voxel/passes.h"
#include "voxel/surface.h"
#include "voxel/voxelise.h"

namespace povmesh::cli {
namespace {

int run_voxelize(const Arguments& arguments, Console& console) {
    const auto size = static_cast<float>(arguments.number("--size"));
    return run_change(arguments, console, [&](TriMesh& mesh, Progress progress) {
        const Timer timer;
        RunLog log;
        RunContext run{progress, log};
        ChangeReport report;
        VoxelGrid grid = voxelise(mesh, {{size, size, size}}, run);
        progress.set(65);
        const float used = grid.settings().size.x;
        fill_rows(grid, FillColour::MeanOfEnds);
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
