// povmesh hollow: makes a shell of a solid model.
#include "design/hollow.h"
#include "cli/commands.h"
#include "cli/shared_options.h"

#include <cmath>
#include <string>

#include "base/timer.h"
#include "cli/cavity.h"
#include "cli/change.h"
#include "cli/drains.h"
#include "cli/numbers.h"
#include "field/inner_wall.h"
#include "mesh/shells.h"
#include "mesh/volume.h"
#include "spatial/self_intersection.h"
#include "spatial/shell_nesting.h"

namespace povmesh::cli {
namespace {

// Walls take a layer of cubes from this thickness on.
constexpr double kLeastThickness = 0.5;

// Empty when there is a cavity.
std::string failure_of(const HollowReport& report, double thickness, TriMesh& model) {
    const std::string wall = "a wall of " + human_number(thickness);
    if (!(report.model_volume > 0)) {
        return "the model encloses no volume, or is inside out; repair it first";
    }
    if (report.layers < 1) {
        const std::string otherwise = "take at least " + human_number(kLeastThickness);
        return "nothing can be hollowed: " + wall + " is less than a layer of cubes; " +
               cure_of(model, report.voxel_size, otherwise);
    }
    if (report.is_too_thin) {
        return "nothing can be hollowed: " + wall + " is too thin for the cubes of " +
               human_number(report.voxel_size) + " that a model of this size is made of; " +
               cure_of(model, report.voxel_size,
                       "take at least " + human_number(report.voxel_size / 4));
    }
    if (report.is_crossing) {
        return "nothing can be hollowed: no cavity with " + wall +
               " keeps clear of the model's surface; take a thicker wall, or repair the model if "
               "it "
               "crosses itself";
    }
    if (report.is_hollowed) return "";
    return "nothing can be hollowed: " + wall + " leaves " +
           (report.voxels == 0 ? std::string("no cube")
                               : "only " + counted(report.voxels, "cube")) +
           " of " + human_number(report.voxel_size) + " inside; " +
           cure_of(model, report.voxel_size, "take a thinner wall");
}

// Empty unless the surface around cavities is open: nothing tells then that they are inside.
std::string bare_text(TriMesh& mesh, std::size_t model_faces) {
    label_shells(mesh);
    const std::vector<ShellNesting> nesting = classify_shells(mesh);
    std::size_t cavities = 0;
    std::size_t bare = 0;
    Vec3f place;
    for (std::size_t shell = 0; shell < nesting.size(); ++shell) {
        const std::uint32_t face = mesh.shells[shell][0];
        if (face < model_faces) continue;
        ++cavities;
        if (nesting[shell].is_cavity()) continue;
        if (bare++ == 0) place = mesh.corner_position(mesh.faces[face], 0);
    }
    if (bare == 0) return "";
    return "the model is open around " + std::to_string(bare) + " of " +
           counted(cavities, "cavity", "cavities") + ", one near (" + human_number(place.x) + ", " +
           human_number(place.y) + ", " + human_number(place.z) +
           "): programs that read it may take that for a body turned inside out; repair the model "
           "first";
}

double saved_percent(double cavity_volume, double model_volume) {
    return cavity_volume / model_volume * 100;
}

std::string saved_text(double percent) {
    return human_number(std::round(percent * 100) / 100) + " %";
}

ChangeReport report_of(const HollowReport& hollowed) {
    const double saved = saved_percent(hollowed.cavity_volume, hollowed.model_volume);
    ChangeReport report;
    report.rows = {{"voxel size", human_number(hollowed.voxel_size)},
                   {"layers", std::to_string(hollowed.layers)},
                   {"cavity volume", human_number(hollowed.cavity_volume)},
                   {"material saved", saved_text(saved)},
                   {"smallest wall", human_number(hollowed.smallest_wall)}};
    report.json = {{"voxel_size", hollowed.voxel_size},
                   {"layers", hollowed.layers},
                   {"cavity_volume", hollowed.cavity_volume},
                   {"saved_percent", saved},
                   {"smallest_wall", hollowed.smallest_wall}};
    return report;
}

// Made of voxels, as hosts get it.
ChangeReport make_voxel_cavity(TriMesh& mesh, double thickness, Progress progress,
                               TriMesh& cavity) {
    RunLog log;
    // The values of the operation itself go from 10 to 85.
    ProgressObserver scaled = [&](std::uint32_t percent) { progress.set(50 + percent / 4); };
    RunContext run{Progress(nullptr, &scaled), log};
    cavity = mesh;
    const HollowReport hollowed =
        hollow(cavity, static_cast<float>(thickness), run, {.measures_wall = true});
    const std::string failure = failure_of(hollowed, thickness, mesh);
    if (failure.empty()) return report_of(hollowed);
    ChangeReport report;
    report.failure = failure;
    return report;
}

// A model hardly longer than the wall is thick was not meant in that unit.
constexpr double kSmallShare = 0.1;

// Empty when there is a cavity.
std::string failure_of(const WallReport& made, const TriMesh& cavity, double thickness,
                       TriMesh& model) {
    if (!made.status.ok()) return "nothing can be hollowed: " + made.status.text();
    if (!cavity.faces.empty()) return "";
    return "nothing can be hollowed: a wall of " + human_number(thickness) +
           " leaves nothing inside; " +
           cure_of(model, kSmallShare * thickness, "take a thinner wall");
}

// At an exact distance. What the making promises is looked at again.
ChangeReport make_exact_cavity(TriMesh& mesh, double thickness, Progress progress,
                               TriMesh& cavity) {
    ChangeReport report;
    const double model_volume = volume(mesh);
    if (!(model_volume > 0)) {
        report.failure = "the model encloses no volume, or is inside out; repair it first";
        return report;
    }
    ProgressObserver scaled = [&](std::uint32_t percent) { progress.set(50 + percent * 3 / 10); };
    const WallReport made = inner_wall(mesh, thickness, {}, cavity, Progress(nullptr, &scaled));
    report.failure = failure_of(made, cavity, thickness, mesh);
    if (!report.failure.empty()) return report;
    const double least = smallest_wall(mesh, cavity);
    const double cavity_volume = volume(cavity);
    const double saved = saved_percent(cavity_volume, model_volume);
    report.rows = {{"cell", human_number(made.cell)},
                   {"cavity volume", human_number(cavity_volume)},
                   {"material saved", saved_text(saved)},
                   {"smallest wall", human_number(least)},
                   {"mean wall", human_number(made.mean_wall)}};
    report.json = {{"cell", made.cell},
                   {"cavity_volume", cavity_volume},
                   {"saved_percent", saved},
                   {"smallest_wall", least},
                   {"mean_wall", made.mean_wall}};
    if (least < kLeastWallShare * thickness) {
        report.doubts.push_back("the wall is only " + human_number(least) + " thick somewhere");
    }
    if (find_self_intersections(cavity, 0).count != 0) {
        report.doubts.emplace_back("the cavity crosses itself");
    }
    return report;
}

int run_hollow(const Arguments& arguments, Console& console) {
    if (arguments.has("--drain") && arguments.has("--cavity-only")) {
        console.error(
            "--drain cuts holes through the wall, which --cavity-only leaves out; take one of "
            "them; "
            "see 'povmesh hollow --help'");
        return Usage;
    }
    const double thickness = arguments.number("--thickness");
    return run_change(arguments, console, [&](TriMesh& mesh, Progress progress) {
        const Timer timer;
        TriMesh cavity;
        ChangeReport report = arguments.text("--wall") == "voxel"
                                  ? make_voxel_cavity(mesh, thickness, progress, cavity)
                                  : make_exact_cavity(mesh, thickness, progress, cavity);
        report.seconds = timer.seconds();
        if (!report.failure.empty()) return report;
        if (arguments.has("--cavity-only")) {
            mesh = std::move(cavity);
            return report;
        }
        const std::size_t model_faces = mesh.faces.size();
        add_cavities(mesh, cavity);
        if (has_holes(mesh)) {
            const std::string doubt = bare_text(mesh, model_faces);
            if (!doubt.empty()) report.doubts.push_back(doubt);
        }
        cut_drains(arguments, mesh, model_faces, thickness, report);
        return report;
    });
}

}  // namespace

OperationSpec hollow_operation() {
    return {
        .name = "hollow",
        .summary = "Make a shell of a solid model",
        .description =
            "Finds the cavity that leaves a wall of the thickness, and writes the model with it. "
            "The wall is measured, and at least 0.98 of the thickness everywhere.",
        .positionals = {kModelFile},
        .options =
            {model_output(),
             {.name = "--thickness",
              .type = ValueType::Number,
              .placeholder = "THICKNESS",
              .unit = "units of the file",
              .low = 0,
              .high = kNoLimit,
              .is_required = true,
              .help = "Thickness of the wall"},
             {.name = "--wall",
              .type = ValueType::Choice,
              .placeholder = "KIND",
              .default_value = "exact",
              .choices = {"exact", "voxel"},
              .help =
                  "A cavity at an exact distance, or one made of voxels of 0.4 to 2 units, whose "
                  "wall is right within about 1.4 of them"},
             drain_option(),
             {.name = "--cavity-only",
              .help = "Write the surface of the cavity alone, its outside out"},
             json_object()},
        .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
        .run = run_hollow,
    };
}

}  // namespace povmesh::cli
