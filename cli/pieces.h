// The models that an operation writes into a folder, one file each.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/findings_report.h"
#include "cli/outcome.h"
#include "job/split.h"
#include "mesh/tri_mesh.h"
#include "run/progress.h"

namespace povmesh::cli {

struct Piece : job::PieceMeasures {
    Piece() = default;
    explicit Piece(const job::PieceMeasures& measures) : PieceMeasures(measures) {}

    std::string file;          // with the folder
    double share = -1;         // of the volume of all; below 0: not to be told
    bool is_left_out = false;  // not written
};

/// What there is to tell about a mesh; its file stays unset.
inline Piece piece_of(TriMesh& mesh, std::size_t shells) {
    return Piece(job::measure_piece(mesh, shells));
}

/// "/NAME_007.stl" in the folder.
std::string numbered(const std::filesystem::path& folder, const std::string& name,
                     std::size_t number, const std::string& extension);

/// Makes a folder when it is not there. Returns one line for the user when that fails, else empty.
std::string make_folder(const std::string& folder);

/// A table with a line for each piece.
std::string pieces_table(const std::vector<Piece>& pieces);

Json pieces_json(const std::vector<Piece>& pieces);

struct PiecesOutcome : Outcome {
    std::vector<Piece> pieces;  // those written
};

/// Fills `mesh.parts` and returns what there is to tell about each of them; may fail the outcome
/// and add warnings. Progress goes from 50 to 70.
using Divide =
    std::function<std::vector<Piece>(TriMesh& mesh, Progress progress, PiecesOutcome& outcome)>;

/// Divides the model IN and writes the pieces that are not left out into the folder --output,
/// as NAME_001 and so on, NAME being that of IN. Without that option nothing is written.
///
/// @param noun  what the pieces are called in a warning: "models"
PiecesOutcome divide_model(const Arguments& arguments, Progress progress, std::string_view noun,
                           const Divide& divide);

/// Prints what came of it as `tell` does, but a result with a failure, too, when files were written
/// whole. Returns the exit status.
///
/// @param more  lines below the table
int tell_pieces(const PiecesOutcome& outcome, const Arguments& arguments, Console& console,
                const std::function<Json()>& object, const std::string& headline,
                const std::string& more = {});

}  // namespace povmesh::cli
