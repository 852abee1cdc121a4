// Loads and writes the models that the tool works on.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "cli/console.h"
#include "mesh/tri_mesh.h"

namespace povmesh::cli {

/// What the end of a file name says.
enum class FileKind : std::uint8_t { Unknown, Stl, Obj, Ply };

FileKind kind_of(const std::string& path);

/// The end that says the kind of a file: ".stl".
std::string_view extension_of(FileKind kind);

/// False, after an error line, when the name of a target says no kind of model.
bool is_model_name(const std::string& path, Console& console);

/// True when the file name ends in `extension` (with its point), in any case.
bool has_extension(const std::string& path, std::string_view extension);

/// What belongs to a model beside its mesh.
struct ModelExtras {
    std::vector<std::string> texture_files;  // named in a PLY file
};

struct LoadedModel {
    std::string path;
    TriMesh mesh;
    FileKind kind = FileKind::Unknown;
    std::string_view format;         // for people: "binary STL"
    std::size_t triangles = 0;       // in the file
    bool is_whole = true;            // nothing of the file that may be model was left out
    bool has_texture_lines = false;  // texture coordinates in the file
    ModelExtras extras;
    std::vector<std::string> warnings;  // what was left out or taken for something; no file name

    /// Triangles of the file that made no face, because two of their corners are at one place.
    std::size_t dropped_triangles() const { return triangles - mesh.faces.size(); }
};

/// Reads a model of at least one face. On failure returns one line for the user, with the file;
/// empty on success. Progress goes up to 48.
std::string load_model(const std::string& path, Progress progress, LoadedModel& model);

/// Writes the live faces, as binary STL, exact OBJ or PLY as the name of the target asks, unless one
/// has a coordinate that is not finite. On failure returns one line, with the file; the target is then as
/// it was.
std::string save_model(TriMesh& mesh, const std::string& path, const ModelExtras& extras = {});

/// The same for a model as it was loaded or changed. What was not read whole does not replace its
/// own file.
std::string save_model(LoadedModel& model, const std::string& path);

/// One line, with the file, for whatever is being thrown; to be called while handling an exception.
std::string failure_text(const std::string& path);

/// What a reader of the file should know although it could be read; a line each, without the file.
std::vector<std::string> load_warnings(const LoadedModel& model);

/// What a file of that kind does not keep of the model; a line each.
std::vector<std::string> loss_warnings(const LoadedModel& model, FileKind target);

/// True when a face has a colour other than white.
bool has_colours(const TriMesh& mesh);

/// Prints warnings, each with the file.
void warn_of(const std::string& path, const std::vector<std::string>& warnings, Console& console);
inline void warn_of(const LoadedModel& model, Console& console) {
    warn_of(model.path, load_warnings(model), console);
}

}  // namespace povmesh::cli
