// povmesh cut: divides a model with a plane, one file for each piece.
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
#include "cut/cut.h"
#include "mesh/bounds.h"
#include "mesh/edge_mates.h"
#include "mesh/shells.h"

namespace povmesh::cli {
namespace {

namespace fs = std::filesystem;

// Sides of a peg: from this many on a printer's resolution hides them.
constexpr std::uint32_t kPegSegments = 48;

struct Outcome {
    ExitStatus status = Clean;
    std::string failure;
    std::vector<std::string> warnings;
    std::vector<Piece> pieces;  // those written
    CutCounts counts;

    void fail(ExitStatus with, const std::string& text) {
        status = with;
        failure = text;
    }
};

// True when each edge is held by an even number of faces, so that the faces enclose something.
bool encloses(TriMesh& mesh) {
    const EdgeMates mates(mesh);
    for (std::size_t group = 0; group < mates.group_count(); ++group) {
        if (mates.group(group).size() % 2 != 0) return false;
    }
    return is_closed(mesh);
}

class Cutter {
public:
    Cutter(const Arguments& arguments, Progress progress)
        : arguments_(arguments),
          source_(arguments.text("IN")),
          folder_(arguments.text("--output")),
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
            cut();
            if (outcome_.failure.empty()) write();
        } catch (...) {
            outcome_.fail(CannotRead, failure_text(source_) + written_text(outcome_.pieces));
        }
        return outcome_;
    }

private:
    CutOptions options() const {
        CutOptions options;
        options.operation = arguments_.has("--mirror")    ? CutOperation::MirrorFront
                            : arguments_.has("--no-caps") ? CutOperation::Cut
                                                          : CutOperation::CutAndCap;
        options.plane.normal = arguments_.vector("--normal");
        // Any direction in the plane will do; that of x, or of y, lets pegs start along an axis.
        const Vec3d& n = options.plane.normal;
        options.plane.direction = n.y == 0 && n.z == 0 ? Vec3d{0, 1, 0} : Vec3d{1, 0, 0};
        if (arguments_.has("--point")) {
            options.plane.point = arguments_.vector("--point");
        } else if (const Box3f box = finite_bounds(model_.mesh); !box.is_empty()) {
            options.plane.point = to_double(box.low) * 0.5 + to_double(box.high) * 0.5;
        }
        options.connectors.count = static_cast<std::uint32_t>(arguments_.number("--pegs"));
        options.connectors.radius = arguments_.number("--peg-radius");
        options.connectors.segments = kPegSegments;
        options.keep_cavities = true;
        return options;
    }

    void cut() {
        TriMesh& mesh = model_.mesh;
        const std::vector<std::string> lost = loss_warnings(model_, kind_of("x" + extension_));
        const CutOptions cut_options = options();
        const bool was_closed = encloses(mesh);
        RunLog log;
        RunContext run{progress_, log};
        outcome_.counts = cut_models(mesh, cut_options, run);
        progress_.set(70);
        if (outcome_.counts.divided == 0) {
            return outcome_.fail(Flawed,
                                 source_ + ": the plane misses " +
                                     (outcome_.counts.models > 1 ? "all models" : "the model") +
                                     "; nothing is written");
        }
        for (TriMesh& part : mesh.parts) {
            label_shells(part);
            pieces_.push_back(piece_of(part, part.shells.size()));
        }
        must_be_closed_ = was_closed && cut_options.operation != CutOperation::Cut;
        const std::size_t pegs = outcome_.counts.divided * cut_options.connectors.count;
        if (cut_options.operation == CutOperation::CutAndCap && outcome_.counts.connectors < pegs) {
            outcome_.warnings.push_back("only " + with_separators(outcome_.counts.connectors) +
                                        " of " + counted(pegs, "peg") +
                                        " found room; try a smaller --peg-radius");
        }
        outcome_.warnings.insert(outcome_.warnings.end(), lost.begin(), lost.end());
    }

    void write() {
        if (const std::string failure = make_folder(folder_); !failure.empty()) {
            return outcome_.fail(CannotWrite, failure);
        }
        for (std::size_t i = 0; i < pieces_.size(); ++i) {
            Piece& piece = pieces_[i];
            piece.file = name_of(i + 1);
            const std::string failure = save_model(model_.mesh.parts[i], piece.file);
            if (!failure.empty()) {
                return outcome_.fail(CannotWrite, failure + written_text(outcome_.pieces));
            }
            outcome_.pieces.push_back(piece);
            progress_.set(70 + static_cast<std::uint32_t>(30 * (i + 1) / pieces_.size()));
        }
        const std::string next = name_of(pieces_.size() + 1);
        if (std::error_code error; fs::exists(next, error)) {
            outcome_.warnings.push_back(next + " was there before and is none of these pieces");
        }
        for (const Piece& piece : outcome_.pieces) {
            if (!must_be_closed_ || piece.is_closed) continue;
            return outcome_.fail(Flawed, piece.file + ": is not closed although " + source_ +
                                             " is; please report this model");
        }
    }

    std::string name_of(std::size_t number) const {
        return numbered(folder_, fs::path(source_).stem().string(), number, extension_);
    }

    const Arguments& arguments_;
    const std::string& source_;
    const std::string& folder_;
    Progress progress_;
    std::string extension_;
    LoadedModel model_;
    std::vector<Piece> pieces_;
    bool must_be_closed_ = false;
    Outcome outcome_;
};

std::string summary(const std::string& source, const std::string& folder, const Outcome& outcome) {
    std::string text = on_one_line(source) + ": " + counted(outcome.pieces.size(), "piece") +
                       " in " + on_one_line(folder);
    if (outcome.counts.connectors != 0) {
        text += ", " + counted(outcome.counts.connectors, "peg");
    }
    return text + "\n";
}

Json to_json(const std::string& source, const std::string& folder, const Outcome& outcome) {
    Json json = {{"file", source}, {"folder", folder}};
    if (!outcome.failure.empty()) json["error"] = outcome.failure;
    json["models"] = outcome.counts.models;
    json["cut_models"] = outcome.counts.divided;
    json["pegs"] = outcome.counts.connectors;
    json["pieces"] = pieces_json(outcome.pieces);
    json["warnings"] = outcome.warnings;
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

}  // namespace

int run_cut(const Arguments& arguments, Console& console) {
    if (const std::string error = usage_error(arguments); !error.empty()) {
        console.error(error);
        return Usage;
    }
    const std::string& source = arguments.text("IN");
    const std::string& folder = arguments.text("--output");
    ProgressLine line(console, source);
    const Outcome outcome = Cutter(arguments, line.progress()).run();
    line.stop();
    if (!outcome.failure.empty()) console.error(outcome.failure);
    if (arguments.has("--json")) {
        console.print(json_text(to_json(source, folder, outcome)));
    } else if (!outcome.pieces.empty() && outcome.status != CannotWrite) {
        warn_of(source, outcome.warnings, console);
        console.print(summary(source, folder, outcome) + pieces_table(outcome.pieces));
    }
    return outcome.status;
}

}  // namespace povmesh::cli
