// povmesh split: one file for each model that a file holds.
#include <cmath>
#include <cstddef>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <system_error>
#include <vector>

#include "cli/commands.h"
#include "cli/findings_report.h"
#include "cli/model.h"
#include "cli/numbers.h"
#include "cli/pieces.h"
#include "cli/shared_options.h"
#include "mesh/shells.h"
#include "spatial/separation.h"

namespace povmesh::cli {
namespace {

namespace fs = std::filesystem;

struct Outcome {
    ExitStatus status = Clean;
    std::string failure;
    std::vector<std::string> warnings;
    std::vector<Piece> pieces;  // those written
    std::size_t left_out = 0;

    void fail(ExitStatus with, const std::string& text) {
        status = with;
        failure = text;
    }
};

class Splitter {
public:
    Splitter(const Arguments& arguments, Progress progress)
        : source_(arguments.text("IN")),
          folder_(arguments.text("--output")),
          least_volume_(arguments.number("--min-volume")),
          progress_(progress),
          extension_(extension_for(arguments, source_)) {}

    Outcome run() {
        const std::string read_failure = load_model(source_, progress_, model_);
        if (!read_failure.empty()) {
            outcome_.fail(CannotRead, read_failure);
            return outcome_;
        }
        outcome_.warnings = load_warnings(model_);
        try {
            separate();
            if (outcome_.failure.empty()) write();
        } catch (...) {
            outcome_.fail(CannotRead, failure_text(source_) + written_text(outcome_.pieces));
        }
        return outcome_;
    }

private:
    void separate() {
        TriMesh& mesh = model_.mesh;
        label_shells(mesh);
        const ShellGroups groups = group_shells(mesh, {.keep_cavities = true});
        progress_.set(60);
        build_parts(mesh, groups);
        progress_.set(70);
        double largest = 0;
        for (std::size_t i = 0; i < groups.size(); ++i) {
            pieces_.push_back(piece_of(mesh.parts[i], groups[i].size()));
            const double volume = std::abs(pieces_.back().volume);
            if (volume > largest) largest = volume;
            if (volume < least_volume_) ++outcome_.left_out;
        }
        if (outcome_.left_out == pieces_.size()) {
            outcome_.fail(Flawed, source_ +
                                      ": no model has the volume of --min-volume; the "
                                      "largest has " +
                                      human_number(largest) + "; nothing is written");
        }
    }

    void write() {
        if (const std::string failure = make_folder(folder_); !failure.empty()) {
            return outcome_.fail(CannotWrite, failure);
        }
        for (const std::string& lost : loss_warnings(model_, kind_of("x" + extension_))) {
            outcome_.warnings.push_back(lost);
        }
        for (std::size_t i = 0; i < pieces_.size(); ++i) {
            Piece& piece = pieces_[i];
            if (std::abs(piece.volume) < least_volume_) continue;
            piece.file = name_of(outcome_.pieces.size() + 1);
            const std::string failure = save_model(model_.mesh.parts[i], piece.file);
            if (!failure.empty()) {
                return outcome_.fail(CannotWrite, failure + written_text(outcome_.pieces));
            }
            outcome_.pieces.push_back(piece);
            progress_.set(70 + static_cast<std::uint32_t>(30 * (i + 1) / pieces_.size()));
        }
        const std::string next = name_of(outcome_.pieces.size() + 1);
        if (std::error_code error; fs::exists(next, error)) {
            outcome_.warnings.push_back(next + " was there before and is none of these models");
        }
    }

    std::string name_of(std::size_t number) const {
        return numbered(folder_, fs::path(source_).stem().string(), number, extension_);
    }

    const std::string& source_;
    const std::string& folder_;
    double least_volume_;
    Progress progress_;
    std::string extension_;
    LoadedModel model_;
    std::vector<Piece> pieces_;
    Outcome outcome_;
};

std::string table(const std::string& source, const std::string& folder, const Outcome& outcome) {
    std::string text = on_one_line(source) + ": " + counted(outcome.pieces.size(), "model") +
                       " in " + on_one_line(folder);
    if (outcome.left_out != 0) {
        text += ", " + with_separators(outcome.left_out) + " left out for being small";
    }
    return text + "\n" + pieces_table(outcome.pieces);
}

Json to_json(const std::string& source, const std::string& folder, const Outcome& outcome) {
    Json json = {{"file", source}, {"folder", folder}};
    if (!outcome.failure.empty()) json["error"] = outcome.failure;
    json["models"] = pieces_json(outcome.pieces);
    json["left_out"] = outcome.left_out;
    json["warnings"] = outcome.warnings;
    return json;
}

int run_split(const Arguments& arguments, Console& console) {
    const std::string& source = arguments.text("IN");
    const std::string& folder = arguments.text("--output");
    ProgressLine line(console, source);
    const Outcome outcome = Splitter(arguments, line.progress()).run();
    line.stop();
    if (!outcome.failure.empty()) console.error(outcome.failure);
    if (arguments.has("--json")) {
        console.print(json_text(to_json(source, folder, outcome)));
    } else if (outcome.failure.empty()) {
        warn_of(source, outcome.warnings, console);
        console.print(table(source, folder, outcome));
    }
    return outcome.status;
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
                    {.name = "--format",
                     .type = ValueType::Choice,
                     .placeholder = "FORMAT",
                     .choices = {"stl", "obj"},
                     .help = "Format to write, by default that of IN"},
                    json_object()},
        .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
        .run = run_split,
    };
}

}  // namespace povmesh::cli
