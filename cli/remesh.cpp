// povmesh remesh: makes the triangles of a model even.
#include "job/remesh.h"
#include "cli/commands.h"
#include "cli/shared_options.h"

#include <cmath>
#include <string>

#include "cli/change.h"
#include "cli/distance.h"
#include "cli/triangle_quality.h"
#include "job/numbers.h"

namespace povmesh::cli {
namespace {

// Remeshing keeps within a third of the length where it can.
constexpr double kMostOff = 1.0 / 3;

std::string near_text(const RemeshReport& done) {
    const auto percent = [](double share) {
        return human_number(std::round(share * 1000) / 10) + " %";
    };
    return percent(done.even_share) + " of the edges within 0.6 to 1.6 of it, " +
           percent(done.even_share_of_local) + " of what was aimed at there";
}

Json place_json(Vec3d p) {
    return {p.x, p.y, p.z};
}

void tell(const RemeshReport& done, double edge_length, ChangeReport& report) {
    report.rows = {{"edge asked for", human_number(edge_length)}};
    report.json["edge"] = edge_length;
    if (done.raised > 1) {
        const double raised = edge_length * done.raised;
        report.rows.emplace_back("raised to",
                                 human_number(raised) + ", to stay below 10 million triangles");
        report.json["raised_to"] = raised;
    }
    if (done.raised_faces != 0) {
        report.rows.emplace_back(
            "raised alone", counted(done.raised_faces, "triangle") + " too large for the edge");
        report.json["raised_alone"] = done.raised_faces;
    }
    if (done.is_done) {
        report.rows.emplace_back("near the length", near_text(done));
        report.json["even"] = {{"share", done.even_share},
                               {"share_of_local", done.even_share_of_local}};
    }
    if (done.turned_faces != 0) {
        report.json["turned"] = {{"triangles", done.turned_faces},
                                 {"at", place_json(done.turned_at)}};
    }
    if (done.kept_faces != 0) {
        report.json["kept"] = {{"triangles", done.kept_faces}, {"at", place_json(done.kept_at)}};
    }
}

ChangeReport change(TriMesh& mesh, double edge_length, Progress progress) {
    const TriangleQuality before = triangle_quality(mesh);
    ChangeReport report;
    job::RemeshDone done;
    report.failure = job::remesh(mesh, {edge_length, {}}, progress, done).text();
    report.seconds = done.seconds;
    if (!report.failure.empty()) return report;
    static_cast<Remarks&>(report) = done;
    const TriangleQuality after = triangle_quality(mesh);
    report.before = quality_rows(before);
    report.after = quality_rows(after);
    report.json_before = quality_json(before);
    report.json_after = quality_json(after);
    tell(done.report, edge_length, report);
    add_distance(done.source, mesh, report);
    const double off = report.json["distance"]["greatest"];
    if (off > kMostOff * edge_length) {
        report.warnings.push_back("the surface is off by up to " + human_number(off) +
                                  ": what bends within an edge's length, such as rounded edges, "
                                  "comes out rough; take a shorter --edge");
    }
    return report;
}

int run_remesh(const Arguments& arguments, Console& console) {
    const double edge_length = arguments.number("--edge");
    if (!(edge_length > 0)) {
        console.error("remesh: --edge must be above 0; see 'povmesh remesh --help'");
        return Usage;
    }
    return run_change(arguments, console, [&](TriMesh& mesh, Progress progress) {
        return change(mesh, edge_length, progress);
    });
}

}  // namespace

OperationSpec remesh_operation() {
    return {
        .name = "remesh",
        .summary = "Make the triangles of a model even",
        .description =
            "Makes new triangles on the same surface, all of about the same edge length. Edges "
            "sharper than 40 degrees, open borders and the borders of labels and texture maps "
            "stay. Reads the result back and prints edges, angles and the distance.",
        .positionals = {kModelFile},
        .options = {model_output(),
                    {.name = "--edge",
                     .type = ValueType::Number,
                     .placeholder = "LENGTH",
                     .unit = "units of the file",
                     .low = 0,
                     .high = kNoLimit,
                     .is_required = true,
                     .help = "Length that the edges shall have, above 0"},
                    json_object()},
        .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
        .run = run_remesh,
    };
}

}  // namespace povmesh::cli
