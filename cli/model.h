// Loads and writes the models that the tool works on.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "cli/console.h"
#include "io/three_mf.h"
#include "mesh/tri_mesh.h"

namespace povmesh::cli {

/// What the end of a file name says.
enum class FileKind : std::uint8_t { Unknown, Stl, Obj, Ply, ThreeMf };

/// Of a name that ends in ".gz" by what stands before that; of "-", standard input or output, by
/// `set_pipe_kind`; of a model that is kept in memory, its own.
FileKind kind_of(const std::string& path);

/// Standard input and output have no name that says their kind: the option --format does, once.
void set_pipe_kind(FileKind kind);

inline bool is_pipe(std::string_view path) {
    return path == "-";
}

/// The end that says the kind of a file: ".stl".
std::string_view extension_of(FileKind kind);

/// False, after an error line, when the name of a target says no kind of model. When the target is
/// standard output, results of the console go to standard error from now on.
bool is_model_name(const std::string& path, Console& console);

/// The name of a model without folder and extensions.
std::string stem_of(const std::string& path);

/// Whether a file of that name is packed by gzip.
bool is_packed(const std::string& path);

/// True when the file name ends in `extension` (with its point), in any case.
bool has_extension(const std::string& path, std::string_view extension);

/// What belongs to a model beside its mesh.
struct ModelExtras {
    std::vector<std::string> texture_files;  // named in a PLY file
    ThreeMfContent package;
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

/// Writes the live faces, as binary STL, exact OBJ, PLY or 3MF as the name of the target asks,
/// unless one has a coordinate that is not finite. On failure returns one line, with the file; the
/// target is then as it was.
std::string save_model(TriMesh& mesh, const std::string& path, const ModelExtras& extras = {});

/// The same for a model as it was loaded or changed. What was not read whole does not replace its
/// own file.
std::string save_model(LoadedModel& model, const std::string& path);

/// Why a file that was not read whole is not replaced.
std::string replaced_in_part(const std::string& path);

/// Where a model is written: its target, or for standard output a file of the temporary folder that
/// is copied when it is complete and found right.
class OutputFile {
public:
    explicit OutputFile(const std::string& target);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// To be written, and read back.
    const std::string& path() const { return path_; }

    /// Brings it to its target. On failure returns one line.
    std::string deliver();

private:
    void remove_temporary();

    std::string path_;
    std::string folder_;  // temporary; empty when the target is a file
};

/// One line, with the file, for whatever is being thrown; to be called while handling an exception.
std::string failure_text(const std::string& path);

/// What a reader of the file should know although it could be read; a line each, without the file.
std::vector<std::string> load_warnings(const LoadedModel& model);

/// What a file of that kind does not keep of the model as it is; a line each.
std::vector<std::string> loss_warnings(const LoadedModel& model, FileKind target);

/// True when an operation made faces that belong to no body of the 3MF file that was read, so that
/// a 3MF file of the result has one object.
bool loses_bodies(const LoadedModel& model, FileKind target);
inline constexpr std::string_view kLostBodies =
    "the new faces belong to no object of the source: all are written as one object";

/// The bodies of a 3MF file as meshes of their own, in its order; none for one body.
std::vector<TriMesh> bodies_of(const LoadedModel& model);

/// How many of them have no open edge.
std::size_t closed_body_count(const LoadedModel& model);

/// True when a face has a colour other than white.
bool has_colours(const TriMesh& mesh);

/// Prints warnings, each with the file.
void warn_of(const std::string& path, const std::vector<std::string>& warnings, Console& console);
inline void warn_of(const LoadedModel& model, Console& console) {
    warn_of(model.path, load_warnings(model), console);
}

}  // namespace povmesh::cli
