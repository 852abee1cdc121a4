// povmesh hollow: makes a shell of a solid model.
#include "design/hollow.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

#include "base/timer.h"
#include "cli/change.h"
#include "cli/numbers.h"
#include "mesh/compact.h"
#include "mesh/nearest_face.h"
#include "mesh/volume.h"

namespace povmesh::cli {
namespace {

// Adds the cavity to the model, its inside out.
void add_turned(TriMesh& model, const TriMesh& cavity) {
    const auto first = static_cast<std::int32_t>(model.vertices.size());
    for (Vertex vertex : cavity.vertices) {
        vertex.index += first;
        model.vertices.push_back(vertex);
    }
    for (Face face : cavity.faces) {
        for (std::int32_t& vertex : face.vertex) vertex += first;
        turn_over(face);
        model.faces.push_back(face);
    }
    model.use_table.clear();
    model.shells.clear();
}

// The least distance of the one surface's corners and face centres from the other, both ways.
double smallest_wall(const TriMesh& model, const TriMesh& cavity) {
    double least = std::numeric_limits<double>::infinity();  // squared
    const auto look = [&](const TriMesh& from, const TriMesh& at) {
        const NearestFace nearest(at);
        const auto ask = [&](Vec3d p) {
            const NearestPoint found = nearest.find(p, least);
            if (found.is_found()) least = found.squared_distance;
        };
        for (const Face& face : from.faces) {
            Vec3d centre;
            for (std::size_t i = 0; i < 3; ++i) {
                const Vec3d corner = to_double(from.corner_position(face, i));
                ask(corner);
                centre = centre + corner / 3.0;
            }
            ask(centre);
        }
    };
    look(cavity, model);
    look(model, cavity);
    return std::sqrt(least);
}

std::string failure_of(const HollowReport& report, double thickness) {
    return "nothing can be hollowed: a wall of " + human_number(thickness) + " leaves " +
           (report.voxels == 0 ? std::string("no voxel")
                               : "only " + counted(report.voxels, "voxel")) +
           " of " + human_number(report.voxel_size) +
           " inside; take a thinner wall, or repair the model if it has holes";
}

ChangeReport report_of(const HollowReport& hollowed, double wall) {
    const double saved = hollowed.cavity_volume / hollowed.model_volume * 100;
    ChangeReport report;
    report.rows = {{"voxel size", human_number(hollowed.voxel_size)},
                   {"layers", std::to_string(hollowed.layers)},
                   {"cavity volume", human_number(hollowed.cavity_volume)},
                   {"material saved", human_number(std::round(saved * 100) / 100) + " %"},
                   {"smallest wall", human_number(wall)}};
    report.json = {{"voxel_size", hollowed.voxel_size},
                   {"layers", hollowed.layers},
                   {"cavity_volume", hollowed.cavity_volume},
                   {"saved_percent", saved},
                   {"smallest_wall", wall}};
    return report;
}

}  // namespace

int run_hollow(const Arguments& arguments, Console& console) {
    const double thickness = arguments.number("--thickness");
    return run_change(arguments, console, [&](TriMesh& mesh, Progress progress) {
        const Timer timer;
        RunLog log;
        // The values of the operation itself go from 10 to 85.
        ProgressObserver scaled = [&](std::uint32_t percent) { progress.set(50 + percent / 4); };
        RunContext run{Progress(nullptr, &scaled), log};
        TriMesh cavity = mesh;
        const HollowReport hollowed = hollow(cavity, static_cast<float>(thickness), run);
        const double seconds = timer.seconds();
        ChangeReport report;
        if (!hollowed.is_hollowed || hollowed.layers < 1 || !(hollowed.model_volume > 0)) {
            report.failure = failure_of(hollowed, thickness);
            return report;
        }
        report = report_of(hollowed, smallest_wall(mesh, cavity));
        report.seconds = seconds;
        if (arguments.has("--cavity-only")) {
            mesh = std::move(cavity);
        } else {
            add_turned(mesh, cavity);
            compact(mesh);
        }
        return report;
    });
}

}  // namespace povmesh::cli
