// povmesh decompose: divides models into parts that fit a printer.
#include "job/decompose.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/findings_report.h"
#include "cli/model.h"
#include "cli/picture_file.h"
#include "cli/pieces.h"
#include "cli/shared_options.h"
#include "job/apart.h"
#include "job/numbers.h"

namespace povmesh::cli {
namespace {

// Pixels.
constexpr std::uint32_t kPictureWidth = 1000;
constexpr std::uint32_t kPictureHeight = 800;

// X,Y,Z, or one number for all three. Its x is not a number when it is neither.
Vec3d size_of(const Arguments& arguments) {
    const std::string& text = arguments.text("--size");
    if (text.find(',') != std::string::npos) return parse_vector(text);
    const double all = parse_number(text);
    return {all, all, all};
}

job::DecomposeJob job_of(const Arguments& arguments) {
    return {.size = size_of(arguments),
            .margin = arguments.number("--margin"),
            .uniform = arguments.has("--uniform"),
            .may_turn = arguments.has("--turn"),
            .pegs = static_cast<std::uint32_t>(arguments.number("--pegs")),
            .peg_radius = arguments.number("--peg-radius")};
}

// What is wrong with the command line; empty when nothing is.
std::string usage_error(const Arguments& arguments) {
    const Vec3d size = size_of(arguments);
    const double margin = arguments.number("--margin");
    const double peg_length = job_of(arguments).peg_length();
    for (const double x : {size.x, size.y, size.z}) {
        if (!std::isfinite(x) || x < 0) {
            return "decompose: --size takes X,Y,Z or one number, 0 for no limit";
        }
        if (x != 0 && !(x > margin)) return "decompose: --margin leaves nothing of --size";
        if (x != 0 && !(x - margin > peg_length)) {
            return "decompose: pegs, twice as long as --peg-radius, leave nothing of --size";
        }
    }
    if (size == Vec3d{}) return "decompose: --size limits no axis; give one above 0";
    if (arguments.number("--pegs") != std::floor(arguments.number("--pegs"))) {
        return "decompose: --pegs takes a whole number";
    }
    if (arguments.has("--preview") && arguments.has("--output")) {
        return "decompose: --preview writes no parts; leave out --output";
    }
    if (!arguments.has("--preview") && !arguments.has("--output")) {
        return "decompose: --output is missing; name a folder, or ask for a --preview";
    }
    if (arguments.has("--picture") && !has_extension(arguments.text("--picture"), ".png")) {
        return arguments.text("--picture") +
               ": only PNG can be drawn; give a name that ends in .png";
    }
    return {};
}

void draw_parts(std::vector<TriMesh>& parts, const TriMesh& model, const Arguments& arguments,
                PiecesOutcome& outcome) {
    if (!arguments.has("--picture")) return;
    picture::RenderOptions options;
    options.width = kPictureWidth;
    options.height = kPictureHeight;
    const Array<char> png = picture::encode_png(draw_apart(parts, scene_box_of(model), options));
    const Status status = write_file(arguments.text("--picture"), png);
    if (!status.ok()) outcome.fail(CannotWrite, status.text());
}

std::vector<Piece> divide(TriMesh& mesh, const Arguments& arguments, Progress progress,
                          PiecesOutcome& outcome, job::DecomposeDone& done) {
    TriMesh model;
    if (arguments.has("--picture")) model = mesh;
    (void)job::decompose(mesh, job_of(arguments), progress, done);
    std::vector<Piece> pieces;
    double sum = 0;
    for (const job::PieceMeasures& measures : done.pieces) {
        pieces.emplace_back(measures);
        sum += std::abs(measures.volume);
    }
    for (Piece& piece : pieces) {
        if (sum > 0 && std::isfinite(sum)) piece.share = std::abs(piece.volume) / sum;
    }
    for (const std::vector<std::string>* lines : {&done.doubts, &done.warnings}) {
        outcome.warnings.insert(outcome.warnings.end(), lines->begin(), lines->end());
    }
    if (!done.doubts.empty() && outcome.status == Clean) outcome.status = Flawed;
    draw_parts(mesh.parts, model, arguments, outcome);
    return pieces;
}

std::string headline(const Arguments& arguments, const PiecesOutcome& outcome,
                     const job::DecomposeDone& division) {
    const DecomposeReport& report = division.report;
    std::string text =
        on_one_line(arguments.text("IN")) + ": " + counted(outcome.pieces.size(), "part");
    if (arguments.has("--output")) text += " in " + on_one_line(arguments.text("--output"));
    text += ", " + counted(report.cuts, "cut");
    if (arguments.number("--pegs") > 0) text += ", " + counted(report.pegs, "peg");
    text += " (" + with_separators(report.least_parts) + " at least";
    // Of a size that is far too small no division is made.
    if (!arguments.has("--uniform") && report.uniform_parts >= report.least_parts) {
        text += "; an even division makes " + with_separators(report.uniform_parts);
    }
    return text + ")";
}

// The planes of a preview, below its table.
std::string planes_text(const Arguments& arguments, const job::DecomposeDone& division) {
    if (!arguments.has("--preview") || division.report.planes.empty()) return {};
    std::vector<std::vector<std::string>> lines = {{"plane", "at"}};
    for (const DividingPlane& plane : division.report.planes) {
        lines.push_back(
            {std::to_string(lines.size()), std::string(1, "xyz"[plane.axis]) + " = " +
                                               human_number(shortest_double(plane.offset))});
    }
    return columns_text(lines);
}

Json to_json(const Arguments& arguments, const PiecesOutcome& outcome,
             const job::DecomposeDone& division) {
    Json json = {{"file", arguments.text("IN")}};
    if (arguments.has("--output")) json["folder"] = arguments.text("--output");
    if (arguments.has("--picture")) json["picture"] = arguments.text("--picture");
    if (!outcome.failure.empty()) json["error"] = outcome.failure;
    const DecomposeReport& report = division.report;
    Json planes = Json::array();
    for (const DividingPlane& plane : report.planes) {
        Json normal = {0, 0, 0};
        normal[plane.axis] = 1;
        planes.push_back({{"normal", normal}, {"offset", shortest_double(plane.offset)}});
    }
    json["models"] = report.models;
    json["cuts"] = report.cuts;
    json["cut_area"] = report.cut_area;
    json["least_parts"] = report.least_parts;
    json["uniform_parts"] = report.uniform_parts;
    json["too_large"] = report.too_large;
    if (arguments.number("--pegs") > 0) {
        json["pegs"] = report.pegs;
        json["cuts_without_pegs"] = report.cuts_without_pegs;
    }
    json["planes"] = planes;
    json["parts"] = pieces_json(outcome.pieces);
    for (std::size_t i = 0; i < outcome.pieces.size(); ++i) {
        const Box3f& box = outcome.pieces[i].box;
        if (arguments.has("--preview")) json["parts"][i].erase("file");
        json["parts"][i]["box"] = {{box.low.x, box.low.y, box.low.z},
                                   {box.high.x, box.high.y, box.high.z}};
    }
    json["seconds"] = division.seconds;
    json["warnings"] = warnings_json(outcome);
    return json;
}

int run_decompose(const Arguments& arguments, Console& console) {
    if (const std::string error = usage_error(arguments); !error.empty()) {
        console.error(error);
        return Usage;
    }
    job::DecomposeDone division;
    ProgressLine line(console, arguments.text("IN"));
    const PiecesOutcome outcome =
        divide_model(arguments, line.progress(), "parts",
                     [&](TriMesh& mesh, Progress progress, PiecesOutcome& so_far) {
                         return divide(mesh, arguments, progress, so_far, division);
                     });
    line.stop();
    return tell_pieces(
        outcome, arguments, console, [&] { return to_json(arguments, outcome, division); },
        headline(arguments, outcome, division), planes_text(arguments, division));
}

}  // namespace

OperationSpec decompose_operation() {
    return {
        .name = "decompose",
        .summary = "Divide a model into parts that fit a printer",
        .description =
            "Cuts each model that is larger than the size across the axes, into as few parts as a "
            "search finds, and closes the cuts. Writes DIR/NAME_001.stl and so on, NAME being that "
            "of IN. Parts lie as they lie in the model.",
        .positionals = {kModelFile},
        .options = {{.name = "--output",
                     .short_name = "-o",
                     .type = ValueType::Text,
                     .placeholder = "DIR",
                     .help = "Folder to write to; it is made when it is not there"},
                    {.name = "--size",
                     .type = ValueType::Text,
                     .placeholder = "X,Y,Z",
                     .unit = "units of the file",
                     .is_required = true,
                     .help = "Size of the largest part, or one number for all axes; 0 sets no "
                             "limit"},
                    {.name = "--margin",
                     .type = ValueType::Number,
                     .placeholder = "MARGIN",
                     .unit = "units of the file",
                     .default_value = "0",
                     .low = 0,
                     .high = kNoLimit,
                     .help = "Takes this off the size along each axis"},
                    {.name = "--uniform",
                     .help = "Cut into equal slabs along each axis instead of searching"},
                    {.name = "--turn", .help = "Let parts lie on another side to fit"},
                    {.name = "--pegs",
                     .type = ValueType::Number,
                     .placeholder = "COUNT",
                     .default_value = "0",
                     .low = 0,
                     .high = 256,
                     .help = "Pegs between each two parts that a cut makes, with sockets that are "
                             "larger by 0.2; parts fit with their pegs"},
                    peg_radius(),
                    {.name = "--preview", .help = "Write no parts, but tell the planes, too"},
                    {.name = "--picture",
                     .type = ValueType::Text,
                     .placeholder = "PNG",
                     .help = "Draw the parts pulled apart"},
                    piece_format(),
                    json_object()},
        .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
        .run = run_decompose,
    };
}

}  // namespace povmesh::cli
