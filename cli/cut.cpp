// povmesh cut: divides a model with a plane, one file for each piece.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/findings_report.h"
#include "cli/numbers.h"
#include "cli/pieces.h"
#include "cli/shared_options.h"
#include "cut/cut.h"
#include "mesh/bounds.h"
#include "mesh/edge_mates.h"
#include "mesh/shells.h"
#include "repair/degenerate.h"
#include "spatial/self_intersection.h"

namespace povmesh::cli {
namespace {

// Sides of a peg: from this many on a printer's resolution hides them.
constexpr std::uint32_t kPegSegments = 48;

// True when each edge is held by an even number of faces, so that the faces enclose something.
bool encloses(TriMesh& mesh) {
    const EdgeMates mates(mesh);
    for (std::size_t group = 0; group < mates.group_count(); ++group) {
        if (mates.group(group).size() % 2 != 0) return false;
    }
    return is_closed(mesh);
}

CutOptions options_of(const Arguments& arguments, const TriMesh& mesh) {
    CutOptions options;
    options.operation = arguments.has("--mirror")    ? CutOperation::MirrorFront
                        : arguments.has("--no-caps") ? CutOperation::Cut
                                                     : CutOperation::CutAndCap;
    options.plane.normal = arguments.vector("--normal");
    // Any direction in the plane will do; that of x, or of y, lets pegs start along an axis.
    const Vec3d& n = options.plane.normal;
    options.plane.direction = n.y == 0 && n.z == 0 ? Vec3d{0, 1, 0} : Vec3d{1, 0, 0};
    if (arguments.has("--point")) {
        options.plane.point = arguments.vector("--point");
    } else if (const Box3f box = finite_bounds(mesh); !box.is_empty()) {
        options.plane.point = to_double(box.low) * 0.5 + to_double(box.high) * 0.5;
    }
    options.connectors.count = static_cast<std::uint32_t>(arguments.number("--pegs"));
    options.connectors.radius = arguments.number("--peg-radius");
    options.connectors.segments = kPegSegments;
    options.keep_cavities = true;
    return options;
}

// What a cut could spoil: faces at the plane that cross one another, and needles.
struct Blemishes {
    std::uint64_t crossings = 0;
    Vec3f crossing;  // place of the first
    std::size_t needles = 0;
    Vec3f needle;
};

// Faces that a cut makes all come nearer to the plane than vertices count as lying on it, or than
// coordinates are rounded.
Blemishes blemishes_at(const TriMesh& mesh, const PlaneFrame& frame) {
    const Box3f box = finite_bounds(mesh);
    if (box.is_empty()) return {};
    const Vec3d far = to_double(box.extent());
    const double reach = 4e-5 * std::max({far.x, far.y, far.z}) +
                         1e-6 * std::max(length(to_double(box.low)), length(to_double(box.high)));
    TriMesh near;
    Blemishes found;
    for (const Face& face : mesh.faces) {
        double low = std::numeric_limits<double>::infinity();
        double high = -low;
        for (std::size_t i = 0; i < 3; ++i) {
            const double distance = frame.distance(to_double(mesh.corner_position(face, i)));
            low = std::min(low, distance);
            high = std::max(high, distance);
        }
        if (!(low <= reach && high >= -reach)) continue;
        near.faces.push_back(face);
        // Those that were there before have no corner on the plane, or count before, too.
        const bool has_corner = std::abs(low) <= reach || std::abs(high) <= reach;
        if (!has_corner || !is_degenerate(mesh, face)) continue;
        if (found.needles++ == 0) found.needle = mesh.corner_position(face, 0);
    }
    near.vertices = mesh.vertices;
    const SelfIntersections crossings = find_self_intersections(near, 1);
    found.crossings = crossings.count;
    if (!crossings.pairs.empty()) {
        found.crossing = near.corner_position(near.faces[crossings.pairs[0].first], 0);
    }
    return found;
}

// What the frame does not ask for.
struct CutReport {
    CutCounts counts;
    bool must_be_closed = false;
    std::vector<Blemishes> crossed;  // by piece; empty when the model has crossings at the plane
};

void look_at_cut(const Blemishes& before, const std::vector<TriMesh>& parts,
                 const PlaneFrame& frame, PiecesOutcome& outcome, CutReport& report) {
    std::size_t needles = 0;
    Vec3f place;
    for (const TriMesh& part : parts) {
        const Blemishes after = blemishes_at(part, frame);
        if (needles == 0) place = after.needle;
        needles += after.needles;
        if (before.crossings == 0) report.crossed.push_back(after);
    }
    if (needles <= before.needles) return;
    outcome.warnings.push_back(counted(needles - before.needles, "triangle") +
                               " along the cut are needles, the first " + place_text(place) +
                               "; 'povmesh revise' mends them");
}

std::vector<Piece> cut(TriMesh& mesh, const Arguments& arguments, Progress progress,
                       PiecesOutcome& outcome, CutReport& report) {
    const CutOptions options = options_of(arguments, mesh);
    report.must_be_closed = encloses(mesh) && options.operation != CutOperation::Cut;
    const std::optional<PlaneFrame> frame = PlaneFrame::make(options.plane);
    const Blemishes before = frame ? blemishes_at(mesh, *frame) : Blemishes{};
    RunLog log;
    RunContext run{progress, log};
    report.counts = cut_models(mesh, options, run);
    if (report.counts.divided == 0) {
        outcome.fail(Flawed, arguments.text("IN") + ": the plane misses " +
                                 (report.counts.models > 1 ? "all models" : "the model") +
                                 "; nothing is written");
        return {};
    }
    const std::size_t pegs = report.counts.divided * options.connectors.count;
    if (options.operation == CutOperation::CutAndCap && report.counts.connectors < pegs) {
        outcome.warnings.push_back("only " + with_separators(report.counts.connectors) + " of " +
                                   counted(pegs, "peg") +
                                   " found room; try a smaller --peg-radius");
    }
    if (frame) look_at_cut(before, mesh.parts, *frame, outcome, report);
    std::vector<Piece> pieces;
    for (TriMesh& part : mesh.parts) {
        label_shells(part);
        pieces.push_back(piece_of(part, part.shells.size()));
    }
    return pieces;
}

void expect_closed(const std::string& source, PiecesOutcome& outcome) {
    for (const Piece& piece : outcome.pieces) {
        if (piece.is_closed) continue;
        return outcome.fail(Flawed, piece.file + ": is not closed although " + source +
                                        " is; please report this model");
    }
}

void expect_no_crossing(const std::string& source, const CutReport& report,
                        PiecesOutcome& outcome) {
    for (std::size_t i = 0; i < report.crossed.size() && i < outcome.pieces.size(); ++i) {
        const Blemishes& blemishes = report.crossed[i];
        if (blemishes.crossings == 0) continue;
        return outcome.fail(Flawed,
                            outcome.pieces[i].file + ": " + counted(blemishes.crossings, "pair") +
                                " of triangles at the cut cross, the first " +
                                place_text(blemishes.crossing) + ", where those of " + source +
                                " do not: shells of one winding that lie inside one another are "
                                "closed each by itself");
    }
}

std::string headline(const std::string& source, const std::string& folder,
                     const PiecesOutcome& outcome, std::size_t pegs) {
    std::string text = on_one_line(source) + ": " + counted(outcome.pieces.size(), "piece") +
                       " in " + on_one_line(folder);
    if (pegs != 0) text += ", " + counted(pegs, "peg");
    return text;
}

Json to_json(const std::string& source, const std::string& folder, const PiecesOutcome& outcome,
             const CutCounts& counts) {
    Json json = {{"file", source}, {"folder", folder}};
    if (!outcome.failure.empty()) json["error"] = outcome.failure;
    json["models"] = counts.models;
    json["cut_models"] = counts.divided;
    json["pegs"] = counts.connectors;
    json["pieces"] = pieces_json(outcome.pieces);
    json["warnings"] = warnings_json(outcome);
    return json;
}

// What is wrong with a combination of options; empty when nothing is.
std::string usage_error(const Arguments& arguments) {
    if (arguments.has("--mirror") && arguments.has("--no-caps")) {
        return "cut: --mirror makes no openings; leave out --no-caps";
    }
    if (arguments.number("--pegs") > 0 &&
        (arguments.has("--mirror") || arguments.has("--no-caps"))) {
        return "cut: --pegs stand on caps; leave out --mirror and --no-caps";
    }
    if (arguments.vector("--normal") == Vec3d{}) return "cut: --normal must not be 0,0,0";
    return {};
}

int run_cut(const Arguments& arguments, Console& console) {
    if (const std::string error = usage_error(arguments); !error.empty()) {
        console.error(error);
        return Usage;
    }
    const std::string& source = arguments.text("IN");
    const std::string& folder = arguments.text("--output");
    CutReport report;
    ProgressLine line(console, source);
    PiecesOutcome outcome =
        divide_model(arguments, line.progress(), "pieces",
                     [&](TriMesh& mesh, Progress progress, PiecesOutcome& so_far) {
                         return cut(mesh, arguments, progress, so_far, report);
                     });
    line.stop();
    if (outcome.failure.empty() && report.must_be_closed) expect_closed(source, outcome);
    if (outcome.failure.empty()) expect_no_crossing(source, report, outcome);
    return tell_pieces(
        outcome, arguments, console,
        [&] { return to_json(source, folder, outcome, report.counts); },
        headline(source, folder, outcome, report.counts.connectors));
}

}  // namespace

OperationSpec cut_operation() {
    return {
        .name = "cut",
        .summary = "Divide a model with a plane",
        .description =
            "Cuts each model that the plane divides and closes the openings, so that the pieces of "
            "a closed model are closed. Writes DIR/NAME_001.stl and so on, NAME being that of IN: "
            "of each model first the piece that the normal points away from.",
        .positionals = {kModelFile},
        .options = {output("DIR", "Folder to write to; it is made when it is not there"),
                    {.name = "--normal",
                     .type = ValueType::Vector,
                     .placeholder = "X,Y,Z",
                     .default_value = "0,0,1",
                     .help = "Normal of the plane, of any length"},
                    {.name = "--point",
                     .type = ValueType::Vector,
                     .placeholder = "X,Y,Z",
                     .unit = "units of the file",
                     .help = "A point of the plane, by default the middle of the model"},
                    {.name = "--no-caps", .help = "Leave the openings open"},
                    {.name = "--mirror",
                     .help = "Keep the side that the normal points to and add its mirror image"},
                    {.name = "--pegs",
                     .type = ValueType::Number,
                     .placeholder = "COUNT",
                     .default_value = "0",
                     .low = 0,
                     .high = 256,
                     .help = "Pegs on the first piece of each model cut, with sockets in the other "
                             "that are larger by 0.2"},
                    {.name = "--peg-radius",
                     .type = ValueType::Number,
                     .placeholder = "RADIUS",
                     .unit = "units of the file",
                     .default_value = "2",
                     .low = 0,
                     .high = kNoLimit,
                     .help = "Radius of the pegs, which are up to twice as long"},
                    piece_format(),
                    json_object()},
        .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
        .run = run_cut,
    };
}

}  // namespace povmesh::cli
