// povmesh voxelize: a model as the cubes that it is made of.
#include <string>

#include "base/timer.h"
#include "cli/change.h"
#include "cli/numbers.h"
#include "voxel/passes.h"
#include "voxel/surface.h"
#include "voxel/voxelise.h"

namespace povmesh::cli {

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

}  // namespace povmesh::cli
