// povmesh cut: divides a model with a plane, one file for each piece.
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/pieces.h"
#include "cli/shared_options.h"
#include "job/cut.h"
#include "job/numbers.h"

namespace povmesh::cli {
namespace {

job::CutJob job_of(const Arguments& arguments) {
    job::CutJob options;
    options.caps = !arguments.has("--no-caps");
    options.mirror = arguments.has("--mirror");
    options.pegs = static_cast<std::uint32_t>(arguments.number("--pegs"));
    options.peg_radius = arguments.number("--peg-radius");
    options.normal = arguments.vector("--normal");
    if (arguments.has("--point")) options.point = arguments.vector("--point");
    return options;
}

std::vector<Piece> cut(TriMesh& mesh, const Arguments& arguments, Progress progress,
                       PiecesOutcome& outcome, job::CutDone& done) {
    const Status status = job::cut(mesh, job_of(arguments), progress, done);
    if (!status.ok()) outcome.fail(Flawed, arguments.text("IN") + ": " + status.text());
    outcome.warnings.insert(outcome.warnings.end(), done.warnings.begin(), done.warnings.end());
    return {done.pieces.begin(), done.pieces.end()};
}

void expect_closed(const std::string& source, PiecesOutcome& outcome) {
    for (const Piece& piece : outcome.pieces) {
        if (piece.is_closed) continue;
        return outcome.fail(Flawed, piece.file + ": " + job::open_text(source));
    }
}

void expect_no_crossing(const std::string& source, const job::CutDone& done,
                        PiecesOutcome& outcome) {
    for (std::size_t i = 0; i < done.crossed.size() && i < outcome.pieces.size(); ++i) {
        const job::Blemishes& blemishes = done.crossed[i];
        if (blemishes.crossings == 0) continue;
        return outcome.fail(Flawed,
                            outcome.pieces[i].file + ": " + job::crossing_text(blemishes, source));
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
    job::CutDone report;
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
                    peg_radius(),
                    piece_format(),
                    json_object()},
        .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
        .run = run_cut,
    };
}

}  // namespace povmesh::cli
