#include "cli/pieces.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include "cli/kept_models.h"
#include "cli/model.h"
#include "job/bodies.h"
#include "job/numbers.h"
#include "job/refusal.h"

namespace povmesh::cli {
namespace {

namespace fs = std::filesystem;

// Digits of a number in a file name, so that up to 999 names sort by number.
constexpr std::size_t kDigits = 3;

std::string volume_text(double volume) {
    return std::isfinite(volume) ? human_number(volume) : "unknown";
}

}  // namespace

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

std::string pieces_table(const std::vector<Piece>& pieces) {
    const bool has_shares = !pieces.empty() && pieces.front().share >= 0;
    std::vector<std::vector<std::string>> lines = {{"file", "triangles", "shells", "volume"}};
    if (has_shares) lines.back().emplace_back("share");
    lines.back().insert(lines.back().end(), {"closed", "size"});
    for (const Piece& piece : pieces) {
        std::vector<std::string>& line = lines.emplace_back();
        line = {on_one_line(fs::path(piece.file).filename().string()),
                with_separators(piece.triangles), with_separators(piece.shells),
                volume_text(piece.volume)};
        if (has_shares) line.push_back(human_number(std::round(piece.share * 1000) / 10) + " %");
        line.insert(line.end(), {piece.is_closed ? "yes" : "no", size_text(piece.box)});
    }
    return columns_text(lines);
}

Json pieces_json(const std::vector<Piece>& pieces) {
    Json json = Json::array();
    for (const Piece& piece : pieces) {
        json.push_back({{"file", piece.file},
                        {"triangles", piece.triangles},
                        {"shells", piece.shells},
                        {"volume", volume_json(piece.volume)},
                        {"size", size_json(piece.box)},
                        {"closed", piece.is_closed}});
    }
    return json;
}

namespace {

// That of the option --format, else that of the source.
std::string extension_for(const Arguments& arguments, const std::string& source) {
    if (arguments.has("--format")) return "." + arguments.text("--format");
    return std::string(extension_of(kind_of(source)));
}

// What is there already when writing fails on the way.
std::string written_text(const std::vector<Piece>& pieces) {
    if (pieces.empty()) return "; nothing was written";
    std::string text = "; written: " + pieces.front().file;
    if (pieces.size() > 1) text += " to " + pieces.back().file;
    return text;
}

// Leaves out the pieces without a triangle. Why nothing is to be written, or nothing.
std::string refusal_of(std::vector<Piece>& pieces, const std::vector<TriMesh>& parts,
                       bool was_finite) {
    bool is_anything_left = false;
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        if (pieces[i].triangles == 0) pieces[i].is_left_out = true;
        if (pieces[i].is_left_out) continue;
        const std::string reason = refusal(parts[i], was_finite);
        if (!reason.empty()) return "piece " + std::to_string(i + 1) + ": " + reason;
        is_anything_left = true;
    }
    return is_anything_left ? "" : "no triangle would be left; nothing is written";
}

std::size_t open_body_count(const TriMesh& part, const ThreeMfContent& package) {
    std::vector<TriMesh> bodies = bodies_of(part, package);
    return static_cast<std::size_t>(std::count_if(bodies.begin(), bodies.end(), [](TriMesh& body) {
        return !body.faces.empty() && !is_closed(body);
    }));
}

// Gives faces that are new to the objects that they close, for a 3MF file of each piece.
void keep_bodies(std::vector<TriMesh>& parts, const std::vector<Piece>& pieces,
                 const ThreeMfContent& package, bool were_closed, PiecesOutcome& outcome) {
    bool are_lost = false;
    std::size_t open = 0;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        are_lost |= !give_to_bodies(parts[i], {}, package);
        if (were_closed && pieces[i].is_closed) open += open_body_count(parts[i], package);
    }
    if (are_lost) outcome.warnings.emplace_back(kLostBodies);
    if (open == 0) return;
    outcome.warnings.push_back(counted(open, "object is", "objects are") +
                               " open in their piece: objects that touch are divided as one; split "
                               "the model and divide each by itself");
    if (outcome.status == Clean) outcome.status = Flawed;
}

// Writes the pieces of one model; `pieces` and `parts` go side by side.
void write_pieces(std::vector<Piece> pieces, std::vector<TriMesh>& parts, const ModelExtras& extras,
                  const Arguments& arguments, Progress progress, std::string_view noun,
                  PiecesOutcome& outcome) {
    const std::string& source = arguments.text("IN");
    const std::string folder = arguments.has("--output") ? arguments.text("--output") : "";
    const std::string extension = extension_for(arguments, source);
    const auto name_of = [&](std::size_t number) {
        return numbered(folder, stem_of(source), number, extension);
    };
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        if (pieces[i].is_left_out) continue;
        pieces[i].file = name_of(outcome.pieces.size() + 1);
        if (folder.empty()) {
            outcome.pieces.push_back(pieces[i]);
            continue;
        }
        const std::string failure = save_model(parts[i], pieces[i].file, extras);
        if (!failure.empty()) {
            return outcome.fail(CannotWrite, failure + written_text(outcome.pieces));
        }
        outcome.pieces.push_back(pieces[i]);
        progress.set(70 + static_cast<std::uint32_t>(30 * (i + 1) / pieces.size()));
    }
    const std::string next = name_of(outcome.pieces.size() + 1);
    if (std::error_code error; !folder.empty() && fs::exists(next, error)) {
        outcome.warnings.push_back(next + " was there before and is none of these " +
                                   std::string(noun));
    }
}

}  // namespace

PiecesOutcome divide_model(const Arguments& arguments, Progress progress, std::string_view noun,
                           const Divide& divide) {
    const std::string& source = arguments.text("IN");
    PiecesOutcome outcome;
    LoadedModel model;
    if (const std::string failure = load_model(source, progress, model); !failure.empty()) {
        outcome.fail(CannotRead, failure);
        return outcome;
    }
    outcome.warnings = load_warnings(model);
    try {
        const std::string any_name = "x" + extension_for(arguments, source);
        const std::vector<std::string> lost = loss_warnings(model, kind_of(any_name));
        const bool was_finite = has_finite_corners(model.mesh);
        const ThreeMfContent& package = model.extras.package;
        const bool has_bodies = kind_of(any_name) == FileKind::ThreeMf && !package.labels.empty();
        const bool were_closed = has_bodies && open_body_count(model.mesh, package) == 0;
        std::vector<Piece> pieces = divide(model.mesh, progress, outcome);
        if (!outcome.failure.empty()) return outcome;
        const std::string reason = refusal_of(pieces, model.mesh.parts, was_finite);
        if (!reason.empty()) {
            outcome.fail(Flawed, source + ": " + reason);
            return outcome;
        }
        if (has_bodies) keep_bodies(model.mesh.parts, pieces, package, were_closed, outcome);
        progress.set(70);
        if (arguments.has("--output")) {
            const std::string& folder = arguments.text("--output");
            const std::string failure = is_kept_folder(folder) ? "" : make_folder(folder);
            if (!failure.empty()) {
                outcome.fail(CannotWrite, failure);
                return outcome;
            }
            outcome.warnings.insert(outcome.warnings.end(), lost.begin(), lost.end());
        }
        write_pieces(std::move(pieces), model.mesh.parts, model.extras, arguments, progress, noun,
                     outcome);
    } catch (...) {
        outcome.fail(CannotRead, failure_text(source) + written_text(outcome.pieces));
    }
    return outcome;
}

int tell_pieces(const PiecesOutcome& outcome, const Arguments& arguments, Console& console,
                const std::function<Json()>& object, const std::string& headline,
                const std::string& more) {
    if (!outcome.failure.empty()) console.error(outcome.failure);
    const bool is_written = !outcome.pieces.empty() && outcome.status <= Flawed;
    if (arguments.has("--json")) {
        console.print(json_text(object()));
    } else if (is_written) {
        warn_of(arguments.text("IN"), outcome.warnings, console);
        console.print(headline + "\n" + pieces_table(outcome.pieces) + more);
    }
    return outcome.status;
}

}  // namespace povmesh::cli
