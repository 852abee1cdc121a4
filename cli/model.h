// Loads the models that the tool works on.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "cli/console.h"
#include "io/stl.h"
#include "mesh/tri_mesh.h"

namespace povmesh::cli {

struct LoadedModel {
    std::string path;
    TriMesh mesh;
    StlInfo info;

    /// Triangles of the file that made no face, because two of their corners are at one place.
    std::size_t dropped_triangles() const { return info.triangles - mesh.faces.size(); }

    std::string_view format() const { return info.is_ascii ? "ASCII STL" : "binary STL"; }
};

/// True when the file name ends in `extension` (with its point), in any case.
bool has_extension(const std::string& path, std::string_view extension);

/// Reads a model of at least one face. On failure returns one line for the user, with the file;
/// empty on success. Progress goes up to 48.
std::string load_model(const std::string& path, Progress progress, LoadedModel& model);

/// One line, with the file, for whatever is being thrown; to be called while handling an exception.
std::string failure_text(const std::string& path);

/// What a reader of the file should know although it could be read; a line each, without the file.
std::vector<std::string> load_warnings(const LoadedModel& model);

/// Prints them, with the file.
void warn_of(const LoadedModel& model, Console& console);

}  // namespace povmesh::cli
