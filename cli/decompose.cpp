// povmesh decompose: divides models into parts that fit a printer.
#include "decompose/decompose.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "base/timer.h"
#include "cli/commands.h"
#include "cli/findings_report.h"
#include "cli/model.h"
#include "cli/numbers.h"
#include "cli/pieces.h"
#include "cli/refusal.h"
#include "cli/shared_options.h"
#include "mesh/shells.h"
#include "mesh/volume.h"

namespace povmesh::cli {
namespace {

// By how much of the whole volume the parts may differ from it: the distance within which vertices
// count as lying on a cut.
constexpr double kSameVolume = 1e-5;

// X,Y,Z, or one number for all three. Its x is not a number when it is neither.
Vec3d size_of(const Arguments& arguments) {
    const std::string& text = arguments.text("--size");
    if (text.find(',') != std::string::npos) return parse_vector(text);
    const double all = parse_number(text);
    return {all, all, all};
}

// What is wrong with the command line; empty when nothing is.
std::string usage_error(const Arguments& arguments) {
    const Vec3d size = size_of(arguments);
    const double margin = arguments.number("--margin");
    for (const double x : {size.x, size.y, size.z}) {
        if (!std::isfinite(x) || x < 0) {
            return "decompose: --size takes X,Y,Z or one number, 0 for no limit";
        }
        if (x != 0 && !(x > margin)) return "decompose: --margin leaves nothing of --size";
    }
    if (size == Vec3d{}) return "decompose: --size limits no axis; give one above 0";
    return {};
}

DecomposeOptions options_of(const Arguments& arguments) {
    const double margin = arguments.number("--margin");
    const auto lessened = [&](double x) { return x > 0 ? x - margin : 0; };
    const Vec3d size = size_of(arguments);
    return {{lessened(size.x), lessened(size.y), lessened(size.z)},
            arguments.has("--uniform") ? DivisionMethod::Uniform : DivisionMethod::Automatic};
}

struct Division {
    DecomposeReport report;
    double seconds = 0;
};

std::vector<Piece> divide(TriMesh& mesh, const Arguments& arguments, PiecesOutcome& outcome,
                          Division& division) {
    const double whole = signed_volume(mesh);
    TriMesh copy = mesh;
    const bool was_closed = is_closed(copy);
    copy = {};
    const Timer timer;
    std::string failures;
    RunLog log([&](std::string_view text) {
        if (text.find("{failure}") != std::string_view::npos) failures += text;
    });
    RunContext run{{}, log};
    division.report = decompose(mesh, options_of(arguments), run);
    division.seconds = timer.seconds();
    std::vector<Piece> pieces;
    double sum = 0;
    std::size_t open = 0;
    for (TriMesh& part : mesh.parts) {
        label_shells(part);
        pieces.push_back(piece_of(part, part.shells.size()));
        sum += pieces.back().volume;
        open += pieces.back().is_closed ? 0 : 1;
    }
    const auto doubt = [&](const std::string& text) {
        outcome.warnings.push_back(text);
        if (outcome.status == Clean) outcome.status = Flawed;
    };
    if (division.report.too_large != 0) {
        std::string why = "no plane divides them; repair the model first";
        if (failures.find("finite") != std::string::npos) {
            why = "a coordinate is not finite; take these triangles out first";
        } else if (failures.find("many") != std::string::npos) {
            why = "more than 32,768 parts would be needed; is the unit of --size that of the file?";
        }
        doubt(counted(division.report.too_large, "part") + " too large: " + why);
    }
    if (was_closed && open != 0)
        doubt(counted(open, "part") + " open although the model is closed");
    if (was_closed && std::abs(sum - whole) > kSameVolume * std::abs(whole)) {
        doubt("the volumes of the parts add up to " + human_number(sum) + ", not to the " +
              human_number(whole) + " of the model");
    }
    return pieces;
}

std::string headline(const Arguments& arguments, const PiecesOutcome& outcome,
                     const Division& division) {
    const DecomposeReport& report = division.report;
    std::string text = on_one_line(arguments.text("IN")) + ": " +
                       counted(outcome.pieces.size(), "part") + " in " +
                       on_one_line(arguments.text("--output")) + ", " + counted(report.cuts, "cut");
    if (!arguments.has("--uniform")) {
        text += " (an even division makes " + with_separators(report.uniform_parts) + ")";
    }
    return text;
}

Json to_json(const Arguments& arguments, const PiecesOutcome& outcome, const Division& division) {
    Json json = {{"file", arguments.text("IN")}, {"folder", arguments.text("--output")}};
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
    json["uniform_parts"] = report.uniform_parts;
    json["too_large"] = report.too_large;
    json["planes"] = planes;
    json["parts"] = pieces_json(outcome.pieces);
    for (std::size_t i = 0; i < outcome.pieces.size(); ++i) {
        const Box3f& box = outcome.pieces[i].box;
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
    Division division;
    ProgressLine line(console, arguments.text("IN"));
    const PiecesOutcome outcome =
        divide_model(arguments, line.progress(), "parts",
                     [&](TriMesh& mesh, Progress /*progress*/, PiecesOutcome& so_far) {
                         return divide(mesh, arguments, so_far, division);
                     });
    line.stop();
    return tell_pieces(
        outcome, arguments, console, [&] { return to_json(arguments, outcome, division); },
        headline(arguments, outcome, division));
}

}  // namespace

OperationSpec decompose_operation() {
    return {
        .name = "decompose",
        .summary = "Divide a model into parts that fit a printer",
        .description =
            "Cuts each model that is larger than the size across the axes, into as few parts as a "
            "search finds, and closes the cuts. Writes DIR/NAME_001.stl and so on, NAME being that "
            "of IN. Parts are not turned.",
        .positionals = {kModelFile},
        .options = {output("DIR", "Folder to write to; it is made when it is not there"),
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
                    piece_format(),
                    json_object()},
        .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
        .run = run_decompose,
    };
}

}  // namespace povmesh::cli
