// povmesh voxelize: a model as the cubes that it is made of.
#include "job/voxelize.h"
#include "cli/commands.h"
#include "cli/shared_options.h"

#include <string>

#include "cli/change.h"
#include "cli/solid_surface.h"
#include "job/numbers.h"

namespace povmesh::cli {
namespace {

int run_voxelize(const Arguments& arguments, Console& console) {
    if (!are_above_zero(arguments, {"--size"}, "voxelize", console)) return Usage;
    const auto size = static_cast<float>(arguments.number("--size"));
    return run_change(arguments, console, [&](TriMesh& mesh, Progress progress) {
        job::VoxelizeDone done;
        ChangeReport report;
        report.failure = job::voxelize(mesh, {.edge = size}, progress, done).text();
        static_cast<Remarks&>(report) = done;
        report.seconds = done.seconds;
        std::string size_text = human_number(shortest_double(done.edge));
        if (done.edge != size) {
            size_text += ", raised from " + human_number(shortest_double(size));
        }
        report.rows = {{"voxel size", size_text}, {"voxels", with_separators(done.voxels)}};
        report.json["voxel_size"] = shortest_double(done.edge);
        report.json["voxels"] = done.voxels;
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
