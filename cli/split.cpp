// povmesh split: one file for each model that a file holds.
#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/pieces.h"
#include "cli/shared_options.h"
#include "job/numbers.h"
#include "job/split.h"

namespace povmesh::cli {
namespace {

std::string headline(const std::string& source, const std::string& folder,
                     const PiecesOutcome& outcome, std::size_t left_out) {
    std::string text = on_one_line(source) + ": " + counted(outcome.pieces.size(), "model") +
                       " in " + on_one_line(folder);
    if (left_out != 0) text += ", " + with_separators(left_out) + " left out for being small";
    return text;
}

Json to_json(const std::string& source, const std::string& folder, const PiecesOutcome& outcome,
             std::size_t left_out) {
    Json json = {{"file", source}, {"folder", folder}};
    if (!outcome.failure.empty()) json["error"] = outcome.failure;
    json["models"] = pieces_json(outcome.pieces);
    json["left_out"] = left_out;
    json["warnings"] = warnings_json(outcome);
    return json;
}

int run_split(const Arguments& arguments, Console& console) {
    const std::string& source = arguments.text("IN");
    const std::string& folder = arguments.text("--output");
    std::size_t left_out = 0;
    const auto divide = [&](TriMesh& mesh, Progress progress, PiecesOutcome& outcome) {
        job::SplitDone done;
        const job::SplitJob options{.min_volume = arguments.number("--min-volume")};
        if (!job::split(mesh, options, progress, done).ok()) {
            outcome.fail(Flawed, source +
                                     ": no model has the volume of --min-volume; the largest "
                                     "has " +
                                     human_number(done.largest) + "; nothing is written");
        }
        left_out = done.left_out;
        std::vector<Piece> pieces;
        for (std::size_t i = 0; i < done.pieces.size(); ++i) {
            pieces.emplace_back(done.pieces[i]).is_left_out = done.is_left_out[i];
        }
        return pieces;
    };
    ProgressLine line(console, source);
    const PiecesOutcome outcome = divide_model(arguments, line.progress(), "models", divide);
    line.stop();
    return tell_pieces(
        outcome, arguments, console, [&] { return to_json(source, folder, outcome, left_out); },
        headline(source, folder, outcome, left_out));
}

}  // namespace

OperationSpec split_operation() {
    return {
        .name = "split",
        .summary = "Write each model of a file as a file of its own",
        .description =
            "Shells that touch or cut through each other are one model, and a cavity goes with the "
            "body around it. Writes DIR/NAME_001.stl and so on, NAME being that of IN.",
        .positionals = {kModelFile},
        .options = {output("DIR", "Folder to write to; it is made when it is not there"),
                    {.name = "--min-volume",
                     .type = ValueType::Number,
                     .placeholder = "VOLUME",
                     .unit = "cubed units of the file",
                     .default_value = "0",
                     .low = 0,
                     .high = kNoLimit,
                     .help = "Leave out models of less volume"},
                    piece_format(),
                    json_object()},
        .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
        .run = run_split,
    };
}

}  // namespace povmesh::cli
