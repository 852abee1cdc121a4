// Loads and writes the models that the tool works on.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "cli/console.h"
#include "job/measures.h"
#include "job/model_file.h"
#include "mesh/tri_mesh.h"

namespace povmesh::cli {

/// Of a name that ends in ".gz" by what stands before that; of "-", standard input or output, by
/// `set_pipe_kind`; of a model that is kept in memory, its own.
FileKind kind_of(const std::string& path);

/// Standard input and output have no name that says their kind: the option --format does, once.
void set_pipe_kind(FileKind kind);

inline bool is_pipe(std::string_view path) {
    return path == "-";
}

/// False, after an error line, when the name of a target says no kind of model. When the target is
/// standard output, results of the console go to standard error from now on.
bool is_model_name(const std::string& path, Console& console);

/// The name of a model without folder and extensions.
std::string stem_of(const std::string& path);

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

/// Why there is no memory, and what to do: the limit of --memory, or what the system has.
std::string no_memory_text();

/// One line, with the file, for whatever is being thrown; to be called while handling an exception.
std::string failure_text(const std::string& path);

/// Prints warnings, each with the file.
void warn_of(const std::string& path, const std::vector<std::string>& warnings, Console& console);
inline void warn_of(const LoadedModel& model, Console& console) {
    warn_of(model.path, load_warnings(model), console);
}

}  // namespace povmesh::cli
