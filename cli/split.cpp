// povmesh split: one file for each model that a file holds.
#include <algorithm>
#include <array>
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
#include "mesh/edge_mates.h"
#include "mesh/separation.h"
#include "mesh/shells.h"
#include "mesh/volume.h"

namespace povmesh::cli {
namespace {

namespace fs = std::filesystem;

// Digits of a number in a file name, so that up to 999 names sort by number.
constexpr std::size_t kDigits = 3;

struct Piece {
    std::string file;  // with the folder
    std::size_t triangles = 0;
    std::size_t shells = 0;
    double volume = 0;
    Box3f box;
    bool is_closed = false;
};

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

bool is_closed(TriMesh& mesh) {
    const EdgeMates mates(mesh);
    for (std::size_t face = 0; face < mesh.faces.size(); ++face) {
        for (std::size_t edge = 0; edge < 3; ++edge) {
            if (mates.kind(face, edge) == EdgeMates::Kind::Open) return false;
        }
    }
    return true;
}

Piece piece_of(TriMesh& part, std::size_t shells) {
    Piece piece;
    piece.triangles = part.faces.size();
    piece.shells = shells;
    piece.volume = signed_volume(part);
    for (const Vertex& vertex : part.vertices) {
        if (std::isfinite(vertex.x) && std::isfinite(vertex.y) && std::isfinite(vertex.z)) {
            piece.box.widen(vertex.position());
        }
    }
    piece.is_closed = is_closed(part);
    return piece;
}

// NAME_007.stl in the folder.
std::string numbered(const fs::path& folder, const std::string& name, std::size_t number,
                     const std::string& extension) {
    std::string digits = std::to_string(number);
    digits.insert(0, kDigits - std::min(kDigits, digits.size()), '0');
    return (folder / (name + "_" + digits + extension)).string();
}

std::string make_folder(const std::string& folder) {
    std::error_code error;
    fs::create_directory(folder, error);
    if (!error && fs::is_directory(folder, error)) return {};
    const std::string reason =
        error ? error.message() : std::make_error_code(std::errc::not_a_directory).message();
    return folder + ": cannot be made: " + reason + "; name a folder whose parent is there";
}

// What is there already when writing fails on the way.
std::string written_text(const std::vector<Piece>& pieces) {
    if (pieces.empty()) return "; nothing was written";
    std::string text = "; written: " + pieces.front().file;
    if (pieces.size() > 1) text += " to " + pieces.back().file;
    return text;
}

class Splitter {
public:
    Splitter(const Arguments& arguments, Progress progress)
        : source_(arguments.text("IN")),
          folder_(arguments.text("--output")),
          least_volume_(arguments.number("--min-volume")),
          progress_(progress) {
        if (arguments.has("--format")) {
            extension_ = "." + arguments.text("--format");
        } else {
            extension_ = kind_of(source_) == FileKind::Obj ? ".obj" : ".stl";
        }
    }

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

std::string volume_text(double volume) {
    return std::isfinite(volume) ? human_number(volume) : "unknown";
}

std::string table(const std::string& source, const std::string& folder, const Outcome& outcome) {
    using Line = std::array<std::string, 6>;
    std::vector<Line> lines = {{"file", "triangles", "shells", "volume", "closed", "size"}};
    for (const Piece& piece : outcome.pieces) {
        lines.push_back({on_one_line(fs::path(piece.file).filename().string()),
                         with_separators(piece.triangles), with_separators(piece.shells),
                         volume_text(piece.volume), piece.is_closed ? "yes" : "no",
                         size_text(piece.box)});
    }
    std::array<std::size_t, std::tuple_size_v<Line>> widths{};
    for (const Line& line : lines) {
        for (std::size_t i = 0; i < line.size(); ++i) {
            widths[i] = std::max(widths[i], line[i].size());
        }
    }
    std::string text = on_one_line(source) + ": " + counted(outcome.pieces.size(), "model") +
                       " in " + on_one_line(folder);
    if (outcome.left_out != 0) {
        text += ", " + with_separators(outcome.left_out) + " left out for being small";
    }
    text += "\n";
    for (const Line& line : lines) {
        for (std::size_t i = 0; i + 1 < line.size(); ++i) {
            text += "  " + line[i] + std::string(widths[i] - line[i].size(), ' ');
        }
        text += "  " + line.back() + "\n";
    }
    return text;
}

Json to_json(const std::string& source, const std::string& folder, const Outcome& outcome) {
    Json json = {{"file", source}, {"folder", folder}};
    if (!outcome.failure.empty()) json["error"] = outcome.failure;
    json["models"] = Json::array();
    for (const Piece& piece : outcome.pieces) {
        json["models"].push_back({{"file", piece.file},
                                  {"triangles", piece.triangles},
                                  {"shells", piece.shells},
                                  {"volume", volume_json(piece.volume)},
                                  {"size", size_json(piece.box)},
                                  {"closed", piece.is_closed}});
    }
    json["left_out"] = outcome.left_out;
    json["warnings"] = outcome.warnings;
    return json;
}

}  // namespace

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

}  // namespace povmesh::cli
