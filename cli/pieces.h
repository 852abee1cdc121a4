// The models that an operation writes into a folder, one file each.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "base/vec.h"
#include "cli/findings_report.h"
#include "cli/model.h"
#include "cli/operations.h"
#include "mesh/tri_mesh.h"

namespace povmesh::cli {

struct Piece {
    std::string file;  // with the folder
    std::size_t triangles = 0;
    std::size_t shells = 0;
    double volume = 0;
    Box3f box;
    bool is_closed = false;
};

/// True when each edge is held by at least two faces.
bool is_closed(TriMesh& mesh);

/// What there is to tell about a mesh; its file stays unset.
Piece piece_of(TriMesh& mesh, std::size_t shells);

/// "/NAME_007.stl" in the folder.
std::string numbered(const std::filesystem::path& folder, const std::string& name,
                     std::size_t number, const std::string& extension);

/// The extension of the files: that of the option --format, else that of the source.
std::string extension_for(const Arguments& arguments, const std::string& source);

/// Makes a folder when it is not there. Returns one line for the user when that fails, else empty.
std::string make_folder(const std::string& folder);

/// What is there already when writing fails on the way, to be appended to the error.
std::string written_text(const std::vector<Piece>& pieces);

/// A table with a line for each piece.
std::string pieces_table(const std::vector<Piece>& pieces);

Json pieces_json(const std::vector<Piece>& pieces);

}  // namespace povmesh::cli
